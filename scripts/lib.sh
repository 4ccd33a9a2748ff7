# Shared by the scripts: stands in the project's root.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

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

# with_wine COMMAND...: runs it with that Windows, where KIV_RESULTS is a path on its drive Z.
with_wine() {
  env WINEPREFIX="$PWD_OF_PROJECT/build/wine" WINEDEBUG=-all WINEDLLOVERRIDES="$DLL_OVERRIDES" \
    ${KIV_RESULTS:+"KIV_RESULTS=Z:$KIV_RESULTS"} "$@"
}
DLL_OVERRIDES='mscoree,mshtml=;credui=n,b'
PWD_OF_PROJECT=$PWD

PROMPT=build/wine/drive_c/windows/system32/credui.dll

# Makes that Windows, if nothing has run in it yet, and gives it back its own prompt if a run with another was killed.
start_wine() {
  [ -d build/wine ] || with_wine wineboot --init >/dev/null 2>&1
  [ ! -e "$PROMPT.own" ] || mv -f "$PROMPT.own" "$PROMPT"
}

# with_prompt COMMAND...: runs it while the stand-in for the credential prompt is in the folder of that Windows where the
# DLL looks for the system's.
with_prompt() {
  local status=0
  mv "$PROMPT" "$PROMPT.own"
  cp build/windows-x64/abi/system/credui.dll "$PROMPT"
  "$@" || status=$?
  mv -f "$PROMPT.own" "$PROMPT"
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

# What is built for Windows and released.
RELEASED=(kiv kiv-session kiv-resolve kiv-selfcheck)

# release_files BUILD OUT: makes in the new folder OUT what a release consists of, with what this build has in bin/ and lib/
# and with the addon of the binding for Node.js.
release_files() {
  local built=$1 out=$2 version addon=build/bindings/node/kiv_session.node
  version=$(project_version)
  rm -rf "$out" "$out-installed"
  mkdir -p "$out"
  cmake --install "$built" --prefix "$out-installed" >"$out.log" || { cat "$out.log" >&2; return 1; }
  /usr/bin/python3 bindings/packages.py --version "$version" --dll "$out-installed/bin/kiv-session.dll" --addon "$addon" \
    --out "$out" >>"$out.log" || return
  /usr/bin/python3 packaging/release.py --version "$version" --installed "$out-installed" --addon "$addon" --maps "$built/lib" \
    --out "$out"
}

# check TITLE COMMAND...: counts it in passed, or in failed with what it said.
passed=0
failed=0
check() {
  local title=$1 log=build/check.log
  shift
  if "$@" >"$log" 2>&1; then
    passed=$((passed + 1))
    echo "ok    $title"
  else
    failed=$((failed + 1))
    echo "FAIL  $title"
    cat "$log"
  fi
}

# skip REASON: ends a test that this machine cannot run.
skip() {
  echo "${0##*/}: skipped: $1" >&2
  [ -z "${KIV_RESULTS:-}" ] || echo "{\"passed\": 0, \"failed\": 0, \"skipped\": \"$1\"}" >"$KIV_RESULTS"
  exit 77
}

# report PASSED FAILED: prints how many checks passed and failed, and writes it to the file that KIV_RESULTS names, for
# run_tests.py. Fails if a check did, or if there were none.
report() {
  echo "$1 passed, $2 failed"
  [ -z "${KIV_RESULTS:-}" ] || echo "{\"passed\": $1, \"failed\": $2}" >"$KIV_RESULTS"
  [ "$1" != 0 ] && [ "$2" = 0 ]
}

# e2e PROGRAM [ARGUMENT...]: runs a program of tests/e2e/ on what was built. Only Debian's own Python sees Debian's
# packages.
e2e() {
  local program=$1
  shift
  /usr/bin/python3 "tests/e2e/$program" --bin build/windows-x64/bin --bridge build/windows-x64/e2e --work build/e2e "$@"
}
