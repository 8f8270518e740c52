#!/usr/bin/env bash
# Runs shellcheck over all shell scripts, those that run on a Mac and those that play its tools among them.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts() {
  grep --recursive --files-with-matches --extended-regexp --max-count=1 '^(#!.*[ /](ba)?sh$|# shellcheck shell=)' \
    scripts packaging tests/packaging/fakes .ci | LC_ALL=C sort
}

scripts | xargs --no-run-if-empty shellcheck --external-sources --source-path=.:SCRIPTDIR
