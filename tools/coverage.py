#!/usr/bin/env python3
"""Merges what the tests reached natively and under Wine into one table: ./dev coverage.

A line or a branch counts as reached when either run reached it. Branches are the ways on from
a condition; those that only an exception takes are left out, since every call has one.
"""

import argparse
import collections
import gzip
import json
import pathlib
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent


def notes_of(build):
    return [path for part in ("src", "client") for path in (build / part).rglob("*.gcno")]


def gather(build, counters):
    """Puts the counters of a cross build, whose names are paths with "#" in them, beside its notes."""
    for path in counters.glob("*.gcda"):
        target = pathlib.Path(path.name.replace("#", "/"))
        if target.parent.is_dir():
            shutil.copyfile(path, target)


def read(build, gcov, files):
    """Adds, for each file of ours, lines and branches that the build has, with their counts."""
    for notes in notes_of(build):
        if not notes.with_suffix(".gcda").is_file():
            continue
        with tempfile.TemporaryDirectory() as folder:
            subprocess.run([gcov, "--json-format", "--branch-probabilities", notes.with_suffix(".gcda")], cwd=folder,
                           check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            for result in pathlib.Path(folder).glob("*.gz"):
                add(json.loads(gzip.open(result).read()), build, files)


def name_of(path, build):
    """Below the root; nothing for files of others. Paths are as the compiler was told to show them."""
    for base in (build, ROOT):
        found = (base / path).resolve()
        if found.is_relative_to(ROOT) and found.is_file():
            name = found.relative_to(ROOT).as_posix()
            return name if name.startswith(("src/", "client/")) else None
    return None


def add(report, build, files):
    for file in report["files"]:
        name = name_of(file["file"], build)
        if not name:
            continue
        lines, branches = files[name]
        for line in file["lines"]:
            number = line["line_number"]
            lines[number] = lines.get(number, 0) + line["count"]
            ways = [branch["count"] for branch in line["branches"] if not branch["throw"]]
            if len(ways) > 1:
                kept = branches.setdefault((build.name, number), [0] * len(ways))
                for i, count in enumerate(ways[:len(kept)]):
                    kept[i] += count


def ways_of(branches):
    """Ways on and those taken, a line; where two builds differ in the ways, the better known one."""
    best = {}
    for (_, number), ways in branches.items():
        taken = sum(1 for count in ways if count)
        old = best.get(number)
        if old is None or taken * old[0] > old[1] * len(ways):
            best[number] = (len(ways), taken)
    return sum(all_ways for all_ways, _ in best.values()), sum(taken for _, taken in best.values())


def shares(rows):
    totals = [sum(row[i] for row in rows) for i in range(4)]
    part = [100 * totals[i + 1] / totals[i] if totals[i] else 100 for i in (0, 2)]
    return f"{totals[1]:6} of {totals[0]:6} {part[0]:5.1f} %   {totals[3]:6} of {totals[2]:6} {part[1]:5.1f} %"


def ranges(numbers):
    found = []
    for number in sorted(numbers):
        if found and number <= found[-1][1] + 2:
            found[-1][1] = number
        else:
            found.append([number, number])
    return " ".join(str(a) if a == b else f"{a}-{b}" for a, b in found)


def main():
    parser = argparse.ArgumentParser(prog="./dev coverage", description=__doc__.splitlines()[0])
    parser.add_argument("--native", type=pathlib.Path, default=ROOT / "build/coverage")
    parser.add_argument("--windows", type=pathlib.Path, default=ROOT / "build/windows-coverage")
    parser.add_argument("--missed", action="store_true", help="name every file's lines that no test reached")
    arguments = parser.parse_args()
    files = collections.defaultdict(lambda: ({}, {}))
    read(arguments.native, "gcov-12", files)
    gather(arguments.windows, arguments.windows / "counters")
    read(arguments.windows, "x86_64-w64-mingw32-gcov-posix", files)
    rows = {}
    for name, (lines, branches) in files.items():
        rows[name] = (len(lines), sum(1 for count in lines.values() if count), *ways_of(branches))
    folders = sorted({name.rpartition("/")[0] for name in rows})
    print(f"    {'folder':26} {'lines':>23}   {'branches':>25}")
    for folder in folders:
        print(f"    {folder:26} {shares([row for name, row in rows.items() if name.rpartition('/')[0] == folder])}")
    print(f"    {'together':26} {shares(list(rows.values()))}")
    if arguments.missed:
        for name in sorted(files):
            missed = [number for number, count in files[name][0].items() if not count]
            if missed:
                print(f"{name}: {ranges(missed)}")
    return 0 if rows else 1


if __name__ == "__main__":
    sys.exit(main())
