#!/usr/bin/env bash
# Runs all tests in a coverage build and shows what they cover of src/ and of the virtual Mac: regions, functions,
# lines and branches for each folder, then every line that no test runs. Processes that end by _exit, abort or
# kill -9 count too, since the counters are in mapped profile files.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-dependencies.sh checks
unset BRISKO_VIRTUAL_MAC BRISKO_PRETEND_MACOS BRISKO_PRETEND_NO_NATIVE

build=$PWD/build/coverage
cmake --preset coverage
cmake --build "$build" --parallel "$(nproc)"

rm -rf "$build/profiles"
mkdir "$build/profiles"
# The processes of each program share a pool of nine files, so that thousands of processes need no more. One test at a
# time, since processes that write to the same file at once lose a count now and then.
status=0
LLVM_PROFILE_FILE="$build/profiles/%c%9m.profraw" ctest --preset coverage --parallel 1 --no-tests=error |
  grep -vE '^ +Start +[0-9]+: | Passed +[0-9.]+ sec$' || status=${PIPESTATUS[0]}

llvm-profdata-14 merge --sparse --output "$build/tests.profdata" "$build"/profiles/*.profraw

programs=()
for program in "$build"/brisko-*; do
  [[ -f $program && -x $program ]] && programs+=(--object "$program")
done
# llvm-cov takes the first program without --object.
inputs=("${programs[@]:1}" --instr-profile "$build/tests.profdata")
counted=("$PWD/src" "$PWD/sim/machine" "$PWD/sim/seam")

echo
printf '%-28s %9s %9s %9s %9s\n' folder regions functions lines branches
while read -r folder; do
  llvm-cov-14 report "${inputs[@]}" --show-branch-summary "$folder"/*.cpp "$folder"/*.h 2>/dev/null |
    awk -v folder="${folder#"$PWD"/}" '$1 == "TOTAL" { printf "%-28s %9s %9s %9s %9s\n", folder, $4, $7, $10, $13 }'
done < <(find "${counted[@]}" -name '*.cpp' -printf '%h\n' | LC_ALL=C sort -u)
total() {
  llvm-cov-14 report "${inputs[@]}" --show-branch-summary "${@:2}" |
    awk -v name="$1" '$1 == "TOTAL" { printf "%-28s %9s %9s %9s %9s\n", name, $4, $7, $10, $13 }'
}
total 'all of src' "$PWD/src"
total 'with the virtual Mac' "${counted[@]}"

echo
echo 'Lines that no test runs:'
llvm-cov-14 export "${inputs[@]}" --format=lcov "${counted[@]}" 2>/dev/null | awk -v root="$PWD/" '
  function flush() {
    if (first) text = text (text == "" ? "" : ", ") (first == last ? first : first "-" last)
    first = 0
  }
  /^SF:/ { file = substr($0, 4); sub(root, "", file); text = ""; first = 0 }
  /^DA:/ {
    split(substr($0, 4), data, ",")
    if (data[2] > 0) { flush() }
    else if (first) { last = data[1] }
    else { first = last = data[1] }
  }
  /^end_of_record/ { flush(); if (text != "") print "  " file ": " text }' | LC_ALL=C sort

exit "$status"
