#!/usr/bin/env bash
# Runs clang-tidy on src/, sim/, report/, tools/ and client/, as compiled in the given build folder (default: build/asan).
# The sanitizer builds compile each library as one source, so clang-tidy reads the headers once a library.
# --quick reads src/ and tools/ alone, and leaves out three checks that take half of the time.
set -euo pipefail
cd "$(dirname "$0")/.."
left_out=-bugprone-suspicious-include
folders='src|sim|report|tools|client'
if [[ ${1:-} == --quick ]]; then
  folders='src|tools'
  left_out+=,-performance-unnecessary-value-param,-bugprone-reserved-identifier,-bugprone-stringview-nullptr
  shift
fi
build=${1:-build/asan}

compiled() {
  sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' "$build/compile_commands.json" |
    grep -E "^$PWD/($build/)?($folders)/" | LC_ALL=C sort -u
}

# The compiler has already reported its warnings; repeating them would only take time. Sources that include sources
# are intended: that is how a library is compiled as one.
compiled | xargs --max-args=1 --max-procs="$(nproc)" \
  clang-tidy -p "$build" --quiet --extra-arg=-w --checks="$left_out" 2> >(grep -vE '^[0-9]+ warnings? generated' >&2 || true)
