# Shared by the scripts: stands in the project's root, and installs Debian packages that are missing.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

as_root() {
  if [ "$(id -u)" = 0 ]; then "$@"; else sudo "$@"; fi
}

# install_packages NAME...: installs those that are not there yet.
install_packages() {
  local missing=() name
  for name in "$@"; do
    dpkg-query -W -f '${db:Status-Status}\n' "$name" 2>/dev/null | grep -qx installed || missing+=("$name")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  echo "Installing ${missing[*]}"
  as_root apt-get update -qq
  as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# The toolchain for Windows, and what the tools and tests are built from.
BUILD_PACKAGES=(cmake ninja-build g++ g++-mingw-w64-x86-64-posix libcli11-dev googletest)
