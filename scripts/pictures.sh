#!/usr/bin/env bash
# Makes docs/images/terminal.svg and docs/images/report.png again, from a run of kiv-resolve.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build e2e browser
./scripts/build.sh
cmake --build --preset windows-x64 --target winhttp_bridge
e2e console_test.py
e2e report_test.py
mkdir -p docs/images
cp build/e2e/terminal.svg build/e2e/report/report.png docs/images/
