#!/usr/bin/env bash
# Lays out what proves kiv on a Windows machine in build/kiv-windows-tests, and packs it as build/kiv-windows-tests.zip:
# the DLLs, kiv-resolve, the tests as built, and what tests/windows/run.cmd runs and builds there.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build package
build windows-x64
built=build/windows-x64
kit=build/kiv-windows-tests
rm -rf "$kit" "$kit.zip"
mkdir -p "$kit"/{bin,abi/planted,lib,include,tests/abi}

programs=("$built"/bin/{kiv,kiv-session}.dll "$built"/bin/kiv-{resolve,unit-tests,tool-tests}.exe)
[ ! -e "$built/bin/kiv-selfcheck.exe" ] || programs+=("$built/bin/kiv-selfcheck.exe")
cp -t "$kit/bin" "${programs[@]}"
cp -t "$kit/abi" "$built"/abi/*.{dll,exe}
rm "$kit/abi/missing_libraries_test.exe"
cp -t "$kit/abi/planted" "$built"/abi/planted/*
cp -t "$kit/lib" "$built"/lib/{kiv,kiv-session}.lib "$built/tests/abi/throwing/observer.lib"
cp -r -t "$kit/include" include/kiv
cp -r -t "$kit/tests" tests/windows
cp -r -t "$kit/tests/abi" tests/abi/{observer.h,throwing}
cp -t "$kit" LICENSE NOTICES.txt

(cd build && zip -q -r -X kiv-windows-tests.zip kiv-windows-tests)
ls -l "$kit.zip"
