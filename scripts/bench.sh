#!/usr/bin/env bash
# Prints how the time that hostile texts take grows with their size: ./scripts/bench.sh [PART OF A FAMILY'S NAME]
. "$(dirname "$0")/lib.sh"
install_packages "${BUILD_PACKAGES[@]}"
build bench --target bench_hostile_input
exec build/bench/bin/bench_hostile_input "$@"
