#!/usr/bin/env bash
# Fetches the sources of BearSSL, with which kiv-selfcheck's servers speak TLS, as Debian has them: to build/bearssl/.
#
#   ./scripts/bearssl.sh
#
# Asks where the machine's own apt asks, for sources; apt's state for that is kept in the same folder, and nothing outside
# it is written. Needs no root. Exit status 1: the sources cannot be had, and the self-check is built without TLS.
. "$(dirname "$0")/lib.sh"

folder=$PWD/build/bearssl
[ ! -e "$folder/sources/inc/bearssl.h" ] || exit 0
apt=$folder/apt
rm -rf "$folder"
mkdir -p "$apt/sources.list.d" "$apt/lists/partial" "$apt/archives/partial"

# The machine's sources in both forms that apt reads, asked for source packages in place of binary ones.
for list in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
  [ ! -e "$list" ] || sed -nE 's/^deb(-src)?[[:space:]]/deb-src /p' "$list" >>"$apt/sources.list"
done
for list in /etc/apt/sources.list.d/*.sources; do
  [ ! -e "$list" ] || sed -E 's/^Types:.*/Types: deb-src/' "$list" >"$apt/sources.list.d/${list##*/}"
done

ask() {
  apt-get -qq -o Dir::Etc::SourceList="$apt/sources.list" -o Dir::Etc::SourceParts="$apt/sources.list.d" \
    -o Dir::State::Lists="$apt/lists" -o Dir::Cache="$apt" -o Dir::Cache::Archives="$apt/archives" "$@"
}

cd "$folder"
# What one of several archives does not have, another may.
ask update >"$folder/log" 2>&1 || true
if ! ask source --download-only bearssl >>"$folder/log" 2>&1; then
  echo "bearssl.sh: no sources of BearSSL (see build/bearssl/log)" >&2
  exit 1
fi
mkdir unpacked
tar -x --strip-components 1 -C unpacked -f bearssl_*.orig.tar.*
mv unpacked sources
rm -rf "$apt"
