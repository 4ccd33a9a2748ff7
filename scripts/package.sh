#!/usr/bin/env bash
# Makes build/release: all files that a release consists of, from the binaries for Windows that it builds.
# docs/releasing.md tells what each is for. The same files give the same archives.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build node
build windows-x64 --target "${RELEASED[@]}"
/usr/bin/python3 bindings/node/build.py --work build/bindings/node
release_files build/windows-x64 build/release
(cd build/release && ls -l)
