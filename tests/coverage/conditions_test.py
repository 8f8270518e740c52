"""Tests of conditions.py: what it reads from an export of llvm-cov, and when the comparison fails."""

import pathlib
import tempfile
import unittest

import conditions

SOURCE = """\
bool isHot(bool wanted, int temp) { return wanted && temp > 35; }
bool isCold(int temp) {
  if (temp < 5) return true;
  while (true) {
    switch (temp) {
      case 5: return false;
      default: break;
    }
  }
}
template <class T> bool either(T one, T other) { return one || other || one; }
"""
# Of a decision in SOURCE: its span, and those of its conditions.
SWITCHED = [5, 13, 5, 17]
HOT = [1, 44, 1, 63]
WANTED, ABOVE = [1, 44, 1, 50], [1, 54, 1, 63]
COLD, ENDLESS, FIVE, OTHERS = [3, 7, 3, 15], [4, 10, 4, 14], [6, 7, 6, 13], [7, 7, 7, 14]
EITHER = [11, 57, 11, 76]
ONE, OTHER, AGAIN = [11, 57, 11, 60], [11, 64, 11, 69], [11, 73, 11, 76]


def branch(span, true, false, kind):
    return [*span, true, false, 0, 0, kind]


def function(path, branches, records):
    return {"filenames": [str(path)], "branches": branches,
            "mcdc_records": [[*span, 0, 5, shown] for span, shown in records]}


def condition(text, shown, file="policy/heat.cpp", decision="a && b"):
    return conditions.Condition(file, 9, 7, (9, 7, 9, 13), decision, text, shown, "only true")


ENTRY = """\
# why
policy/heat.cpp
  decision: a && b
  condition: b
  reason: Its writer
    always sets it.
"""


