#!/usr/bin/env bash
# Fuzzes everything that parses: builds the fuzzers and runs each for the given seconds, as many at once as there
# are processors. What the fuzzer learned stays in build/fuzz/corpus/, what it found in build/fuzz/finds/, a
# folder for each target. The status is 1 when something was found.
#
#   scripts/fuzz.sh [SECONDS [TARGET…]]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}
shift $(($# > 0 ? 1 : 0))
if [[ ! $seconds =~ ^[1-9][0-9]*$ ]]; then
  echo "usage: scripts/fuzz.sh [SECONDS [TARGET…]]" >&2
  exit 2
fi

scripts/install-dependencies.sh checks
unset BRISKO_VIRTUAL_MAC BRISKO_PRETEND_MACOS BRISKO_PRETEND_NO_NATIVE
build=$PWD/build/fuzz
sources=$PWD/tests/fuzz
cmake --preset fuzz
cmake --build "$build" --parallel "$(nproc)" --target fuzzers

targets=("$@")
if [[ $# -eq 0 ]]; then
  for folder in "$sources"/seeds/*/; do targets+=("$(basename "$folder")"); done
fi

# Runs one target. All of what it says goes to its log.
fuzz() {
  local target=$1 options=(-max_total_time="$seconds" -timeout=20 -print_final_stats=1 -close_fd_mask=1)
  mkdir -p "$build/corpus/$target" "$build/finds/$target" "$build/logs"
  touch "$build/logs/$target.begun"
  [[ -f $sources/dictionaries/$target ]] && options+=(-dict="$sources/dictionaries/$target")
  "$build/brisko-fuzz-$target" "${options[@]}" -artifact_prefix="$build/finds/$target/" \
    "$build/corpus/$target" "$sources/seeds/$target" >"$build/logs/$target.log" 2>&1 || true
}

running=0
for target in "${targets[@]}"; do
  if [[ $running -ge $(nproc) ]]; then
    wait -n
    running=$((running - 1))
  fi
  fuzz "$target" &
  running=$((running + 1))
done
wait

found=0
printf '%-18s %12s %10s %9s %6s\n' target executions 'a second' coverage finds
for target in "${targets[@]}"; do
  log=$build/logs/$target.log
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
  coverage=$(sed -n 's/^#[0-9].* cov: \([0-9]*\) .*/\1/p' "$log" | tail -n 1)
  finds=$(find "$build/finds/$target" -type f -newer "$build/logs/$target.begun" | wc -l)
  # A fuzzer that did not come to its end says so by its lack of numbers.
  [[ -n $executions && -n $coverage ]] || finds=$((finds > 0 ? finds : 1))
  found=$((found + finds))
  printf '%-18s %12s %10s %9s %6s\n' "$target" "${executions:--}" "${rate:--}" "${coverage:--}" "$finds"
done

if [[ $found -gt 0 ]]; then
  echo "Something was found. The inputs are in $build/finds/, what became of them in $build/logs/."
  echo "Once more: $build/brisko-fuzz-TARGET INPUT"
  exit 1
fi
