#!/usr/bin/env python3
"""Prints what a build with TALORA_COVERAGE counted.

    coverage-table.py BUILD                  lines and branches per folder and per file
    coverage-table.py BUILD --lines FILE...  the lines of these files that were not run

A line of a header counts as run when any file that includes it ran it.  Branches that only an exception
takes are left out.
"""
import collections
import json
import os
import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent

# What takes in data of others has a higher goal than the rest.
GOALS = (
    ("all of Src", 90, ("Src/",)),
    ("readers, streams, ciphers", 97, (
        "Src/Basic/FileType", "Src/Basic/LittleEndian", "Src/Basic/Parser", "Src/Basic/SafeFile",
        "Src/Basic/Stream", "Src/BN/Files/BnParse", "Src/BN/Files/GzipMember", "Src/BN/Files/NetCipher", "Src/BN/Files/NetContainer",
        "Src/BN/Files/NetFields", "Src/Misc/Crypto/", "Src/VarVal/CaseFile.", "Src/VarVal/CaseParse",
        "Src/VarVal/CaseValues")),
)


class Counted:
    """How often each line and each branch, by line and place in the line, was taken."""

    def __init__(self):
        self.lines = collections.Counter()
        self.branches = collections.Counter()

    def missing(self):
        return sorted(line for line, times in self.lines.items() if times == 0)

    def branches_missing(self):
        return sum(times == 0 for times in self.branches.values())


def count(build):
    """{file: Counted}, of Src only."""
    found = collections.defaultdict(Counted)
    notes = sorted((build / "CMakeFiles" / "talora_objects.dir").rglob("*.gcno"))
    if not notes:
        sys.exit(f"nothing was counted in {build}: run Scripts/coverage")
    for note in notes:
        run = subprocess.run(["gcov", "--branch-probabilities", "--json-format", "--stdout", note],
                             cwd=build, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        if run.returncode != 0:
            sys.exit(f"{note.name} is newer than what was counted: run Scripts/coverage")
        for file in json.loads(run.stdout)["files"]:
            name = os.path.relpath(os.path.join(build, file["file"]), ROOT)
            if not name.startswith("Src/"):
                continue
            for line in file["lines"]:
                number = line["line_number"]
                found[name].lines[number] += line["count"]
                taken = [branch["count"] for branch in line["branches"] if not branch["throw"]]
                for place, times in enumerate(taken):
                    found[name].branches[number, place] += times
    return found


def ranges(numbers):
    """[1, 2, 3, 7] as 1-3 7"""
    spans = []
    for number in numbers:
        if spans and spans[-1][1] == number - 1:
            spans[-1][1] = number
        else:
            spans.append([number, number])
    return " ".join(f"{a}" if a == b else f"{a}-{b}" for a, b in spans)


def print_row(title, files, goal=None):
    lines = sum(len(file.lines) for file in files)
    missing = sum(len(file.missing()) for file in files)
    branches = sum(len(file.branches) for file in files)
    branches_missing = sum(file.branches_missing() for file in files)
    share = 100 - 100 * missing / max(lines, 1)
    note = "" if goal is None else f"  goal {goal} %{'' if share >= goal else ': MISSED'}"
    print(f"{title:32}{lines:8}{missing:9}{share:7.1f} %{branches:10}{branches_missing:9}"
          f"{100 - 100 * branches_missing / max(branches, 1):7.1f} %{note}")


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    counted = count(pathlib.Path(sys.argv[1]).resolve())
    if sys.argv[2:3] == ["--lines"]:
        for name in sys.argv[3:]:
            print(f"{name}: {ranges(counted[name].missing())}")
        return
    print(f"{'':32}{'lines':>8}{'not run':>9}{'run':>9}{'branches':>10}{'missed':>9}{'taken':>9}")
    for folder in sorted({os.path.dirname(name) for name in counted}):
        print_row(folder, [counted[name] for name in counted if os.path.dirname(name) == folder])
    for title, goal, beginnings in GOALS:
        print_row(title, [counted[name] for name in counted if name.startswith(beginnings)], goal)
    print()
    for name in sorted(counted, key=lambda name: (-len(counted[name].missing()), name)):
        if counted[name].missing():
            print_row(name, [counted[name]])


main()
