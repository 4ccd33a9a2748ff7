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

# The toolchain for Windows (one compiler for the DLLs, another for all else), and what the tools and tests are built from.
BUILD_PACKAGES=(cmake ninja-build g++ g++-mingw-w64-x86-64-win32 g++-mingw-w64-x86-64-posix clang lld llvm python3
  libcli11-dev nlohmann-json3-dev googletest)

# build PRESET [ARGUMENT...]: configures and builds; says something only when it fails.
build() {
  local preset=$1 log=build/$1.log
  shift
  mkdir -p build
  if ! { cmake --preset "$preset" && cmake --build --preset "$preset" "$@"; } >"$log" 2>&1; then
    cat "$log" >&2
    return 1
  fi
}

# in_wine PROGRAM [ARGUMENT...]: runs it in a Windows of this project's own, from its folder.
in_wine() {
  local folder program=$1
  folder=$(dirname "$program")
  shift
  (cd "$folder" && with_wine wine "$(basename "$program")" "$@")
}

with_wine() {
  env WINEPREFIX="$PWD_OF_PROJECT/build/wine" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=;credui=n,b" "$@"
}
PWD_OF_PROJECT=$PWD

# with_prompt COMMAND...: runs it while the stand-in for the credential prompt is in the folder of that Windows where the
# DLL looks for the system's.
with_prompt() {
  local place=build/wine/drive_c/windows/system32/credui.dll status=0
  [ -d build/wine ] || with_wine wineboot --init >/dev/null 2>&1
  # It is there already if a run was killed.
  [ -e "$place.own" ] || mv "$place" "$place.own"
  cp build/windows-x64/abi/system/credui.dll "$place"
  "$@" || status=$?
  mv -f "$place.own" "$place"
  return "$status"
}

# Ends the Windows that in_wine started, whose prefix nobody else uses, and removes its sockets below /tmp, in a folder
# whose name it keeps in the prefix.
stop_wine() {
  [ -d build/wine ] || return 0
  with_wine wineserver -k || true
  local sockets=
  [ ! -e build/wine/wineserver ] || sockets=$(cat build/wine/wineserver)
  case $sockets in wine-?*) rm -rf "/tmp/$sockets" ;; esac
}

# The one version number, from where the build takes it.
project_version() {
  sed -nE 's/^project\(kiv VERSION ([0-9.]+) .*/\1/p' CMakeLists.txt
}
