"""Runs the tests on every generated mutant of the daemon: for each only the tests that reach it, until one fails.

Every result is kept at once in BUILD/tests/mutants/generated/results.jsonl, so a run that was interrupted continues;
what changes in a source makes the results of that file void, and another test those of all survivors. Ends with 0 if each mutant is killed or listed in
equivalent.txt.
"""

import argparse
import collections
import hashlib
import json
import os
import pathlib
import queue
import random
import re
import shutil
import subprocess
import sys
import tempfile
import threading
import time

import find_mutants
import write_sources

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[2]
SOURCES = ROOT / "src"
TEST_PROGRAMS = ["brisko-mutated-tests", "brisko-mutated-exchange-tests"]
EQUIVALENT = HERE / "equivalent.txt"
MOST_EQUIVALENT = 0.05
KILLED = {"failed", "hung", "refused"}
# A mutant may make a test slower; one that takes this many times as long loops.
PATIENCE, LEAST_MILLISECONDS = 10, 3000


class Build:
    def __init__(self, folder):
        self.folder = pathlib.Path(folder).resolve()
        self.generated = self.folder / "tests/mutants/generated"
        self.copy = self.generated / "src"
        self.programs = [self.folder / name for name in TEST_PROGRAMS]
        self.lab = self.folder / "brisko-mutated-lab"

    def make(self, jobs, targets=(*TEST_PROGRAMS, "brisko-mutated-lab")):
        """Where the compiler refuses a choice at run time, the mutants there need builds of their own."""
        for _ in range(5):
            done = subprocess.run(["cmake", "--build", self.folder, "--parallel", str(jobs), "--target", *targets, "--",
                                   "-k", "0"], text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
            if done.returncode == 0:
                return
            pattern = re.compile(rf"{re.escape(str(self.copy))}/(\S+?):(\d+):\d+: error:")
            # The copy has a line more at its top.
            places = {f"{file}:{int(line) - 1}" for file, line in pattern.findall(done.stdout)}
            refused = self.generated / "refused.txt"
            known = set(refused.read_text().split())
            if not places - known:
                break
            print("Refused by the compiler:", *sorted(places - known))
            refused.write_text("\n".join(sorted(known | places)) + "\n")
        raise SystemExit(done.stdout[-5000:])

    def mutants(self):
        listed = json.loads((self.copy / "mutants.json").read_text())
        return [find_mutants.Mutant(**{**mutant, "sites": [find_mutants.Site(**site) for site in mutant["sites"]]})
                for mutant in listed]


class Server:
    """A process of a program of tests that forks for each request."""

    def __init__(self, program, mutant=None):
        self.scratch = tempfile.mkdtemp(prefix="brisko-mutants-", dir="/dev/shm" if os.path.isdir("/dev/shm") else None)
        os.chmod(self.scratch, 0o755)  # some tests continue as another user
        environment = {**os.environ, "BRISKO_MUTANT_SERVER": "1", "BRISKO_MUTANT_SCRATCH": self.scratch}
        environment.pop("BRISKO_MUTANT", None)
        if mutant is not None:
            environment["BRISKO_MUTANT"] = str(mutant)
        self.process = subprocess.Popen([program], env=environment, text=True, stdin=subprocess.PIPE,
                                        stdout=subprocess.PIPE)
        self.reached_before = [int(word) for word in self.process.stdout.readline().split()]

    def ask(self, mutant, milliseconds, test):
        """The outcome, the milliseconds, and what was reached."""
        self.process.stdin.write(f"{mutant} {milliseconds} {test}\n")
        self.process.stdin.flush()
        outcome, took, *reached = self.process.stdout.readline().split()
        if outcome != "passed":
            for left in pathlib.Path(self.scratch).iterdir():
                shutil.rmtree(left, ignore_errors=True) if left.is_dir() else left.unlink()
        return outcome, int(took), [int(word) for word in reached]

    def close(self):
        self.process.stdin.close()
        self.process.wait()
        shutil.rmtree(self.scratch, ignore_errors=True)


class Servers:
    """One for each program, started when it is first asked. A test's name is "PROGRAM:SUITE.TEST"."""

    def __init__(self, build, mutant=None):
        self.build, self.mutant, self.servers = build, mutant, {}

    def of(self, program):
        if program not in self.servers:
            self.servers[program] = Server(self.build.folder / program, self.mutant)
        return self.servers[program]

    def ask(self, mutant, milliseconds, test):
        program, name = test.split(":", 1)
        return self.of(program).ask(mutant, milliseconds, name)

    def close(self):
        for server in self.servers.values():
            server.close()


def in_parallel(jobs, items, worker):
    """Each thread calls worker(next) once; next() gives the items one by one, then None."""
    waiting = queue.SimpleQueue()
    for item in items:
        waiting.put(item)

    def following():
        try:
            return waiting.get_nowait()
        except queue.Empty:
            return None

    threads = [threading.Thread(target=worker, args=(following,)) for _ in range(jobs)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


# ---- Which tests reach what


def listed_tests(program):
    """The source of each test, by its name."""
    with tempfile.NamedTemporaryFile(suffix=".json") as file:
        subprocess.run([program, "--gtest_list_tests", f"--gtest_output=json:{file.name}"], check=True,
                       stdout=subprocess.DEVNULL)
        listed = json.load(open(file.name))
    return {f"{program.name}:{suite['name']}.{test['name']}": test["file"] for suite in listed["testsuites"]
            for test in suite["testsuite"]}


def identity(*paths):
    digest = hashlib.sha256()
    for path in paths:
        digest.update(path.read_bytes())
    return digest.hexdigest()


def kept(path, key, make):
    """What make() returned when the key was the same."""
    if path.exists():
        data = json.loads(path.read_text())
        if data["key"] == key:
            return data["value"]
    value = make()
    path.write_text(json.dumps({"key": key, "value": value}))
    return value


def reach_of_tests(build, jobs):
    """For each test its file, milliseconds and the mutants it reaches; and those reached before any test."""
    tests = {test: file for program in build.programs for test, file in listed_tests(program).items()}
    reach, before = {}, set()

    def worker(following):
        servers = Servers(build)
        before.update(*(servers.of(program.name).reached_before for program in build.programs))
        while (test := following()) is not None:
            outcome, took, reached = servers.ask(0, 120000, test)
            if outcome != "passed":
                print(f"{test} {outcome} without a mutant, and is left out.")
                continue
            reach[test] = {"file": tests[test], "milliseconds": took, "reached": reached}
        servers.close()

    in_parallel(jobs, tests, worker)
    return {"tests": reach, "before": sorted(before)}


def reach_of_scenarios(build, jobs):
    reach = {}

    def worker(following):
        while (scenario := following()) is not None:
            with tempfile.NamedTemporaryFile() as file:
                begun = time.monotonic()
                passed = run_scenario(build, scenario, 600, {"BRISKO_MUTANT_REACHED": file.name})
                took = int(1000 * (time.monotonic() - begun))
                reached = [number for number, byte in enumerate(open(file.name, "rb").read()) if byte]
            if passed != "passed":
                print(f"The scenario {scenario} {passed} without a mutant, and is left out.")
                continue
            reach[scenario] = {"milliseconds": took, "reached": reached}

    in_parallel(jobs, sorted(str(path) for path in (ROOT / "tests/scenarios").glob("*.json")), worker)
    return reach


def run_scenario(build, scenario, seconds, environment):
    process = subprocess.Popen([build.lab, "run", scenario], env={**os.environ, **environment}, start_new_session=True,
                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        return "passed" if process.wait(seconds) == 0 else "failed"
    except subprocess.TimeoutExpired:
        return "hung"
    finally:
        try:
            os.killpg(process.pid, 9)
        except ProcessLookupError:
            pass
        process.wait()


# ---- The run


class Run:
    def __init__(self, build, jobs):
        self.build, self.jobs = build, jobs
        self.mutants = build.mutants()
        self.key = identity(*build.programs, build.copy / "mutants.json")
        self.reach = kept(build.generated / "reach.json", self.key, lambda: reach_of_tests(build, jobs))
        self.tests_of = collections.defaultdict(list)
        for test, entry in self.reach["tests"].items():
            for number in entry["reached"]:
                self.tests_of[number].append(test)
        self.scenarios = None
        self.killers = collections.defaultdict(list)
        self.lock = threading.Lock()
        self.sources = {}
        self.results = self.read_results()

    # Results: by the name of the mutant and the text of its source; of survivors only those of the same tests.
    def source(self, file):
        if file not in self.sources:
            self.sources[file] = identity(SOURCES / file)[:16]
        return self.sources[file]

    def read_results(self):
        path = self.build.generated / "results.jsonl"
        results = {}
        for line in path.read_text().splitlines() if path.exists() else []:
            entry = json.loads(line)
            name = tuple(entry["name"])
            same_tests = entry["outcome"] in KILLED or entry["tests_key"] == self.key
            if same_tests and (SOURCES / name[0]).exists() and entry["source"] == self.source(name[0]):
                results[name] = entry
        return results

    def keep(self, mutant, outcome, by, count, seconds):
        entry = {"name": mutant.name, "source": self.source(mutant.file), "tests_key": self.key,
                 "outcome": outcome, "by": by, "tests": count, "seconds": round(seconds, 3)}
        with self.lock:
            self.results[mutant.name] = entry
            with open(self.build.generated / "results.jsonl", "a") as file:
                file.write(json.dumps(entry, ensure_ascii=False) + "\n")

    def ordered_tests(self, mutant, tests):
        """First what has killed mutants of this function, then the tests of the file, of the folder, and the others;
        of these first those that reach little, and the slow ones at the end."""
        killers = {test: place for place, test in enumerate(self.killers[mutant.file, mutant.function])}
        file = pathlib.PurePath(mutant.file)

        def rank(test):
            entry = self.reach["tests"][test]
            source = pathlib.PurePath(entry["file"])
            distance = 0 if source.stem == f"{file.stem}_test" else 1 if source.parent.name == file.parent.name else 2
            return (entry["milliseconds"] > 1000, killers.get(test, len(killers)), distance,
                    len(entry["reached"]) * (entry["milliseconds"] + 5))

        return sorted(tests, key=rank)

    def limit(self, milliseconds):
        return max(LEAST_MILLISECONDS, PATIENCE * milliseconds)

    def run_tests(self, servers, number, mutant, tests):
        """The test that kills it, if any, and how many were run."""
        for count, test in enumerate(self.ordered_tests(mutant, tests), 1):
            outcome, _, _ = servers.ask(number, self.limit(self.reach["tests"][test]["milliseconds"]), test)
            if outcome in KILLED:
                with self.lock:
                    killers = self.killers[mutant.file, mutant.function]
                    if test in killers:
                        killers.remove(test)
                    killers.insert(0, test)
                return outcome, test, count
        return "survived", None, len(tests)

    def run_scenarios(self, mutant):
        if self.scenarios is None:
            key = identity(self.build.lab, self.build.copy / "mutants.json")
            with self.lock:
                self.scenarios = kept(self.build.generated / "reach_of_scenarios.json", key,
                                      lambda: reach_of_scenarios(self.build, self.jobs))
        reaching = [item for item in self.scenarios.items() if mutant.number in item[1]["reached"]]
        for count, (scenario, entry) in enumerate(sorted(reaching, key=lambda item: item[1]["milliseconds"]), 1):
            outcome = run_scenario(self.build, scenario, self.limit(entry["milliseconds"]) / 1000,
                                   {"BRISKO_MUTANT": str(mutant.number)})
            if outcome in KILLED:
                return outcome, pathlib.PurePath(scenario).name, count
        return "survived", None, len(reaching)

    def try_mutant(self, servers, mutant, scenarios):
        begun = time.monotonic()
        tests = self.tests_of[mutant.number]
        outcome, by, count = self.run_tests(servers, mutant.number, mutant, tests)
        if outcome == "survived" and scenarios:
            outcome, by, more = self.run_scenarios(mutant)
            count += more
        if outcome == "survived" and count == 0:
            outcome = "not reached"
        self.keep(mutant, outcome, by, count, time.monotonic() - begun)

    def run(self, mutants, scenarios):
        begun, before = time.monotonic(), set(self.reach["before"])

        def worker(following):
            servers = Servers(self.build)
            while (mutant := following()) is not None:
                if mutant.number in before:  # has to be active from the start
                    own = Servers(self.build, mutant.number)
                    self.try_mutant(own, mutant, scenarios)
                    own.close()
                else:
                    self.try_mutant(servers, mutant, scenarios)
            servers.close()

        in_parallel(self.jobs, mutants, worker)
        return time.monotonic() - begun

    def run_alone(self, mutants):
        """Builds each of them in its turn. Tests that reach its file decide; of a header, all tests."""
        begun = time.monotonic()
        numbers = {mutant.number: mutant.file for mutant in self.mutants}
        for mutant in mutants:
            started = time.monotonic()
            write_sources.write(SOURCES, self.build.copy, self.mutants, mutant.number)
            tests = [test for test, entry in self.reach["tests"].items() if mutant.file.endswith(".h") or
                     any(numbers[number] == mutant.file for number in entry["reached"])]
            built = subprocess.run(["cmake", "--build", self.build.folder, "--parallel", str(self.jobs), "--target",
                                    *TEST_PROGRAMS], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            if built.returncode != 0:
                self.keep(mutant, "refused", "the compiler", 0, time.monotonic() - started)
                continue
            servers = Servers(self.build)
            self.keep(mutant, *self.run_tests(servers, mutant.number, mutant, tests), time.monotonic() - started)
            servers.close()
        write_sources.write(SOURCES, self.build.copy, self.mutants)
        return time.monotonic() - begun


# ---- What no input can tell


def read_equivalent(text):
    """The names of the mutants, each with its reason."""
    entries = []
    for number, line in enumerate(text.splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        if line[0].isspace():
            entries[-1][1].append(line.strip())
            continue
        name = tuple(line.strip().split(" | ", 3))
        if len(name) != 4:
            raise SystemExit(f"equivalent.txt:{number}: not \"file | function | operator | text\"")
        entries.append((name, []))
    return entries


def problems_of_equivalent(entries, mutants):
    """Stale, repeated or without a reason."""
    found = collections.Counter(mutant.name for mutant in mutants)
    seen = collections.Counter(name for name, _ in entries)
    for name, reasons in entries:
        if found[name] != 1:
            yield f"matches {found[name]} mutants: {' | '.join(name)}"
        if seen[name] > 1:
            yield f"is repeated: {' | '.join(name)}"
        if not reasons:
            yield f"has no reason: {' | '.join(name)}"
    if len(entries) > MOST_EQUIVALENT * len(mutants):
        yield f"lists {len(entries)} of {len(mutants)} mutants, more than {MOST_EQUIVALENT:.0%}"


# ---- The command


def selected(run, arguments):
    mutants = [mutant for mutant in run.mutants if mutant.alone == arguments.alone and
               mutant.file.startswith(arguments.file)]
    if arguments.sample:
        mutants = random.Random(arguments.seed).sample(mutants, min(arguments.sample, len(mutants)))
        mutants.sort(key=lambda mutant: mutant.number)
    shard, shards = map(int, arguments.shard.split("/"))
    return mutants[shard - 1::shards]


def report(run, mutants, equivalent):
    """False if a mutant survives that is not listed, or one that is listed does not."""
    outcomes = collections.Counter()
    complete = True
    for mutant in mutants:
        entry = run.results.get(mutant.name)
        outcome = entry["outcome"] if entry else "not run"
        survives = outcome not in KILLED
        if mutant.name in equivalent:
            outcome = "equivalent" if survives else outcome
            if not survives:
                print(f"equivalent.txt lists what {entry['by']} kills: {' | '.join(mutant.name)}")
                complete = False
        elif survives:
            print(f"src/{mutant.file}:{mutant.line}: {outcome} ({entry['tests'] if entry else 0} tests)")
            print(f"  {' | '.join(mutant.name)}")
            complete = False
        outcomes[outcome] += 1
    operators = collections.Counter(mutant.operator for mutant in mutants)
    print("Mutants:", ", ".join(f"{count} {name}" for name, count in operators.most_common()))
    print("Results:", ", ".join(f"{count} {name}" for name, count in outcomes.most_common()))
    return complete


def parsed_arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("build", help="the folder of a configured build")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--file", default="", help="only files of src/ whose names begin so: policy/heat")
    parser.add_argument("--sample", type=int, default=0, help="only so many, chosen at random")
    parser.add_argument("--seed", type=int, default=1, help="of the sample")
    parser.add_argument("--shard", default="1/1", help="the first of two halves: 1/2")
    parser.add_argument("--no-scenarios", action="store_true", help="do not try the survivors in the scenarios")
    parser.add_argument("--alone", action="store_true", help="those that cannot be switched, with a build for each")
    parser.add_argument("--check", action="store_true", help="only check equivalent.txt; builds nothing")
    return parser.parse_args()


def main():
    arguments = parsed_arguments()
    entries = read_equivalent(EQUIVALENT.read_text())
    if arguments.check:
        problems = list(problems_of_equivalent(entries, find_mutants.find(SOURCES, jobs=arguments.jobs)))
        print(*(f"equivalent.txt {problem}" for problem in problems), sep="\n")
        return 1 if problems else 0
    build = Build(arguments.build)
    build.make(arguments.jobs)
    run = Run(build, arguments.jobs)
    problems = list(problems_of_equivalent(entries, run.mutants))
    print(*(f"equivalent.txt {problem}" for problem in problems), sep="\n")
    mutants = selected(run, arguments)
    due = [mutant for mutant in mutants if mutant.name not in run.results]
    seconds = run.run_alone(due) if arguments.alone else run.run(due, not arguments.no_scenarios)
    complete = report(run, mutants, {name for name, _ in entries})
    alone = sum(mutant.alone for mutant in run.mutants)
    print(f"{len(due)} of {len(mutants)} were run now, in {seconds:.0f} s with {arguments.jobs} jobs. "
          f"Of all {len(run.mutants)}, {alone} need builds of their own.")
    return 0 if complete and not problems else 1


if __name__ == "__main__":
    sys.exit(main())
