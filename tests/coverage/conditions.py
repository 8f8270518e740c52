"""Which conditions of src/ the tests show to matter, from an export of llvm-cov.

A decision is a Boolean expression; its conditions are what && and || connect. A condition is shown if two runs of the
decision differ in its outcome, and the condition changed while no other that was evaluated did (MC/DC); that of a
decision with a single condition, if both outcomes occurred. Inline functions and templates are compiled several times:
a condition is shown if one of these copies shows it. Cases of a switch and constants are not counted.

  conditions.py ROOT EXPORT UNREACHED

prints a table and the conditions of ROOT/src that are not shown, and fails unless they are exactly those that UNREACHED
names. Each entry of that file is a path below src/, the texts of the decision and of the condition, and a reason:

  policy/heat.cpp
    decision: inputs.wanted && *inputs.temp >= limit
    condition: inputs.wanted
    reason: Why no input reaches it, on as many lines
      as that takes.

If a condition occurs several times in a file with the same texts, " #2" follows the second one, and so on.
"""

import collections
import json
import pathlib
import re
import sys

MOST_UNREACHED = 0.02

# Kinds of regions in an export.
BRANCH = 4
MCDC_BRANCH = 6

# `place` is that of the decision, `seen` which outcomes the condition had.
Condition = collections.namedtuple("Condition", "file line column place decision text shown seen")
Entry = collections.namedtuple("Entry", "file decision condition reason")


class Sources:
    """The texts of spans: (line, column, last line, column after the end), each counted from 1, columns in bytes."""

    def __init__(self):
        self.lines = {}

    def between(self, path, span):
        if path not in self.lines:
            self.lines[path] = pathlib.Path(path).read_bytes().split(b"\n")
        line, column, last, end = span
        lines = self.lines[path][line - 1:last]
        lines[-1] = lines[-1][:end - 1]
        lines[0] = lines[0][column - 1:]
        return " ".join(b"\n".join(lines).decode().split())

    def before(self, path, span):
        return self.between(path, (span[0], 1, span[0], span[1]))


def is_condition(sources, path, span):
    """A branch on its own may be that of a switch, or be decided by the compiler."""
    return not re.match(r"(case\b.*|default\b.*|true|false)$", sources.between(path, span)) and \
        not re.search(r"\b(switch|if constexpr) \($", sources.before(path, span))


def decisions_of(function, sources):
    """Yields (path, span of the decision, {span of the condition: (shown, runs with true, runs with false)})."""
    files = function["filenames"]
    inside = [branch for branch in function["branches"] if branch[8] == MCDC_BRANCH]
    for record in function["mcdc_records"]:
        span, file = tuple(record[:4]), record[4]
        branches = sorted(branch for branch in inside
                          if branch[6] == file and span[:2] <= tuple(branch[:2]) and tuple(branch[2:4]) <= span[2:])
        if len(branches) != len(record[6]):
            raise ValueError(f"{files[file]}:{span[0]}: {len(record[6])} conditions, {len(branches)} branches")
        # Both outcomes of two conditions are all that there is. clang 19 does not record what they decide if they choose
        # between two objects of a class.
        complete = len(branches) == 2 and all(branch[4] and branch[5] for branch in branches)
        yield files[file], span, {tuple(branch[:4]): (shown or complete, branch[4], branch[5])
                                  for branch, shown in zip(branches, record[6])}
    for branch in function["branches"]:
        span, path = tuple(branch[:4]), files[branch[6]]
        if branch[8] == BRANCH and is_condition(sources, path, span):
            yield path, span, {span: (branch[4] > 0 and branch[5] > 0, branch[4], branch[5])}