class OfAnExport(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.path = self.folder / "policy/heat.cpp"
        self.path.parent.mkdir()
        self.path.write_text(SOURCE)

    def found(self, *functions):
        export = {"data": [{"functions": functions}]}
        return {(found.text, found.decision): found for found in conditions.conditions_in(export, self.folder)}

    def test_finds_the_conditions_of_a_decision_in_their_order(self):
        branches = [branch(ABOVE, 3, 0, 6), branch(WANTED, 3, 2, 6)]
        found = self.found(function(self.path, branches, [(HOT, [True, False])]))
        self.assertTrue(found["wanted", "wanted && temp > 35"].shown)
        self.assertFalse(found["temp > 35", "wanted && temp > 35"].shown)
        self.assertEqual(found["temp > 35", "wanted && temp > 35"].seen, "only true")

    def test_counts_a_single_condition_with_both_outcomes_as_shown(self):
        self.assertTrue(self.found(function(self.path, [branch(COLD, 1, 2, 4)], []))["temp < 5", "temp < 5"].shown)
        self.assertFalse(self.found(function(self.path, [branch(COLD, 0, 2, 4)], []))["temp < 5", "temp < 5"].shown)
        self.assertFalse(self.found(function(self.path, [branch(COLD, 1, 0, 4)], []))["temp < 5", "temp < 5"].shown)

    def test_leaves_out_constants_and_cases(self):
        branches = [branch(ENDLESS, 0, 0, 4), branch(FIVE, 1, 0, 4), branch(OTHERS, 0, 1, 4),
                    branch(SWITCHED, 0, 1, 4)]
        self.assertEqual(self.found(function(self.path, branches, [])), {})

    def test_counts_two_conditions_with_all_their_outcomes_as_shown(self):
        for outcomes, shown in (((1, 1, 1, 1), [True, True]), ((1, 0, 1, 1), [False, False])):
            branches = [branch(WANTED, *outcomes[:2], 6), branch(ABOVE, *outcomes[2:], 6)]
            found = self.found(function(self.path, branches, [(HOT, [False, False])]))
            self.assertEqual([found[text, "wanted && temp > 35"].shown for text in ("wanted", "temp > 35")], shown)

    def test_counts_a_condition_that_one_copy_shows(self):
        branches = [branch(ONE, 1, 1, 6), branch(OTHER, 1, 1, 6), branch(AGAIN, 0, 1, 6)]
        found = self.found(function(self.path, branches, [(EITHER, [True, False, False])]),
                           function(self.path, branches, [(EITHER, [False, True, False])]))
        decision = "one || other || one"
        self.assertEqual([found[text, decision].shown for text in ("one", "other", "one #2")], [True, True, False])

    def test_leaves_out_other_folders(self):
        self.assertEqual(self.found(function("/usr/include/vector", [branch(COLD, 1, 0, 4)], [])), {})

    def test_refuses_a_decision_whose_conditions_it_cannot_find(self):
        with self.assertRaises(ValueError):
            self.found(function(self.path, [branch(WANTED, 1, 1, 6)], [(HOT, [True, False])]))


class OfTheComparison(unittest.TestCase):
    def problems(self, text, shown=False, others=98):
        all_conditions = [condition("a", True), condition("b", shown)]
        all_conditions += [condition(f"x{number}", True) for number in range(others)]
        return list(conditions.problems_of(all_conditions, conditions.read_unreached(text)))

    def test_accepts_an_entry_for_a_condition_that_is_not_shown(self):
        self.assertEqual(self.problems(ENTRY), [])
        self.assertEqual(conditions.read_unreached(ENTRY)[0].reason, "Its writer always sets it.")

    def test_refuses_a_condition_that_is_neither_shown_nor_named(self):
        self.assertEqual(self.problems(""), ["not shown: policy/heat.cpp:9:7: b (only true) in a && b"])

    def test_refuses_an_entry_that_a_test_shows(self):
        self.assertIn("a test shows it", self.problems(ENTRY, shown=True)[0])

    def test_refuses_an_entry_that_is_not_in_the_sources(self):
        for old, new in (("heat", "cold"), ("a && b", "a || b"), ("condition: b", "condition: c")):
            self.assertIn("not in the sources", self.problems(ENTRY.replace(old, new))[0])

    def test_refuses_an_entry_without_a_reason(self):
        text = ENTRY[:ENTRY.index("  reason")]
        self.assertIn("without a reason", self.problems(text)[0])

    def test_refuses_the_same_entry_twice(self):
        self.assertIn("twice", self.problems(ENTRY * 2)[0])

    def test_refuses_more_than_two_in_a_hundred(self):
        all_conditions = [condition(f"x{number}", number >= 3) for number in range(100)]
        text = "".join(ENTRY.replace("condition: b", f"condition: x{number}") for number in range(3))
        entries = conditions.read_unreached(text)
        self.assertEqual(list(conditions.problems_of([*all_conditions, *[condition(f"y{n}", True) for n in range(50)]],
                                                     entries)), [])
        self.assertEqual(list(conditions.problems_of(all_conditions, entries)),
                         ["more than 2% of the conditions are named: 3 of 100"])

    def test_refuses_lines_that_belong_to_no_entry(self):
        for text in ("  reason: None.\n", ENTRY + "  why: None.\n", "policy/heat.cpp\n    always sets it.\n"):
            with self.assertRaises(ValueError):
                conditions.read_unreached(text)


class OfTheTable(unittest.TestCase):
    def test_counts_each_folder_and_all(self):
        entries = conditions.read_unreached(ENTRY)
        lines = list(conditions.table([condition("a", True), condition("b", False),
                                       condition("c", True, file="base/log.cpp")], entries))
        self.assertEqual([line.split() for line in lines[1:]],
                         [["base", "1", "1", "1", "0", "100.00%"], ["policy", "1", "2", "1", "1", "50.00%"],
                          ["all", "of", "src", "2", "3", "2", "1", "66.67%"]])


if __name__ == "__main__":
    unittest.main()
