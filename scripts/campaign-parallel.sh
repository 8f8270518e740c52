#!/usr/bin/env bash
# Runs a campaign in shards with GNU parallel, and adds up what they have seen:
#
#   scripts/campaign-parallel.sh FOLDER SHARDS --seeds 1..400 --days 30 [other options of brisko-lab campaign]
#
# Each shard has a file in FOLDER. Started again with the same words, it continues where it was, and shards that are
# finished take no time. The environment: WORKERS, how many run at a time (default: one per core); LAB, the program
# (default: build/release/brisko-lab); PARALLEL, options of GNU parallel, e.g. '--sshloginfile hosts' for computers that
# share FOLDER. The exit status is that of brisko-lab merge.
set -euo pipefail

if [[ $# -lt 2 || ! $2 =~ ^[1-9][0-9]*$ ]]; then
  sed -n 's/^#   //p' "$0" >&2
  exit 2
fi
folder=$1 shards=$2
shift 2
lab=${LAB:-$(dirname "$0")/../build/release/brisko-lab}
mkdir -p "$folder"

# A shard with a failure has status 1; the merged summary contains the failures. What else goes wrong leaves its shard
# unfinished, and the merge names it.
seq "$shards" | parallel --will-cite --jobs "${WORKERS:-100%}" --line-buffer --quote \
  "$lab" campaign "$@" --jobs 1 --shard "{}/$shards" --summary "$folder/shard-{}.json" || true

files=()
for ((shard = 1; shard <= shards; ++shard)); do files+=("$folder/shard-$shard.json"); done
exec "$lab" merge "${files[@]}" --summary "$folder/merged.json"
