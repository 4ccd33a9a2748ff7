# Shared by what runs end-to-end scenarios; to be sourced after lib.sh.

# Wine with what its NTLM (the program ntlm_auth) and its TLS (a library that comes with that, and is called differently
# in every release) need, the servers, and the language of the scenario runner.
E2E_PACKAGES=(wine wine64 winbind python3 python3-jsonschema openssl tinyproxy-bin squid lighttpd lighttpd-mod-openssl)

# What looks at a report as people do: a browser, and the means to drive it.
BROWSER_PACKAGES=(chromium chromium-driver python3-selenium fonts-dejavu-core)

# Debian's own, which sees Debian's packages, whatever else is called python3 here.
PYTHON=/usr/bin/python3

# e2e PROGRAM [ARGUMENT...]: runs a program of tests/e2e/ on what was built.
e2e() {
  local program=$1
  shift
  "$PYTHON" "tests/e2e/$program" --bin build/windows-x64/bin --bridge build/windows-x64/e2e --work build/e2e "$@"
}

# Installs the packages without starting the services that some of them bring. (A subshell, for its trap.)
install_e2e_packages() (
  policy=/usr/sbin/policy-rc.d
  # Without a hosts file a machine does not even know localhost.
  getent ahosts localhost >/dev/null || E2E_PACKAGES+=(libnss-myhostname)
  if [ ! -e "$policy" ] && ! dpkg-query -W "${E2E_PACKAGES[@]}" >/dev/null 2>&1; then
    trap 'as_root rm -f "$policy"' EXIT
    printf '#!/bin/sh\nexit 101\n' | as_root tee "$policy" >/dev/null
    as_root chmod +x "$policy"
  fi
  install_packages "${E2E_PACKAGES[@]}"
)
