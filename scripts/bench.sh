#!/usr/bin/env bash
# Prints what the library costs next to others, as medians of repetitions run in turns; with an argument, how the time of
# the families of hostile texts whose names hold it grows with their size: ./scripts/bench.sh [PART OF A FAMILY'S NAME]
. "$(dirname "$0")/lib.sh"
install_packages "${BUILD_PACKAGES[@]}" python3 pkgconf libbenchmark-dev libcurl4-openssl-dev libglib2.0-dev
build bench
[ $# = 0 ] || exec build/bench/bin/bench_hostile_input "$@"
build/bench/bin/bench_library --benchmark_repetitions=5 --benchmark_min_time=0.02 --benchmark_enable_random_interleaving=true \
  --benchmark_report_aggregates_only=true --benchmark_format=json 2>build/bench/log >build/bench/figures.json
python3 bench/table.py <build/bench/figures.json
