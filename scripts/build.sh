#!/usr/bin/env bash
# Builds kiv.dll, kiv-session.dll, kiv-resolve.exe and kiv-selfcheck.exe in build/windows-x64/bin, and the import
# libraries in build/windows-x64/lib.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build
build windows-x64 --target kiv kiv-session kiv-resolve kiv-selfcheck
ls -l build/windows-x64/bin/{kiv,kiv-session}.dll build/windows-x64/bin/kiv-resolve.exe \
  build/windows-x64/lib/lib{kiv,kiv-session}.dll.a
