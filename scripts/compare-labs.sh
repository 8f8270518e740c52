#!/usr/bin/env bash
# Plays every scenario and generated weeks with all faults in two labs, and compares what remains: what the lab
# says, everything that the daemon logged, and the files of the Mac, byte for byte. For changes after which the
# simulator must still do the same.
#
#   compare-labs.sh ONE OTHER [SEEDS [DAYS]]     ONE and OTHER: a brisko-lab each; 20 seeds of 7 days without them
set -euo pipefail

one=${1:?the path of a brisko-lab}
other=${2:?the path of another}
seeds=${3:-20}
days=${4:-7}
cd "$(dirname "$0")/.."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

play() {  # play LAB FILE FOLDER
  mkdir "$3"
  TZ=UTC "$1" run --log "$3/log" --volume "$3/volume" "$2" >"$3/output" 2>&1 || echo "status $?" >>"$3/output"
}

count=0
differing=0
compare() {  # compare FILE
  play "$one" "$1" "$work/one"
  play "$other" "$1" "$work/other"
  count=$((count + 1))
  if ! diff --recursive --no-dereference "$work/one" "$work/other" >"$work/difference"; then
    differing=$((differing + 1))
    echo "$1 differs:"
    head -n 20 "$work/difference"
  fi
  rm -rf "$work/one" "$work/other"
}

for scenario in tests/scenarios/*.json; do compare "$scenario"; done
for seed in $(seq "$seeds"); do
  "$one" generate --seed "$seed" --days "$days" --faults all >"$work/seed-$seed.json"
  compare "$work/seed-$seed.json"
done
echo "$count compared, $differing differ"
[[ $differing == 0 ]]
