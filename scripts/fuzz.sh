#!/usr/bin/env bash
# Runs each fuzz target from its corpus, two at a time: ./scripts/fuzz.sh [SECONDS of each, 30 if not given] [TARGET...]
# Inputs that lead somewhere new are kept in build/fuzz/; a finding is kept there too, printed, and fails the run.
. "$(dirname "$0")/lib.sh"
scripts/setup.sh build
seconds=${1:-30}
shift || true
build fuzz
targets=("$@")
[ ${#targets[@]} -gt 0 ] || mapfile -t targets < <(cd tests/fuzz/corpus && ls)

fuzz_one() {
  local target=$1 seconds=$2 folder=$PWD/build/fuzz/$1
  mkdir -p "$folder/corpus" "$folder/findings"
  if ! build/fuzz/bin/fuzz_"$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$folder/findings/" "$folder/corpus" "tests/fuzz/corpus/$target" >"$folder/log" 2>&1; then
    tail -n 40 "$folder/log"
    echo "$target: FOUND something, kept in build/fuzz/$target/findings"
    return 1
  fi
  echo "$target: $(sed -n 's/^stat::number_of_executed_units: *//p' "$folder/log") texts," \
    "$(sed -nE 's/.* cov: ([0-9]+) .*/\1/p' "$folder/log" | tail -n 1) places reached"
}
export -f fuzz_one
printf '%s\n' "${targets[@]}" | xargs -P 2 -I{} bash -c 'fuzz_one "$@"' fuzz {} "$seconds" || report 0 1
report "${#targets[@]}" 0
