#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests. Takes no argument, needs no network beyond the packages,
# and leaves nothing outside build/. KIV_LEAVE_OUT may name steps that are not to run, a line for each.
. "$(dirname "$0")/lib.sh"
. scripts/e2e-lib.sh
install_packages "${BUILD_PACKAGES[@]}"
install_e2e_packages
install_packages "${BROWSER_PACKAGES[@]}"
trap stop_wine EXIT

passed=0
failed=0

# step TITLE COMMAND...: runs it and adds the tests that it counts to the sum. A step that fails without saying how many
# tests did counts as one.
step() {
  local title=$1 log start=$SECONDS status=0 more
  shift
  if grep -qxF -- "$title" <<<"${KIV_LEAVE_OUT:-}"; then
    printf '%-58s         left out\n' "$title"
    return
  fi
  log=build/step.log
  mkdir -p build
  "$@" >"$log" 2>&1 || status=$?
  # GoogleTest's closing lines, and the plain one of everything else.
  more=$(sed -nE 's/\r$//; s/^\[  PASSED  \] ([0-9]+) tests?\.$/\1/p; s/^([0-9]+) passed, [0-9]+ failed$/\1/p' "$log" | tail -n 1)
  passed=$((passed + ${more:-0}))
  more=$(sed -nE 's/\r$//; s/^ ?([0-9]+) FAILED TESTS?$/\1/p; s/^[0-9]+ passed, ([0-9]+) failed$/\1/p' "$log" | tail -n 1)
  [ "$status" = 0 ] || { cat "$log"; [ "${more:-0}" != 0 ] || more=1; }
  failed=$((failed + ${more:-0}))
  printf '%-58s %4d s  %s\n' "$title" $((SECONDS - start)) "$([ "$status" = 0 ] && echo ok || echo FAILED)"
}

missing_libraries() {
  (cd build/windows-x64/abi && with_wine env 'WINEDLLOVERRIDES=mscoree,mshtml,credui,crypt32=' wine missing_libraries_test.exe)
}

planted_libraries() {
  (cd build/windows-x64/abi/planted &&
    with_wine env 'WINEDLLOVERRIDES=mscoree,mshtml=;credui,crypt32,cryptui=n,b' wine planted_libraries_test.exe)
}

step 'Build for Windows' build windows-x64
step 'Unit tests in Wine' in_wine build/windows-x64/bin/kiv-unit-tests.exe --gtest_brief=1
step 'Interface of kiv.dll, from C' with_prompt in_wine build/windows-x64/abi/abi_test.exe
step 'Callbacks that throw, from C++ of GCC' in_wine build/windows-x64/abi/throwing_gcc.exe
step 'Callbacks that throw, from C++ as Visual C++ has it' in_wine build/windows-x64/abi/throwing_visual_c.exe
step 'Callbacks that raise C++ exceptions, from C' in_wine build/windows-x64/abi/throwing_c.exe
step 'Unloading after a request' in_wine build/windows-x64/abi/unloading_test.exe request
step 'Unloading after an exception' in_wine build/windows-x64/abi/unloading_test.exe throw
step 'Threads of a resolution' in_wine build/windows-x64/abi/threads_test.exe
step 'Libraries that the system lacks' missing_libraries
step 'Libraries that lie beside the program' planted_libraries
step 'Unit tests of kiv-resolve in Wine' in_wine build/windows-x64/bin/kiv-tool-tests.exe --gtest_brief=1
step 'Package, and programs that have nothing but it' scripts/test_package.sh
step 'Examples with real servers' e2e examples.py --prompt build/windows-x64/abi/system
step 'Programs that README shows' e2e readme.py --library build/windows-x64/lib/libkiv.dll.a
step 'NTLM of the servers of the scenarios' "$PYTHON" tests/e2e/ntlm_test.py
step 'Scenarios with real servers' e2e run.py
step 'kiv-resolve on a console' e2e console_test.py
step 'Reports in a browser' e2e report_test.py
step 'Load on eight threads' e2e load.py
step 'Native build, address and undefined behaviour sanitizers' build native-asan
step 'Unit tests under these sanitizers' build/native-asan/bin/kiv-unit-tests --gtest_brief=1
step 'Native build, thread sanitizer' build native-tsan
step 'Unit tests under the thread sanitizer' build/native-tsan/bin/kiv-unit-tests --gtest_brief=1
step 'Fuzz targets, 30 s each' scripts/fuzz.sh 30
step 'Coverage' scripts/coverage.sh
step 'Reference and documents' scripts/docs.sh
step 'Layout and habits of the code' scripts/lint.sh

echo "$passed passed, $failed failed"
[ "$failed" = 0 ]
