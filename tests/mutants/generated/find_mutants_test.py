"""Tests of the tools in this folder: what they find in a small source, that each mutant in the copy is a choice at run
time, and which entries of equivalent.txt they refuse.
"""

import os
import pathlib
import subprocess
import tempfile
import unittest

import find_mutants
import run
import write_sources

TESTS = pathlib.Path(__file__).resolve().parents[2]

RULES = """\
#include "policy/rules.h"
#define TWICE(x) ((x) + (x))
#define REPEAT(x) do { for (int i = 0; i < 2; ++i) x; } while (false)
namespace brisko {
namespace {
constexpr int margin = 5;
constexpr int table[] = {7, 8};
}
bool isAbove(int pct, int limit) {
  // a < comment
  return pct > limit - margin && !gPaused;
}
void count(int& first, int& second) {
  first = 4;
  second += first;
  if (first == 0) return;
  static_cast<void>(TWICE(second) + table[0]);
  REPEAT(--second);
}
}
"""
HEADER = """\
#pragma once
namespace brisko {
inline bool gPaused = false;
bool isAbove(int pct, int limit);
void count(int& first, int& second);
inline int leastOf(int one, int other) { return one < other ? one : other; }
}
"""
PROGRAM = """\
#include <cstdio>
#include "policy/rules.h"
using namespace brisko;
int main() {
  for (int pct = 74; pct < 78; ++pct) std::printf("%d", isAbove(pct, 80));
  gPaused = true;
  std::printf("%d", isAbove(90, 80));
  int first = 1;
  int second = 3;
  count(first, second);
  std::printf(" %d %d %d%d%d\\n", first, second, leastOf(1, 2), leastOf(2, 1), leastOf(1, 1));
}
"""


