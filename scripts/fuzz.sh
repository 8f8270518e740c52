#!/usr/bin/env bash
# Builds the fuzzers and runs each for the given number of seconds, one per processor at a time. Each target has a
# folder in build/fuzz/corpus/ for its corpus and one in build/fuzz/finds/ for failing inputs. The exit status is 1 if
# there are failing inputs.
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

# Runs one target. All of its output goes to its log.
fuzz() {
  local target=$1 options=(-max_total_time="$seconds" -timeout=20 -print_final_stats=1 -close_fd_mask=1)
  mkdir -p "$build/corpus/$target" "$build/finds/$target" "$build/logs"
  touch "$build/logs/$target.started"
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
printf '%-18s %12s %10s %9s %6s\n' target executions 'per second' coverage finds
for target in "${targets[@]}"; do
  log=$build/logs/$target.log
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
  coverage=$(sed -n 's/^#[0-9].* cov: \([0-9]*\) .*/\1/p' "$log" | tail -n 1)
  finds=$(find "$build/finds/$target" -type f -newer "$build/logs/$target.started" | wc -l)
  # A fuzzer that crashed has printed no statistics.
  [[ -n $executions && -n $coverage ]] || finds=$((finds > 0 ? finds : 1))
  found=$((found + finds))
  printf '%-18s %12s %10s %9s %6s\n' "$target" "${executions:--}" "${rate:--}" "${coverage:--}" "$finds"
done

if [[ $found -gt 0 ]]; then
  echo "Some inputs failed. They are in $build/finds/, the output of the fuzzers is in $build/logs/."
  echo "To reproduce a failure: $build/brisko-fuzz-TARGET INPUT"
  exit 1
fi
