#!/usr/bin/env bash
# Prints which share of src/'s and session/'s lines and branches the unit tests reach; fails below 98 % of the lines.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build coverage
build native-coverage
find build/native-coverage -name '*.gcda' -delete
build/native-coverage/bin/kiv-unit-tests --gtest_brief=1 >build/native-coverage/tests.log 2>&1 ||
  { cat build/native-coverage/tests.log; exit 1; }
# Branches that only an exception takes are the compiler's; the sweeps over failing allocations reach them. Only that build
# is searched: from the project's root, gcovr would follow Wine's drives through the whole machine.
gcovr --root . build/native-coverage --filter 'src/' --filter 'session/' --object-directory build/native-coverage --exclude-throw-branches \
  --exclude-unreachable-branches --branches --print-summary --fail-under-line 98 --txt build/native-coverage/branches.txt \
  --html-details build/native-coverage/coverage.html
cat build/native-coverage/branches.txt
report 1 0
