#!/usr/bin/env bash
# Shows which conditions of src/ matter on their own in a test (MC/DC): a table by folder, then each condition that no
# test shows. It fails unless those are exactly the ones that tests/coverage/unreached_conditions.txt names, with reasons.
# Long tests are left out.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-dependencies.sh conditions
unset BRISKO_VIRTUAL_MAC BRISKO_PRETEND_MACOS BRISKO_PRETEND_NO_NATIVE

# The programs whose tests check the daemon, and the programs that these start.
tested=(brisko-tests brisko-mac-tests brisko-exchange-tests brisko-objective-c-tests brisko-live-tests
  brisko-control-tests brisko-process-tests brisko-lab brisko-lab-macos)
started=(brisko-daemon brisko-vmac brisko-mutant)
tests='^(brisko-(tests|mac-tests|exchange-tests|live-tests|control-tests|process-tests)$|brisko-objective-c-tests/|scenario(-macos)?/)'

build=$PWD/build/conditions
cmake --preset conditions
cmake --build "$build" --parallel "$(nproc)" --target "${tested[@]}" "${started[@]}"

# A test may give up root, so its profile must be writable for everybody.
rm -rf "$build/profiles"
mkdir --mode 1777 "$build/profiles"
status=0
ctest --preset conditions --parallel "$(nproc)" --no-tests=error --tests-regex "$tests" --label-exclude '^long$' |
  grep -vE '^ +Start +[0-9]+: | Passed +[0-9.]+ sec$' || status=${PIPESTATUS[0]}

llvm-profdata-19 merge --sparse --output "$build/tests.profdata" "$build"/profiles/*.profraw
programs=()
for program in "${tested[@]}" "${started[@]}"; do programs+=(--object "$build/$program"); done
# llvm-cov takes the first program without --object. It warns of inline functions whose recorded copy a program lacks;
# another program has it.
llvm-cov-19 export --format=text --instr-profile "$build/tests.profdata" "${programs[@]:1}" "$PWD/src" \
  >"$build/conditions.json"

echo
/usr/bin/python3 -B tests/coverage/conditions.py "$PWD" "$build/conditions.json" \
  tests/coverage/unreached_conditions.txt || status=$?
left_out=$build/profiles/left_out.txt
if [[ -f $left_out ]]; then
  echo "Tests with a process that was killed before it wrote its profile: $(LC_ALL=C sort -u "$left_out" | wc -l)"
  LC_ALL=C sort -u "$left_out" | sed 's/^/  /'
else
  echo 'Every process wrote its profile.'
fi
exit "$status"
