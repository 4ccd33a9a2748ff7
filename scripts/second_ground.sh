#!/usr/bin/env bash
# Builds and tests the last commit in Debian 13, whose compilers, linker, Wine and servers are newer than those of Debian
# 12: a clean system in a folder below build/, which is removed at the end, whether that is success, failure or a signal.
#
#   sudo ./scripts/second_ground.sh [COMMAND...]
#
# Runs scripts/test.sh there, without the tests that look at the layout or depend on clang's version, or COMMAND.
# Needs root (chroot), the network and 10 GB; is not part of test.sh. The bare system and the packages that were fetched
# are kept in build/second-ground/ for the next time. Exit status: the command's.
. "$(dirname "$0")/lib.sh"

release=trixie

fail() {
  echo "second_ground.sh: $1" >&2
  exit 1
}

[ "$(id -u)" = 0 ] || fail 'needs root, for chroot'
scripts/setup.sh second

kept=$PWD/build/second-ground
base=$kept/$release.tar
mkdir -p "$kept/archives/partial"
root=$(mktemp -d "$kept/root.XXXXXX")
runner=

# What is mounted below the folder is so only for the processes that run there, and they are gone before it is removed.
clean_up() {
  trap '' INT TERM HUP
  if [ -n "$runner" ]; then
    kill -KILL "$runner" 2>/dev/null || true
    wait "$runner" 2>/dev/null || true
  fi
  rm -f "$base.part"
  # Those that were just killed may still have been writing.
  local attempt
  for attempt in {1..20}; do
    rm -rf --one-file-system "$root" 2>/dev/null && return
    sleep 0.5
  done
  echo "second_ground.sh: cannot remove $root" >&2
}
trap clean_up EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP

# in_background COMMAND...: runs it so that a signal to this script is obeyed at once.
in_background() {
  local status=0
  "$@" &
  runner=$!
  wait "$runner" || status=$?
  runner=
  return "$status"
}

make_base() {
  echo "Fetching Debian's $release"
  local log=$kept/debootstrap.log
  in_background debootstrap --variant=minbase --include=ca-certificates "$release" "$root" >"$log" 2>&1 || {
    cat "$log" >&2
    fail 'debootstrap failed'
  }
  tar -C "$root" -cf "$base.part" .
  mv "$base.part" "$base"
}

if [ -f "$base" ]; then tar -C "$root" -xf "$base"; else make_base; fi
# Not everything that runs there is root.
chmod 755 "$root"

# How this machine reaches the network.
cp /etc/resolv.conf "$root/etc/resolv.conf"
grep -rlsiE 'proxy|verify-(peer|host)' /etc/apt/apt.conf /etc/apt/apt.conf.d |
  xargs -r cp -t "$root/etc/apt/apt.conf.d" || true
network=()
for name in http_proxy https_proxy no_proxy; do
  [ -z "${!name:-}" ] || network+=("$name=${!name}")
done

git clone -q "$PWD" "$root/root/kiv"
[ $# -gt 0 ] || set -- ./scripts/test.sh -LE 'fuzz|coverage|docs|lint'

export SECOND_ROOT=$root SECOND_ARCHIVES=$kept/archives
# The processes see only each other, and their mounts, shared memory included, end with them.
in_background unshare --mount --pid --fork --kill-child bash -euc '
  mount -t proc proc "$SECOND_ROOT/proc"
  mount --rbind /dev "$SECOND_ROOT/dev"
  mount -t tmpfs tmpfs "$SECOND_ROOT/dev/shm"
  mount -t tmpfs tmpfs "$SECOND_ROOT/tmp"
  mount --bind "$SECOND_ARCHIVES" "$SECOND_ROOT/var/cache/apt/archives"
  exec chroot "$SECOND_ROOT" /usr/bin/env -i "$@"' second-ground \
  PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 TERM="${TERM:-dumb}" \
  "${network[@]}" bash -c 'cd /root/kiv && exec "$@"' second-ground "$@"