def conditions_in(export, folder):
    """All conditions of the sources below a folder, by their places."""
    sources = Sources()
    folder = str(folder) + "/"
    found = {}
    for function in export["data"][0]["functions"]:
        if not any(name.startswith(folder) for name in function["filenames"]):
            continue
        for path, span, conditions in decisions_of(function, sources):
            if not path.startswith(folder):
                continue
            merged = found.setdefault((path, span), collections.defaultdict(lambda: (False, 0, 0)))
            for place, (shown, true, false) in conditions.items():
                before = merged[place]
                merged[place] = (before[0] or shown, before[1] + true, before[2] + false)
    times = collections.Counter()
    result = []
    for (path, span), conditions in sorted(found.items()):
        decision = sources.between(path, span)
        for place, (shown, true, false) in sorted(conditions.items()):
            text = sources.between(path, place)
            file = path[len(folder):]
            times[file, decision, text] += 1
            if times[file, decision, text] > 1:
                text += f" #{times[file, decision, text]}"
            seen = "both" if true and false else "only true" if true else "only false" if false else "never evaluated"
            result.append(Condition(file, *place[:2], span, decision, text, shown, seen))
    return result


def read_unreached(text):
    entries = []
    fields = last = None
    for line in text.splitlines():
        if not line.strip() or line.startswith("#"):
            continue
        if not line.startswith(" "):
            fields = {"file": line.strip(), "decision": "", "condition": "", "reason": ""}
            entries.append(fields)
            last = None
            continue
        named = re.match(r"  (decision|condition|reason): *(.*)", line)
        if fields is None or (not named and (last is None or not line.startswith("    "))):
            raise ValueError(f"not part of an entry: {line}")
        if named:
            last = named.group(1)
            fields[last] = named.group(2).strip()
        else:
            fields[last] += " " + line.strip()
    return [Entry(**entry) for entry in entries]


def problems_of(conditions, entries):
    """What is neither shown nor named, and what is named wrongly."""
    known = {(condition.file, condition.decision, condition.text): condition for condition in conditions}
    named = set()
    for entry in entries:
        key = entry[:3]
        name = f"{entry.file}: {entry.condition} in {entry.decision}"
        if key not in known:
            yield f"named, but not in the sources: {name}"
        elif known[key].shown:
            yield f"named, but a test shows it: {name}"
        elif key in named:
            yield f"named twice: {name}"
        elif not entry.reason:
            yield f"named without a reason: {name}"
        named.add(key)
    for key, condition in known.items():
        if not condition.shown and key not in named:
            yield (f"not shown: {condition.file}:{condition.line}:{condition.column}: {condition.text}"
                   f" ({condition.seen}) in {condition.decision}")
    if len(entries) > MOST_UNREACHED * len(conditions):
        yield f"more than {MOST_UNREACHED:.0%} of the conditions are named: {len(entries)} of {len(conditions)}"


def table(conditions, entries):
    rows = collections.defaultdict(lambda: [set(), 0, 0, 0])
    for condition in conditions:
        for name in (str(pathlib.PurePath(condition.file).parent), "all of src"):
            rows[name][0].add((condition.file, condition.place))
            rows[name][1] += 1
            rows[name][2] += condition.shown
    for entry in entries:
        for name in (str(pathlib.PurePath(entry.file).parent), "all of src"):
            rows[name][3] += 1
    yield f"{'folder':<18}{'decisions':>10}{'conditions':>11}{'shown':>7}{'named':>7}{'share':>9}"
    for name in sorted(rows, key=lambda name: (name == "all of src", name)):
        decisions, count, shown, named = rows[name]
        share = 100 * shown / count if count else 100
        yield f"{name:<18}{len(decisions):>10}{count:>11}{shown:>7}{named:>7}{share:>8.2f}%"


def not_compiled(export, folder):
    """The sources that no program contains."""
    compiled = {file["filename"] for file in export["data"][0]["files"]}
    return [str(path.relative_to(folder)) for path in sorted(folder.rglob("*"))
            if path.suffix in (".cpp", ".mm") and str(path) not in compiled]


def main(root, export, unreached):
    folder = pathlib.Path(root).resolve() / "src"
    data = json.loads(pathlib.Path(export).read_text())
    conditions = conditions_in(data, folder)
    entries = read_unreached(pathlib.Path(unreached).read_text())
    print("\n".join(table(conditions, entries)))
    for path in not_compiled(data, folder):
        print(f"in no program of the tests: src/{path}")
    problems = list(problems_of(conditions, entries))
    print("\n".join(problems) if problems else "Every condition is shown to matter or named.")
    return 1 if problems or not conditions else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
