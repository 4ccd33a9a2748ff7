#!/usr/bin/env bash
# Unpacks what scripts/windows_kit.sh packs and runs it in Wine by tests/windows/run.cmd, from another folder, as on a
# Windows machine; and shows that run.cmd tells what failed. Other tests run all of these programs: here most have a
# stand-in, and the others run a few of their cases.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build wine consumer
trap stop_wine EXIT
start_wine
# One Windows for all of it.
# A server that has just made the prefix ends by itself; only a new one can be told to stay.
with_wine wineserver -w || true
with_wine wineserver -p
scripts/windows_kit.sh >/dev/null

work='build/windows kit'
kit=$PWD/$work/kiv-windows-tests
rm -rf "$work"
mkdir -p "$work/tools"
ln -sfn "windows kit/kiv-windows-tests" build/windows-kit
unzip -q build/kiv-windows-tests.zip -d "$work"
stand_in=$work/tools/cl.exe
x86_64-w64-mingw32-gcc-win32 -static -s -o "$stand_in" tests/windows/stand_in.c
cp "$stand_in" "$work/tools/cmake.exe"
for program in "$kit"/abi/*.exe; do
  case $program in
    */abi_test.exe) ;;
    *) cp "$stand_in" "$program" ;;
  esac
done
cp "$stand_in" "$kit/bin/kiv-selfcheck.exe"

# run [NAME=VALUE...] -- ARGUMENT...: run.cmd, in a Windows with these variables.
run() {
  local variables=()
  while [ "$1" != -- ]; do
    variables+=("$1")
    shift
  done
  shift
  (cd / && with_wine "${variables[@]}" wine cmd /c "Z:${kit//\//\\}\\tests\\windows\\run.cmd" "$@" </dev/null | tr -d '\r')
}

# check TITLE CODE EXPECTED [NAME=VALUE...] -- ARGUMENT...: run.cmd ends with that exit code, and prints that.
check() {
  local title=$1 code=$2 expected=$3 said status=0
  shift 3
  said=$(run "$@") || status=$?
  if [ "$status" = "$code" ] && [ "$said" = "$expected" ]; then
    passed=$((passed + 1))
    echo "ok    $title"
  else
    failed=$((failed + 1))
    printf 'FAIL  %s: exit status %s\n%s\n' "$title" "$status" "$said"
  fi
}

# lines FORMAT NAME...: the line of each.
lines() {
  local format=$1
  shift
  printf "$format\n" "$@"
}

# lines_of_missing NAME...: those of programs in abi\ that do not exist.
lines_of_missing() {
  local name
  for name; do echo "MISSING  $name: there is no abi\\$name.exe"; done
}

usage='Usage: run.cmd unit, interface, throwing, tool, selfcheck or exceptions, and [FOLDER]; or run.cmd build PRESET'
throwing=({,session_}throwing_{gcc,visual_c,c})
by_visual_c=({,session_}throwing{,_c}_cl)
compiler=("VCINSTALLDIR=here" "WINEPATH=Z:$PWD/$work/tools")

check 'runs the unit tests' 0 'ok       kiv-unit-tests' 'GTEST_FILTER=Number*' -- unit
check "runs the tool's tests" 0 'ok       kiv-tool-tests' 'GTEST_FILTER=Manifest*' -- tool
check 'takes another folder' 0 'ok       kiv-tool-tests' 'GTEST_FILTER=Manifest*' -- tool "Z:$PWD/build/windows-kit"
check "runs the interface's tests" 0 "$(lines 'ok       %s' abi_test planted_libraries_test session_{abi,threads}_test \
  process_exit_test threads_test unloading_test_{parse,request,throw,version,session,script})" -- interface
check 'runs the programs that throw' 0 "$(lines 'ok       %s' "${throwing[@]}")" -- throwing
check 'runs the self-check' 0 'ok       kiv-selfcheck' -- selfcheck
check 'tells that a program failed' 1 "$(lines 'FAILED   %s: exit code 3' "${throwing[@]}")" STAND_IN_CODE=3 -- throwing
check 'tells that a program crashed' 1 'FAILED   kiv-selfcheck: exit code -1073741819' STAND_IN_CODE=-1073741819 -- selfcheck
check 'tells that there is no compiler' 1 'MISSING  Visual C++' -- exceptions
check 'tells what is not compiled' 1 "$(lines 'FAILED   %s: not compiled' "${by_visual_c[@]}";
  lines_of_missing "${by_visual_c[@]}")" "${compiler[@]}" STAND_IN_CODE=2 -- exceptions
for name in "${by_visual_c[@]}"; do cp "$stand_in" "$kit/abi/$name.exe"; done
check 'runs what was compiled' 0 "$(lines 'ok       %s' "${by_visual_c[@]}")" "${compiler[@]}" -- exceptions
check 'builds by a preset' 0 '' "${compiler[@]}" -- build windows-msvc
check 'tells that a build failed' 1 '' "${compiler[@]}" STAND_IN_CODE=1 -- build windows-msvc
check 'refuses an unknown kind' 64 "$usage" -- everything
check 'refuses a build without a preset' 64 "$usage" -- build
rm "$kit/abi/throwing_c.exe"
check 'tells that a program is missing' 1 "$(lines 'ok       %s' throwing_{gcc,visual_c};
  lines_of_missing throwing_c
  lines 'ok       %s' session_throwing_{gcc,visual_c,c})" -- throwing

# What the workflow uploads: of a test its counts and what it printed.
for file in kiv-{unit,tool}-tests.{json,txt} abi_test.{json,txt}; do
  if [ -s "$kit/results/$file" ]; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    echo "FAIL  there is no results/$file"
  fi
done
report "$passed" "$failed"
