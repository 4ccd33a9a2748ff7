#!/usr/bin/env bash
# Installs what is missing, builds, and shows kiv-resolve at work with real servers on loopback.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build e2e
./scripts/build.sh
cmake --build --preset windows-x64 --target winhttp_bridge
e2e demo.py
