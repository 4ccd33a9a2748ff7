#!/usr/bin/env bash
# Prints which share of src/'s and session/'s lines and branches the unit tests reach; fails below 98 % of the lines.
# Runs the tests first, unless they have run since they were built.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build coverage
build native-asan
built=build/native-asan
[ "$built/results/kiv-unit-tests.json" -nt "$built/bin/kiv-unit-tests" ] || ctest --preset native-asan -R '^kiv-unit-tests$'
# Branches that only an exception takes are the compiler's; the sweeps over failing allocations reach them. Only that build
# is searched: from the project's root, gcovr would follow Wine's drives through the whole machine.
gcovr --root . "$built" --filter 'src/' --filter 'session/' --object-directory "$built" --exclude-throw-branches \
  --exclude-unreachable-branches --branches --print-summary --fail-under-line 98 --txt "$built/branches.txt" \
  --html-details "$built/coverage.html"
cat "$built/branches.txt"
report 1 0
