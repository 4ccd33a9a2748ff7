#!/usr/bin/env bash
# Prints which share of src/'s and session/'s lines and branches the unit tests reach; fails below 98 % of the lines.
# Runs the tests first, unless they have run since they were built. build/native-asan/coverage/ shows each line.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build
build native-asan
built=build/native-asan
[ "$built/results/kiv-unit-tests.json" -nt "$built/bin/kiv-unit-tests" ] || ctest --preset native-asan -R '^kiv-unit-tests$'
llvm-profdata merge -sparse "$built"/reached/*.profraw -o "$built/reached.profdata"

# reached COMMAND [OPTION...]: what llvm-cov says of it.
reached() {
  llvm-cov "$@" -instr-profile="$built/reached.profdata" "$built/bin/kiv-unit-tests" src session
}

enough_lines() {
  reached export -summary-only | python3 -c 'import json, sys
percent = json.load(sys.stdin)["data"][0]["totals"]["lines"]["percent"]
sys.exit("coverage.sh: less than 98 % of the lines" if percent < 98 else 0)'
}

reached show -format=html -output-dir="$built/coverage"
reached report -show-region-summary=0
enough_lines || report 0 1
report 1 0
