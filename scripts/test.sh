#!/usr/bin/env bash
# Runs all checks: the format, the tests in a release build with g++, the tests in a build with clang and sanitizers,
# the control service under ThreadSanitizer, and clang-tidy. The last line counts the tests of all runs; a
# failing step that is not a test (the format, a build, clang-tidy) counts as one failed test.
set -uo pipefail
cd "$(dirname "$0")/.." || exit

# The caller's own virtual Mac or pretended system must not affect the tests.
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
# The status of a step whose failures are already counted test by test.
tests_failed=42

# step NAME COMMAND…: runs the command, prints how long it took, and records the name if it fails.
step() {
  local name=$1 status=0 times TIMEFORMAT='%0R s, %0U s of processor and %0S s in the kernel'
  shift
  times=$(mktemp)
  printf '\n== %s\n' "$name"
  { time "$@" 2>&3 3>&-; } 3>&2 2>"$times" || status=$?
  printf -- '-- %s: %s, %s\n' "$name" "$([[ $status -eq 0 ]] && echo passed || echo FAILED)" "$(cat "$times")"
  rm -f "$times"
  [[ $status -eq 0 || $status -eq $tests_failed ]] || failed_steps+=("$name")
  return "$status"
}

# build PRESET [OPTIONS]: builds everything, or what the options of `cmake --build` select.
build() {
  local preset=$1
  shift
  cmake --preset "$preset" && cmake --build "build/$preset" --parallel "$jobs" "$@"
}

# count RESULTS: adds the results of one run of ctest to the totals. The last line of a program of tests counts its own.
count() {
  local run failures skips
  [[ -f $1 ]] || return 1
  read -r run failures skips < <(awk '
    /^\t<testcase / { own = 0; passes = /status="run">/; skipped = /status="disabled">/ }
    /^\t\t<skipped message="SKIP_/ { skipped = 1 }
    { sub(/^\t\t<system-out>/, "") }
    /^[0-9]+ passed, [0-9]+ failed, [0-9]+ skipped(<|$)/ { own = 1; own_run = $1; own_failures = $3; own_skips = $5 + 0 }
    /^\t<\/testcase>/ {
      # A test that a failure was expected of is one.
      if (own && passes == (own_failures == 0)) { run += own_run; failures += own_failures; skips += own_skips }
      else if (passes) ++run
      else if (skipped) ++skips
      else ++failures
    }
    END { print run + 0, failures + 0, skips + 0 }' "$1")
  passed=$((passed + run))
  failed=$((failed + failures))
  skipped=$((skipped + skips))
  [[ $((run + failures)) -gt 0 ]]
}

# run_tests PRESET RESULTS [CTEST-OPTION…]: a run that fails without a failed test, or has no tests, is a failed step.
# Passed tests are not listed.
run_tests() {
  local before=$failed status=0
  ctest --preset "$1" --parallel "$jobs" --no-tests=error --output-junit "$2" \
    --test-output-truncation middle "${@:3}" |
    grep -vE '^ +Start +[0-9]+: | Passed +[0-9.]+ sec$' || status=${PIPESTATUS[0]}
  count "$2" || return 1
  [[ $failed -eq $before ]] || return $tests_failed
  return "$status"
}

if step 'dependencies' scripts/install-dependencies.sh checks; then
  step 'format' scripts/format.sh --check
  step 'shell scripts' scripts/check-scripts.sh
  # The daemon's tests run once on each platform: in the release on the virtual one, under the sanitizers on that of a
  # real Mac, whose tests are there to find memory errors. With the scenarios it is the other way round for the time that
  # it takes: the files of a virtual Mac are kept in memory. The long ones (simulations of many days and generated
  # scenarios) and the mutants run without sanitizers, and so do the tests that read the source tree, run the shell
  # scripts or compare the traces of two programs.
  step 'release build' build release &&
    step 'tests' run_tests release "$release_results" \
      --exclude-regex '^(brisko-mac-tests$|scenario-macos/a-clamshell-on-a-dock-for-a-month$)'
  step 'sanitizer build' build asan && {
    step 'tests under sanitizers' run_tests asan "$asan_results" \
      --exclude-regex '^(brisko-tests$|scenario-(macos|log|digest)/)' --label-exclude '^long$'
    step 'clang-tidy' scripts/tidy.sh --quick build/asan
  }
  step 'thread sanitizer build' build tsan --target brisko-control-tests &&
    step 'control service under the thread sanitizer' run_tests tsan "$tsan_results"
fi

printf '\nEverything took %d s.' $SECONDS
[[ $skipped -eq 0 ]] ||
  printf ' %d tests were skipped. (Tests of registry dumps need BRISKO_DUMPS, the folder of the dumps; those of pages need Chromium.)' $skipped
printf '\n'
[[ ${#failed_steps[@]} -eq 0 ]] || printf 'Failed: %s\n' "${failed_steps[@]}"
failed=$((failed + ${#failed_steps[@]}))
echo "$passed passed, $failed failed"
[[ $failed -eq 0 && $passed -gt 0 ]]
