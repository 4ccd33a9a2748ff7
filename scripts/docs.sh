#!/usr/bin/env bash
# Makes the API reference in build/docs/html, and compares the documents with the sources. Fails for a declaration that
# is not documented, a log line that docs/reference/log.md lacks, and a link, path or test that does not exist.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh docs
mkdir -p build/docs
{ cat docs/Doxyfile; echo "PROJECT_NUMBER = $(project_version)"; echo "OUTPUT_DIRECTORY = build/docs"; } | doxygen -
python3 tests/docs/check_docs.py
