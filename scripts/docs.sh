#!/usr/bin/env bash
# Makes the reference of the interface in build/docs/html; fails for anything that is not documented, and for a line of
# the log that docs/log.md does not have.
. "$(dirname "$0")/lib.sh"
install_packages doxygen python3
mkdir -p build/docs
{ cat docs/Doxyfile; echo "PROJECT_NUMBER = $(project_version)"; echo "OUTPUT_DIRECTORY = build/docs"; } | doxygen -
python3 tests/docs/check_docs.py
