#!/usr/bin/env bash
# Measures what the library costs next to others, and how its work grows, into build/bench/figures: tables.md, which it
# also prints, and scale.svg.
#
#   ./scripts/bench.sh [--write-docs | PART OF A FAMILY'S NAME]
#
# --write-docs also puts both into docs/. A part of a name: how the time of the families of hostile texts whose names hold
# it grows with their size, instead.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build wine bench
figures=build/bench/figures
write_docs=
[ "${1:-}" != --write-docs ] || { write_docs=1 && shift; }
mkdir -p "$figures"
if [ $# != 0 ]; then
  build bench --target bench_hostile_input
  exec build/bench/bin/bench_hostile_input "$@"
fi
build bench --target bench_library bench_scale
build windows-x64 --target kiv kiv-session
x86_64-w64-mingw32-gcc -O2 -o build/windows-x64/bin/load_library.exe bench/load_library.c
x86_64-w64-mingw32-gcc-posix -O2 -std=c11 -Iinclude -static -o build/windows-x64/bin/session_bench.exe \
  bench/session_bench.c build/windows-x64/lib/lib{kiv,kiv-session}.dll.a -lws2_32
trap stop_wine EXIT

rm -f "$figures"/library-*.json "$figures"/growth*
for round in {1..25}; do
  build/bench/bin/bench_library --benchmark_min_time=0.02 --benchmark_format=json 2>build/bench/log >"$figures/library-$round.json"
done
build/bench/bin/bench_scale >"$figures/scale.txt"
# Without ERMS, because callgrind counts a "rep movsb", with which the C library copies blocks of some sizes, once per byte.
GLIBC_TUNABLES=glibc.cpu.hwcaps=-ERMS valgrind --tool=callgrind --instr-atstart=no --callgrind-out-file="$figures/growth" \
  build/bench/bin/bench_scale >build/bench/log 2>&1
(cd build/windows-x64/bin && with_wine python3 "$PWD_OF_PROJECT/bench/load_time.py" load_library.exe kiv.dll winhttp.dll) \
  >"$figures/load.json"
# A user with all settings off: without any, each discovery would look for a script on the network.
with_wine wine reg add 'HKCU\Software\Microsoft\Windows\CurrentVersion\Internet Settings\Connections' \
  /v DefaultConnectionSettings /t REG_BINARY /d "460000000000000001$(printf '0%.0s' {1..94})" /f >/dev/null 2>&1
in_wine build/windows-x64/bin/session_bench.exe | tr -d '\r' >"$figures/session.txt"
{ python3 bench/table.py "$figures" && echo; } | tee "$figures/tables.md"
gnuplot -e "figures = '$figures/scale.txt'" bench/scale.gnuplot >"$figures/scale.svg"

if [ -n "$write_docs" ]; then
  page=docs/internals/performance.md
  sed -i -e '/^What the script printed:/,/^!\[/ { //!d }' -e "/^What the script printed:/r $figures/tables.md" "$page"
  cp "$figures/scale.svg" docs/images/scale.svg
fi
