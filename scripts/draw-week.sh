#!/usr/bin/env bash
# Draws docs/a-week.svg, the picture in the README: a week of the daemon on a virtual Mac, as "brisko history" draws
# it. BUILD is the folder of the programs; the default is build/release.
set -euo pipefail
cd "$(dirname "$0")/.."
build=${BUILD:-build/release}

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$build/brisko-lab" run --volume "$folder/week" tests/scenarios/a-week-of-work-and-travel.json
TZ=UTC LC_ALL=C.UTF-8 "$build/brisko" history --volume "$folder/week" --from 2026-03-02 --to 2026-03-08 \
  --svg docs/a-week.svg
