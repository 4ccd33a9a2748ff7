#!/usr/bin/env bash
# Builds build/kiv-VERSION-windows-x64.zip: headers, kiv.dll and kiv-session.dll with their import libraries, kiv-resolve,
# kiv-selfcheck, and documentation. And beside it the packages of the bindings, which bindings/packages.py lists.
# The same files give the same archives.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build package node
build windows-x64 --target kiv kiv-session kiv-resolve kiv-selfcheck
version=$(project_version)
name=kiv-$version-windows-x64
rm -rf build/package "build/$name.zip"
cmake --install build/windows-x64 --prefix "build/package/$name" >build/package.log || { cat build/package.log >&2; exit 1; }
# One date for all, and none of what else the file system knows about them.
find "build/package/$name" -type f -exec touch -d 1980-01-02T00:00:00Z {} +
(cd build/package && find "$name" -type f | LC_ALL=C sort | TZ=UTC zip -q -X "../$name.zip" -@)
ls -l "build/$name.zip"

/usr/bin/python3 bindings/node/build.py --work build/bindings/node
/usr/bin/python3 bindings/packages.py --version "$version" --dll build/windows-x64/bin/kiv-session.dll \
  --addon build/bindings/node/kiv_session.node --out build
