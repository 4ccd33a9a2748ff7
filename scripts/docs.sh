#!/usr/bin/env bash
# Makes the reference of the interface in build/docs/html; fails for anything that is not documented, and for a line of
# the log that docs/log.md does not have.
. "$(dirname "$0")/lib.sh"
install_packages doxygen python3
version=$(sed -nE 's/^project\(kiv VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
mkdir -p build/docs
{ cat docs/Doxyfile; echo "PROJECT_NUMBER = $version"; echo "OUTPUT_DIRECTORY = build/docs"; } | doxygen -
python3 tests/docs/check_docs.py
