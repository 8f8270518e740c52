#!/usr/bin/env bash
# Formats our C++ files. With --check it changes nothing, lists the differences and fails if there are any.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/sources.sh

if [[ "${1:-}" == --check ]]; then
  own_sources | xargs --no-run-if-empty clang-format --dry-run --Werror
else
  own_sources | xargs --no-run-if-empty clang-format -i
fi
