#!/usr/bin/env bash
# Brings our C++ files into the project's format; with --check it only looks, names what it finds and fails.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/sources.sh

if [[ "${1:-}" == --check ]]; then
  own_sources | xargs --no-run-if-empty clang-format --dry-run --Werror
else
  own_sources | xargs --no-run-if-empty clang-format -i
fi
