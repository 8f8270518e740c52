#!/usr/bin/env bash
#SBATCH --job-name=campaign
#SBATCH --cpus-per-task=1
#SBATCH --requeue
#SBATCH --signal=B:TERM@60
# Runs a campaign as a Slurm array, a shard for each task:
#
#   sbatch --array=1-64 scripts/campaign-slurm.sh FOLDER --seeds 1..121750 --days 30 [other options of the campaign]
#   build/release/brisko-lab merge FOLDER/shard-*.json
#
# Submit it in the project's folder; FOLDER must be shared. A task that Slurm ends or starts again continues where it
# was, and so does the whole array when it is submitted again. LAB in the environment names another program.
set -euo pipefail

if [[ $# -lt 1 || -z ${SLURM_ARRAY_TASK_ID:-} || -z ${SLURM_ARRAY_TASK_COUNT:-} ]]; then
  sed -n 's/^#   //p' "$0" >&2
  exit 2
fi
folder=$1
shift
# Slurm runs a copy of this script.
lab=${LAB:-${SLURM_SUBMIT_DIR:-.}/build/release/brisko-lab}
mkdir -p "$folder"

# The lab takes this process's place, so that it gets the signal a minute before the time is over, and saves its work.
exec "$lab" campaign "$@" --jobs "${SLURM_CPUS_PER_TASK:-1}" \
  --shard "$SLURM_ARRAY_TASK_ID/$SLURM_ARRAY_TASK_COUNT" --summary "$folder/shard-$SLURM_ARRAY_TASK_ID.json"
