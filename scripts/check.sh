#!/usr/bin/env bash
# Run before each commit: builds the release and runs the tests of every program that was linked anew since its tests
# last passed, except those that simulate many days, the packaging tests and the platform of a real Mac. The last line
# says how long that took; `make test` runs everything.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/sources.sh

unset BRISKO_VIRTUAL_MAC BRISKO_PRETEND_MACOS BRISKO_PRETEND_NO_NATIVE
scripts/install-dependencies.sh checks

changed() {
  git diff --name-only --diff-filter=d HEAD
  git ls-files --others --exclude-standard
}
comm -12 <(own_sources | LC_ALL=C sort) <(changed | LC_ALL=C sort) |
  xargs --no-run-if-empty clang-format --dry-run --Werror

# Each line: a program and the names of the tests that depend on it. brisko-tidy-tests reads the source tree, so its
# tests always run.
decides='
brisko-tests                  brisko-tests$
brisko-virtual-mac-tests      brisko-virtual-mac-tests$
brisko-lab-tests              brisko-lab-tests$
brisko-searched-folders-tests brisko-searched-folders-tests$
brisko-live-tests             brisko-live-tests$
brisko-control-tests          brisko-control-tests$
brisko-process-tests          brisko-process-tests$
brisko-client-tests           brisko-client-tests$
brisko-replay-tests           brisko-replay-tests$
brisko-why-judge-tests        brisko-why-judge-tests$
brisko-doctor-scenario-tests  brisko-doctor-scenario-tests$
brisko-exchange-tests         brisko-exchange-tests$
brisko-lab                    scenario(-log|-digest)?/
brisko-tidy-tests             brisko-tidy-tests$
'

# GCC otherwise only checks the sources of some of these programs.
build=build/release
cmake --preset release >/dev/null
mapfile -t deciding < <(awk 'NF { print $1 }' <<<"$decides")
cmake --build "$build" --parallel "$(nproc)" --target all "${deciding[@]}" | tail -n 1

passed=$build/passed
mkdir -p "$passed"
rm -f "$passed/brisko-tidy-tests"
due=()
programs=()
while read -r program tests; do
  [[ -n $program && ! $build/$program -ot $passed/$program ]] || continue
  due+=("$tests")
  programs+=("$program")
done <<<"$decides"

status=0
# More jobs than processors, because live tests mostly wait.
ctest --test-dir "$build" --output-on-failure --parallel $((2 * $(nproc))) --no-tests=error --label-exclude '^long$' \
  --tests-regex "^($(IFS='|' && echo "${due[*]}"))" |
  grep -vE '^ +Start +[0-9]+: | Passed +[0-9.]+ sec$' || status=${PIPESTATUS[0]}
[[ $status -eq 0 ]] || exit "$status"
for program in "${programs[@]}"; do touch "$passed/$program"; done
echo "Checked in $SECONDS s."
