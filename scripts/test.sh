#!/usr/bin/env bash
# Everything that is tested, from nothing: the format, a release build by g++ with all
# tests, a build by clang with sanitizers and all tests again, the control service under the sanitizer of
# threads, and clang-tidy. The last line counts the tests of all runs; a step that fails without being a test
# (the format, a build, clang-tidy) counts as one failed.
set -uo pipefail
cd "$(dirname "$0")/.." || exit

# What the caller's own virtual Mac or pretended system would change has no place in a test.
unset BRISKO_VIRTUAL_MAC BRISKO_PRETEND_MACOS BRISKO_PRETEND_NO_NATIVE

jobs=$(nproc)
release_results=$PWD/build/release/tests.xml
asan_results=$PWD/build/asan/tests.xml
tsan_results=$PWD/build/tsan/tests.xml
rm -f "$release_results" "$asan_results" "$tsan_results"

passed=0
failed=0
skipped=0
failed_steps=()
# The status of a step whose failures are counted already, test by test.
tests_failed=42

# step NAME COMMAND…: runs the command and remembers the name when it fails.
step() {
  local name=$1 begun=$SECONDS status=0
  shift
  printf '\n== %s\n' "$name"
  "$@" || status=$?
  printf -- '-- %s: %s, %d s\n' "$name" "$([[ $status -eq 0 ]] && echo fine || echo FAILED)" $((SECONDS - begun))
  [[ $status -eq 0 || $status -eq $tests_failed ]] || failed_steps+=("$name")
  return "$status"
}

# build PRESET [OPTIONS]: all of it, or what `cmake --build` is told.
build() {
  local preset=$1
  shift
  cmake --preset "$preset" && cmake --build "build/$preset" --parallel "$jobs" "$@"
}

# count RESULTS: adds up what ctest wrote about one run.
count() {
  local all run skips
  [[ -f $1 ]] || return 1
  all=$(grep -c $'^\t<testcase ' "$1")
  run=$(grep -c $'^\t<testcase .* status="run">' "$1")
  skips=$(grep -cE $'^\t(\t<skipped message="SKIP_|<testcase .* status="disabled">)' "$1")
  passed=$((passed + run))
  skipped=$((skipped + skips))
  failed=$((failed + all - run - skips))
  [[ $all -gt 0 ]]
}

# run_tests PRESET RESULTS [CTEST-OPTION…]: a run that fails without a failed test, or without any test, is a failed
# step. Tests that pass are not listed.
run_tests() {
  local before=$failed status=0
  ctest --preset "$1" --parallel "$jobs" --no-tests=error --output-junit "$2" "${@:3}" |
    grep -vE '^ +Start +[0-9]+: | Passed +[0-9.]+ sec$' || status=${PIPESTATUS[0]}
  count "$2" || return 1
  [[ $failed -eq $before ]] || return $tests_failed
  return "$status"
}

if step 'what is needed' scripts/install-dependencies.sh checks; then
  step 'format' scripts/format.sh --check
  step 'shell scripts' scripts/check-scripts.sh
  # The platform of a real Mac doubles what there is to run. Its tests are there for misuse of memory to show, so they
  # run under the sanitizers alone; what is long there, processes of many days and the generated scenarios, runs without, and so do the mutants.
  step 'release build' build release &&
    step 'tests' run_tests release "$release_results" --exclude-regex '^brisko-mac-tests/'
  step 'sanitizer build' build asan && {
    step 'tests under sanitizers' run_tests asan "$asan_results" --exclude-regex '^(scenario-macos|brisko-mac-tests-long|mutant)/'
    step 'clang-tidy' scripts/tidy.sh build/asan
  }
  step 'thread sanitizer build' build tsan --target brisko-control-tests &&
    step 'control service under the thread sanitizer' run_tests tsan "$tsan_results"
fi

printf '\nAll of it took %d s.' $SECONDS
[[ $skipped -eq 0 ]] || printf ' %d tests were skipped: those over registry dumps want BRISKO_DUMPS to name their folder.' $skipped
printf '\n'
[[ ${#failed_steps[@]} -eq 0 ]] || printf 'Failed: %s\n' "${failed_steps[@]}"
failed=$((failed + ${#failed_steps[@]}))
echo "$passed passed, $failed failed"
[[ $failed -eq 0 && $passed -gt 0 ]]
