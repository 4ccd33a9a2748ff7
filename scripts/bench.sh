#!/usr/bin/env bash
# Prints what the library costs next to others, as medians of alternating rounds, and draws
# docs/images/scale.svg; with an argument, how the time of the families of hostile texts whose names hold it grows with
# their size: ./scripts/bench.sh [PART OF A FAMILY'S NAME]
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build wine bench
figures=build/bench/figures
mkdir -p "$figures"
if [ $# != 0 ]; then
  build bench --target bench_hostile_input
  exec build/bench/bin/bench_hostile_input "$@"
fi
build bench --target bench_library bench_scale
build windows-x64 --target kiv
x86_64-w64-mingw32-gcc -O2 -o build/windows-x64/bin/load_library.exe bench/load_library.c
trap stop_wine EXIT

rm -f "$figures"/library-*.json
for round in {1..25}; do
  build/bench/bin/bench_library --benchmark_min_time=0.02 --benchmark_format=json 2>build/bench/log >"$figures/library-$round.json"
done
build/bench/bin/bench_scale >"$figures/scale.txt"
gnuplot -e "figures = '$figures/scale.txt'" bench/scale.gnuplot >docs/images/scale.svg
(cd build/windows-x64/bin && with_wine python3 "$PWD_OF_PROJECT/bench/load_time.py" load_library.exe kiv.dll winhttp.dll) \
  >"$figures/load.json"
python3 bench/table.py "$figures"
