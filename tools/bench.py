#!/usr/bin/python3
"""Measures the service's hot paths beside what people would use instead, in one
run, and writes docs/performance.md. Called by ./dev bench.

A cell is one process. All cells of a group are run once, then all once more, and
so on; what counts is the median of each. A cell whose lines, bytes or counts are
wrong afterwards ends the run. A partial run (--quick, --only) writes its report
into the work folder only.
"""

import argparse
import contextlib
import pathlib
import sys

sys.dont_write_bytecode = True
ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path[:0] = [str(ROOT / folder) for folder in ("bench", "tools/stage")]

import http_group
import log_group
import micro_group
import report
import rounds
import scrub_group
import wine_group

GROUPS = {"log": log_group, "scrub": scrub_group, "micro": micro_group, "http": http_group, "wine": wine_group}


def parse():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--native", type=pathlib.Path, required=True, help="folder of the native benchmark programs")
    parser.add_argument("--windows", type=pathlib.Path, required=True, help="the Windows build")
    parser.add_argument("--dist", type=pathlib.Path, required=True, help="the shippable tree")
    parser.add_argument("--work", type=pathlib.Path, required=True)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--only", nargs="+", choices=GROUPS, default=list(GROUPS))
    parser.add_argument("--no-growth", action="store_true")
    parser.add_argument("--quick", action="store_true", help="small loads, one round: tries the programs, proves nothing")
    options = parser.parse_args()
    for name in ("native", "windows", "dist", "work"):
        setattr(options, name, getattr(options, name).resolve())
    if options.quick:
        options.rounds = 1
    options.growth_rounds = min(options.rounds, 3)
    return options


def main():
    options = parse()
    options.work.mkdir(parents=True, exist_ok=True)
    results = rounds.Results()
    sections = []
    for name in options.only:
        group = GROUPS[name]
        with contextlib.ExitStack() as stage:
            bench = group.Bench(options, stage)
            rounds.perform(name, bench.cells(), options.rounds, results)
            bench.measure_once(results)
            if not options.no_growth:
                rounds.perform(f"{name}, growth", bench.growth_cells(), options.growth_rounds, results)
        sections.append(report.Section(group, results, options))
    whole = not options.quick and not options.no_growth and len(options.only) == len(GROUPS)
    target = ROOT / "docs" if whole else options.work / "docs"
    missed = report.write(sections, target, options)
    print(f"The report is in {(target / 'performance.md').relative_to(ROOT)}; targets missed: {missed}")


main()
