#!/usr/bin/python3
"""Measures the service's hot paths beside what people would use instead, in one
run, and writes docs/performance.md. Called by ./dev bench.

A cell is one process. All cells of a group are run once, then all once more, and
so on; what counts is the median of each. A cell that ends with an error, takes too
long, or whose lines, bytes or counts are wrong afterwards has failed: its targets
say so, the others keep their figures, and the exit status is 1.

A whole run replaces the figures of this kind of processor in bench/results; the
page shows those of all kinds. A partial run (--quick, --only) writes its figures
and its page into the work folder only. --render makes the page anew from the
figures that are kept.
"""

import argparse
import contextlib
import importlib
import pathlib
import sys

import report
import rounds

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.append(str(ROOT / "tools/stage"))  # the groups stand on it
sys.dont_write_bytecode = True
GROUPS = ("log", "scrub", "micro", "http", "wine")
STAGE_SECONDS = 900  # signing bundles of 1 GiB is the most of it


def parse():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    places = {"native": "folder of the native benchmark programs", "windows": "the Windows build",
              "dist": "the shippable tree", "work": "folder for what a run needs"}
    for name, text in places.items():
        parser.add_argument(f"--{name}", type=pathlib.Path, help=text)
    parser.add_argument("--rounds", type=int, default=5)
    parser.add_argument("--only", nargs="+", choices=GROUPS, default=GROUPS)
    parser.add_argument("--no-growth", action="store_true")
    parser.add_argument("--quick", action="store_true", help="small loads, one round: tries the programs only")
    parser.add_argument("--render", action="store_true", help="measure nothing, make the page anew")
    options = parser.parse_args()
    for name in places:
        place = getattr(options, name)
        if place is None and not options.render:
            parser.error(f"--{name} is missing")
        setattr(options, name, place and place.resolve())
    if options.quick:
        options.rounds = 1
    options.growth_rounds = min(options.rounds, 3)
    options.is_whole = not options.quick and not options.no_growth and len(options.only) == len(GROUPS)
    return options


def measure_group(name, group, options, results):
    with contextlib.ExitStack() as stage:
        with rounds.time_limit(STAGE_SECONDS):
            bench = group.Bench(options, stage)
        rounds.perform(name, bench.cells(), options.rounds, results, bench.recover)
        rounds.perform(f"{name}, once", bench.once_cells(), 1, results, bench.recover)
        if not options.no_growth:
            rounds.perform(f"{name}, growth", bench.growth_cells(), options.growth_rounds, results, bench.recover)


def measure(groups, options):
    results = rounds.Results()
    for name, group in groups.items():
        try:
            measure_group(name, group, options, results)
        except Exception as error:  # the other groups do not depend on it
            print(f"    {name}: its stage failed: {error}")
            for cell in report.cells_shown(group):
                if not results.has(cell):
                    results.fail(cell, error)
    return results


def main():
    options = parse()
    groups = {name: importlib.import_module(f"{name}_group") for name in options.only}
    whole = options.is_whole or options.render
    kept, docs = (ROOT / "bench/results", ROOT / "docs") if whole else (options.work / "results", options.work / "docs")
    failures = {}
    if not options.render:
        options.work.mkdir(parents=True, exist_ok=True)
        results = measure(groups, options)
        failures = results.failures
        report.keep(report.of_this_machine(results, options), groups.values(), kept, docs)
    report.write_page(groups.values(), kept, docs)
    for cell, text in failures.items():
        print(f"    FAILED: {cell}\n" + "".join(f"        {line}\n" for line in text.splitlines()), end="")
    print(f"The report is in {(docs / 'performance.md').relative_to(ROOT)}; cells that failed: {len(failures)}")
    return 1 if failures else 0


sys.exit(main())
