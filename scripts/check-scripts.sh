#!/usr/bin/env bash
# Runs shellcheck on all shell scripts, including those for a Mac and the fakes of its tools.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts() {
  grep --recursive --files-with-matches --extended-regexp --max-count=1 '^(#!.*[ /](ba)?sh$|# shellcheck shell=)' \
    scripts packaging tests/packaging/fakes .ci | LC_ALL=C sort
}

scripts | xargs --no-run-if-empty shellcheck --external-sources --source-path=.:SCRIPTDIR
