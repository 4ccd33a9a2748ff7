#!/usr/bin/env bash
# Builds build/windows-x64/bin/kiv.dll, build/windows-x64/bin/kiv-resolve.exe and build/windows-x64/lib/libkiv.dll.a.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build
build windows-x64 --target kiv kiv-resolve
ls -l build/windows-x64/bin/kiv.dll build/windows-x64/bin/kiv-resolve.exe build/windows-x64/lib/libkiv.dll.a