class OfASmallSource(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.root = pathlib.Path(cls.folder.name) / "src"
        cls.copy = pathlib.Path(cls.folder.name) / "copy"
        (cls.root / "policy").mkdir(parents=True)
        (cls.root / "policy/rules.cpp").write_text(RULES)
        (cls.root / "policy/rules.h").write_text(HEADER)
        cls.mutants = find_mutants.find(cls.root, ["policy"])

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    def texts(self, file, function):
        return [f"{mutant.operator}: {mutant.text}" for mutant in self.mutants
                if mutant.file == file and mutant.function == function]

    def test_finds_borders_negations_arithmetic_and_logic(self):
        self.assertCountEqual(self.texts("policy/rules.cpp", "isAbove"), [
            "logic: pct > limit - margin && !gPaused → (pct > limit - margin) || !gPaused",
            "negation: pct > limit - margin → !(pct > limit - margin)",
            "border: pct > limit - margin → pct >= limit - margin",
            "arithmetic: limit - margin → limit + margin",
            "condition: gPaused → !(gPaused)"])

    def test_finds_removals_swaps_returns_and_constants_but_nothing_in_a_macro(self):
        self.assertCountEqual(self.texts("policy/rules.cpp", "count"), [
            "removal: first = 4; → nothing", "constant: 4 → 4 + 1",
            "swap: first = 4; ↔ second += first;",
            "removal: second += first; → nothing", "arithmetic: second += first → second -= first",
            "negation: first == 0 → first != 0", "constant: 0 → 0 + 1", "constant: 0 → 0 + 1 #2",
            "return: return; → nothing",
            "arithmetic: TWICE(second) + table[0] → TWICE(second) - table[0]"])

    def test_swaps_only_what_may_have_an_order(self):
        self.assertTrue(find_mutants.depends_on("send(line);", "line.append(text);"))
        self.assertTrue(find_mutants.depends_on("total += state.size;", "state.size = 4;"))
        self.assertFalse(find_mutants.depends_on("total = state.other;", "state.size = 4;"))
        self.assertFalse(find_mutants.depends_on("if (size == 4) stop();", "other == size;"))

    def test_finds_what_is_in_headers(self):
        self.assertIn("border: one < other → one <= other", self.texts("policy/rules.h", "leastOf"))

    def test_changes_a_constant_where_it_is_used(self):
        constant, = [mutant for mutant in self.mutants if mutant.function == "margin"]
        self.assertEqual(constant.text, "constexpr int margin = 5 → 1 more")
        self.assertEqual(constant.line, 6)
        self.assertFalse(constant.alone)
        self.assertEqual(len(constant.sites), 1)

    def test_knows_what_needs_a_build_of_its_own(self):
        self.assertCountEqual([mutant.text for mutant in self.mutants if mutant.alone],
                              ["7 → 7 + 1", "8 → 8 + 1", "false → true"])

    def test_writes_a_copy_in_which_each_mutant_is_a_choice(self):
        write_sources.write(self.root, self.copy, self.mutants)
        program = self.built()
        self.assertEqual(self.output(program, 0), "00110 4 5 111\n")
        same = [mutant.text for mutant in self.mutants
                if not mutant.alone and self.output(program, mutant.number) == self.output(program, 0)]
        # No input of the program tells these from the original; every other mutant changes the output.
        self.assertCountEqual(same, ["one < other → one <= other", "0 → 0 + 1", "return; → nothing", "0 → 0 + 1 #2",
                                     "TWICE(second) + table[0] → TWICE(second) - table[0]"])

    def test_writes_one_that_needs_its_own_build_in_place_of_the_original(self):
        alone, = [mutant for mutant in self.mutants if mutant.text == "false → true"]
        write_sources.write(self.root, self.copy, self.mutants, alone.number)
        self.assertEqual(self.output(self.built(), 0), "00000 4 5 111\n")

    def test_counts_as_alone_what_the_compiler_refused(self):
        mutants = find_mutants.find(self.root, ["policy"])
        write_sources.refuse(mutants, {("policy/rules.cpp", 14)})
        self.assertEqual({mutant.line for mutant in mutants if mutant.alone}, {3, 7, 14})

    def built(self):
        program = self.copy / "program"
        (self.copy / "main.cpp").write_text(PROGRAM)
        subprocess.run(["clang++", "-std=c++20", "-w", "-fuse-ld=lld", f"-I{self.copy}", f"-I{TESTS}",
                        self.copy / "main.cpp", self.copy / "policy/rules.cpp",
                        TESTS / "mutants/generated/active_mutant.cpp", "-o", program], check=True)
        return program

    @staticmethod
    def output(program, mutant):
        return subprocess.run([program], env={**os.environ, "BRISKO_MUTANT": str(mutant)}, text=True, check=True,
                              stdout=subprocess.PIPE).stdout


class OfTheEquivalent(unittest.TestCase):
    def problems(self, text):
        mutant = lambda text: find_mutants.Mutant("policy/heat.cpp", 9, "isHot", "border", text, [])
        mutants = [mutant("a < b → a <= b")] + [mutant(f"{number} → 0") for number in range(39)]
        return list(run.problems_of_equivalent(run.read_equivalent(text), mutants))

    def test_accepts_an_entry_that_matches_one_mutant(self):
        self.assertEqual(self.problems("# why\npolicy/heat.cpp | isHot | border | a < b → a <= b\n  Never equal.\n"), [])

    def test_refuses_an_entry_that_matches_none(self):
        self.assertIn("matches 0", self.problems("policy/heat.cpp | isHot | border | a < c → a <= c\n  Why.\n")[0])

    def test_refuses_an_entry_without_a_reason(self):
        self.assertIn("no reason", self.problems("policy/heat.cpp | isHot | border | a < b → a <= b\n")[0])

    def test_refuses_the_same_entry_twice(self):
        self.assertIn("repeated", self.problems("policy/heat.cpp | isHot | border | a < b → a <= b\n  Why.\n" * 2)[0])

    def test_refuses_more_than_one_in_twenty(self):
        lines = [f"policy/heat.cpp | isHot | border | {number} → 0\n  Why.\n" for number in range(3)]
        self.assertEqual(self.problems("".join(lines[:2])), [])
        self.assertIn("more than 5%", self.problems("".join(lines))[0])


if __name__ == "__main__":
    unittest.main()
