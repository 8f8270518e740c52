#!/bin/sh
# Makes docs/troubleshooting.md from the table of the checks of brisko doctor. A test compares the two.
# Usage: scripts/troubleshooting.sh [BUILD-FOLDER]
set -eu
cd "$(dirname "$0")/.."
build=${1:-build/release}
cmake --build "$build" --target brisko-troubleshooting-page >/dev/null
"$build/brisko-troubleshooting-page" >docs/troubleshooting.md
