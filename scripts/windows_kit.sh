#!/usr/bin/env bash
# Lays out what proves kiv on a Windows machine in build/kiv-windows-tests, and packs it as build/kiv-windows-tests.zip:
# the DLLs, kiv-resolve, kiv-selfcheck, the tests as built, and what tests/windows/run.cmd runs and builds there.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build
build windows-x64
built=build/windows-x64
kit=build/kiv-windows-tests
rm -rf "$kit" "$kit.zip"
mkdir -p "$kit"/{bin,abi/planted,lib,include,tests/abi}

cp -t "$kit/bin" "$built"/bin/{kiv,kiv-session}.dll "$built"/bin/kiv-{resolve,selfcheck,unit-tests,tool-tests}.exe
cp -t "$kit/abi" "$built"/abi/*.{dll,exe}
rm "$kit/abi/missing_libraries_test.exe"
cp -t "$kit/abi/planted" "$built"/abi/planted/*
cp -t "$kit/lib" "$built"/lib/{kiv,kiv-session}.lib "$built/tests/abi/throwing/observer.lib"
cp -r -t "$kit/include" include/kiv
cp -r -t "$kit/tests" tests/windows
cp -r -t "$kit/tests/abi" tests/abi/{observer.h,throwing}
cp -t "$kit" LICENSE NOTICES.txt

(cd build && python3 -m zipfile -c kiv-windows-tests.zip kiv-windows-tests)
ls -l "$kit.zip"
