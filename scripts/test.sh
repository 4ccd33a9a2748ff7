#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests, or those that options of ctest choose:
#
#   ./scripts/test.sh [-L LABEL | -LE LABEL | -R NAME]...
#
# Needs no network beyond the packages, and leaves nothing outside build/. The last line says how many checks passed and
# failed; the exit status is 0 only if none failed.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh
exec /usr/bin/python3 -B scripts/run_tests.py "$@"
