#!/usr/bin/env bash
# Installs the Debian packages that kiv is built and tested with. The other scripts call it for what they need.
#
#   ./scripts/setup.sh [--list] [GROUP...]
#
# Without a group: all that ./scripts/test.sh needs. --list only shows the packages, their purpose, and which of them are
# missing. With KIV_NO_INSTALL=1 in the environment it installs nothing: it names what is missing, and exits with 69.
set -euo pipefail

# Group, purpose, packages. The toolchain for Windows is two compilers, one for the DLLs and one for all else. Wine's NTLM
# is winbind's program ntlm_auth, and its TLS a library that winbind brings, under another name in every release.
groups='
build    | compilers, build system, and what the tool and the tests are built from | cmake ninja-build g++ g++-mingw-w64-x86-64-win32 g++-mingw-w64-x86-64-posix clang libclang-rt-dev lld llvm python3 xz-utils libcli11-dev nlohmann-json3-dev googletest
wine     | runs programs for Windows | wine wine64
consumer | builds programs against the archives, and reads the manifests | pkgconf unzip python3-pip python3-yaml
e2e      | Wine with TLS and NTLM, servers and proxies on loopback, and what the scenarios are written in | wine wine64 winbind python3 python3-jsonschema openssl tinyproxy-bin squid-openssl lighttpd lighttpd-mod-openssl
lab      | names and addresses in the network of lab.sh | dnsmasq-base iproute2
go       | builds the Go module and its tests | golang-go
rust     | builds the Rust crate and its tests, natively and for Windows | rustc cargo libstd-rust-dev-windows rustfmt rust-clippy gcc-mingw-w64-x86-64-win32
browser  | looks at the reports of kiv-resolve as a reader does | chromium chromium-driver python3-selenium fonts-dejavu-core
docs     | makes the API reference, and compares the documents with the sources | doxygen python3
lint     | checks layout and habits of the code | clang-format clang-tidy
node     | installs what the Node.js binding is tested with, and the linter of workflows | npm
python   | the compiler of a stand-in for the DLL, a check of its types, and the client of its adapter | gcc libc6-dev mypy python3-requests python3-typeshed
bench    | libraries to compare with, a counter of instructions, and a plotter | pkgconf libbenchmark-dev libcurl4-openssl-dev libglib2.0-dev valgrind gnuplot-nox
second   | a clean Debian 13 (second_ground.sh) | debootstrap git
'
for_tests=(build wine consumer e2e lab go rust node python browser docs lint)

fail() {
  echo "setup.sh: $1" >&2
  exit "$2"
}

as_root() {
  if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

# field NUMBER GROUP: its purpose (2) or its packages (3).
field() {
  awk -F ' *[|] *' -v number="$1" -v group="$2" '$1 == group { print $number }' <<<"$groups"
}

# packages_of GROUP: one in each line.
packages_of() {
  local packages
  packages=$(field 3 "$1")
  [ -n "$packages" ] || fail "there is no group $1" 64
  # Without a hosts file a machine does not even know localhost.
  [ "$1" != e2e ] || getent ahosts localhost >/dev/null || packages+=' libnss-myhostname'
  # Debian's npm does not go with another Node.js than Debian's, which brings one of its own.
  [ "$1" != node ] || ! command -v npm >/dev/null || packages=nodejs
  tr ' ' '\n' <<<"$packages"
}

# missing_of PACKAGE...: those that are not installed.
missing_of() {
  local installed
  installed=$(dpkg-query -W -f '${Package} ${db:Status-Status}\n' "$@" 2>/dev/null | sed -n 's/ installed$//p')
  printf '%s\n' "$@" | sort -u | grep -vxF -- "$installed" || true
}

# install_packages PACKAGE...: without starting the services that some of them bring. (A subshell, for its trap.)
install_packages() (
  policy=/usr/sbin/policy-rc.d
  if [ ! -e "$policy" ]; then
    trap 'as_root rm -f "$policy"' EXIT
    printf '#!/bin/sh\nexit 101\n' | as_root tee "$policy" >/dev/null
    as_root chmod +x "$policy"
  fi
  echo "Installing $*"
  as_root apt-get update -qq
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "$@" >/dev/null
)

list=
[ "${1:-}" != --list ] || { list=1 && shift; }
[ $# != 0 ] || set -- "${for_tests[@]}"
wanted=()
for group in "$@"; do
  packages=$(packages_of "$group")
  mapfile -t -O ${#wanted[@]} wanted <<<"$packages"
  [ -z "$list" ] || printf '%s: %s\n  %s\n' "$group" "$(field 2 "$group")" "${packages//$'\n'/ }"
done

missing=$(missing_of "${wanted[@]}")
if [ -n "$list" ]; then
  echo "Missing here: ${missing//$'\n'/ }"
elif [ -n "$missing" ]; then
  [ -z "${KIV_NO_INSTALL:-}" ] || fail "KIV_NO_INSTALL is set, and these packages are missing: ${missing//$'\n'/ }" 69
  mapfile -t missing <<<"$missing"
  install_packages "${missing[@]}"
fi
