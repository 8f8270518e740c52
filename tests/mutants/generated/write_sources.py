"""Writes a copy of the sources in which each mutant is a choice at run time, except those that need a build of their
own: of these, one can be written in place of the original.

    write_sources.py SOURCES COPY [--refused FILE] [--alone NUMBER]

COPY/mutants.json then lists all mutants. FILE names places, "FILE:LINE", where the compiler refused a choice: the
mutants there count as alone.
"""

import argparse
import dataclasses
import json
import pathlib

import find_mutants
from source_text import SourceText

HEADER = b'#include "mutants/generated/active_mutant.h"\n'


class Place:
    """A range of a file with all the sites that have exactly this range, and the places inside it."""

    def __init__(self, start, end):
        self.start, self.end = start, end
        self.sites = []
        self.inside = []


def nested(sites_of_mutants, length):
    """The places as a tree. A place that overlaps another is left out: its mutants are returned."""
    ranges = {}
    for mutant, site in sites_of_mutants:
        ranges.setdefault((site.start, site.end), []).append((mutant, site))
    whole = Place(0, length)
    path = [whole]
    left_out = []
    for start, end in sorted(ranges, key=lambda place: (place[0], -place[1])):
        while path[-1].end <= start:
            path.pop()
        if end > path[-1].end:
            left_out += [mutant for mutant, _ in ranges[start, end]]
            continue
        place = Place(start, end)
        place.sites = ranges[start, end]
        path[-1].inside.append(place)
        path.append(place)
    return whole, left_out


def written(source, place, alone):
    """The text of a place with all the choices in it."""
    parts, at = [], place.start
    for inner in place.inside:
        parts += [source.data[at:inner.start].decode(), written(source, inner, alone)]
        at = inner.end
    text = "".join(parts) + source.data[at:place.end].decode()
    return with_choices(text, [entry for entry in place.sites if not entry[0].alone or entry[0].number == alone])


def with_choices(text, sites):
    if not sites:
        return text
    instead = [site.other for mutant, site in sites if mutant.alone]
    if instead:
        return instead[0]
    chosen = lambda mutant, site: f"brisko_mutant{'_at_run_time' if site.constexpr else ''}({mutant.number})"
    shapes = {site.shape for _, site in sites}
    if "statement" in shapes:
        branches = "".join(f"if ({chosen(*entry)}) {{ {entry[1].other} }} else " for entry in sites)
        return f"{{ {branches}{{ {text} }} }}"
    if "declared" in shapes:
        (mutant, site), = sites
        truth = site.other[1:]
        return f"{text}; ({chosen(mutant, site)} ? {site.other} : {truth})"
    type = "bool" if "condition" in shapes else next((site.type for _, site in sites if site.type), "")
    converted = lambda value: f"static_cast<{type}>({value})" if type else f"({value})"
    text = converted(text)
    for mutant, site in sites:
        text = f"({chosen(mutant, site)} ? {converted(site.other)} : {text})"
    return text


def sites_by_file(mutants):
    files = {}
    for mutant in mutants:
        for site in mutant.sites:
            files.setdefault(site.file, []).append((mutant, site))
    return files


def write_if_changed(path, data):
    if path.exists() and path.read_bytes() == data:
        return
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(data)


def write(root, copy, mutants, alone=None):
    """The files of the copy, line by line as long as the originals, but for one line at the top."""
    files = sites_by_file(mutants)
    for path in sorted(root.rglob("*")):
        file = str(path.relative_to(root))
        if path.suffix not in {".cpp", ".h"} or file.startswith("platform/macos/"):
            continue
        source = SourceText(path.read_bytes())
        whole, left_out = nested(files.get(file, []), len(source.data))
        for mutant in left_out:
            mutant.alone = True
        write_if_changed(copy / file, HEADER + written(source, whole, alone).encode())
    listed = json.dumps([dataclasses.asdict(mutant) for mutant in mutants], indent=0, ensure_ascii=False)
    write_if_changed(copy / "mutants.json", listed.encode())


def refuse(mutants, places):
    """A constant keeps the uses that can be switched."""
    for mutant in mutants:
        accepted = [site for site in mutant.sites if (site.file, site.line) not in places]
        if accepted and mutant.operator == "constant":
            mutant.sites = accepted
        elif accepted != mutant.sites:
            mutant.alone = True


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("sources", type=pathlib.Path)
    parser.add_argument("copy", type=pathlib.Path)
    parser.add_argument("--refused", type=pathlib.Path)
    parser.add_argument("--alone", type=int)
    parser.add_argument("--jobs", type=int, default=1)
    arguments = parser.parse_args()
    mutants = find_mutants.find(arguments.sources, jobs=arguments.jobs)
    if arguments.refused and arguments.refused.exists():
        lines = [line.rsplit(":", 1) for line in arguments.refused.read_text().split()]
        refuse(mutants, {(file, int(line)) for file, line in lines})
    write(arguments.sources.resolve(), arguments.copy, mutants, arguments.alone)


if __name__ == "__main__":
    main()
