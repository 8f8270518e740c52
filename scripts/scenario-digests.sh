#!/usr/bin/env bash
# Writes tests/scenarios/digests.txt: for each scenario without guards its name and the SHA-256 of its log, its files and
# the journal of its keys. BUILD is the folder of the programs; the default is build/release.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD:-build/release}

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
for scenario in tests/scenarios/*.json; do
  if grep --quiet '"--guard"' "$scenario"; then continue; fi
  name=$(basename "$scenario" .json)
  "$build/brisko-lab" run --trace "$folder/trace" "$scenario" >&2
  digest=$(sha256sum "$folder/trace")
  echo "$name ${digest%% *}" >>"$folder/digests.txt"
done
mv "$folder/digests.txt" tests/scenarios/digests.txt
