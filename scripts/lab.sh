#!/usr/bin/env bash
# Installs what is missing, builds, and shows kiv-resolve in a company's network: automatic detection, the PAC script, a
# proxy that inspects TLS and wants NTLM, and a site behind it. All of it runs in network, mount and host name
# namespaces of its own, and ends with this script.
#
#   ./scripts/lab.sh [--shell]
#
# --shell opens a shell there in place of the tour. Needs root, or sudo that asks no password (sudo -v before), and leave
# to make namespaces, which a container has with the capability SYS_ADMIN; exits with 77 without them. Exit status: 0 if
# all came out as announced.
. "$(dirname "$0")/lib.sh"

as_root=()
[ "$(id -u)" = 0 ] || as_root=(sudo -n)
"${as_root[@]}" true 2>/dev/null || skip 'needs root, or sudo that asks no password'
apart=("${as_root[@]}" unshare --net --mount --uts)
# In a chroot, whose root is no mount point. The lab unmounts what it has mounted.
"${apart[@]}" true 2>/dev/null || apart+=(--propagation unchanged)
"${apart[@]}" true 2>/dev/null || skip 'no namespaces can be made here (the capability SYS_ADMIN is missing)'
scripts/setup.sh build e2e lab
./scripts/build.sh
cmake --build --preset windows-x64 --target winhttp_bridge
exec "${apart[@]}" env KIV_RESULTS="${KIV_RESULTS:-}" /usr/bin/python3 -B tests/e2e/lab.py \
  --bin build/windows-x64/bin --bridge build/windows-x64/e2e --work build/lab "$@"
