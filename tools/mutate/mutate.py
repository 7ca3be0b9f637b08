#!/usr/bin/env python3
"""Plants faults in src/ and client/, one at a time, and reports which of them no test notices.

Where and what is drawn by the seed. A fault is judged by the tests that come past it: natively
first and, if these are content, under Wine; a removed lock by clang's lock analysis before. What
does not compile is not counted, and another one is drawn instead. Now and then nothing is
planted, to see that tests fail for no other reason.

Outcomes are appended to build/mutate/outcomes.jsonl; what stands there is not tried again.
"""

import argparse
import collections
import json
import pathlib
import random
import subprocess
import sys
import time

from builds import Build, Copy, ROOT, is_refused, violates_lock_rules
from places import places
from schema import PROLOGUE, Schema

# How often each kind is drawn, of a hundred: the rarest kinds would otherwise hardly be met.
SHARES = {"relation": 20, "condition": 24, "constant": 16, "removed call": 20,
          "removed lock": 6, "swapped statements": 4, "level": 10}
CONTROL_EVERY = 25


def sources(patterns):
    listed = subprocess.check_output(["git", "-C", ROOT, "ls-files", *patterns], text=True).split()
    return [file for file in listed if file.endswith((".cpp", ".h")) and "/examples/" not in file]


def programme(files, seed):
    """All places, in an order that depends on the files and the seed alone."""
    by_kind = collections.defaultdict(list)
    for file in files:
        for place in places(ROOT, file):
            by_kind[place.kind].append(place)
    chance = random.Random(seed)
    for found in by_kind.values():
        chance.shuffle(found)
    while by_kind:
        kinds = sorted(by_kind)
        kind = chance.choices(kinds, [SHARES[one] for one in kinds])[0]
        yield by_kind[kind].pop()
        if not by_kind[kind]:
            del by_kind[kind]


class Run:
    def __init__(self, options):
        self.file = options.work / "outcomes.jsonl"
        self.outcomes = {}
        for one in map(json.loads, self.file.read_text().splitlines() if self.file.exists() else []):
            self.outcomes[one["fault"]] = one
        drawn = list(zip(range(1, options.count + 1), programme(sources(options.files), options.seed)))
        self.faults = {number: place for number, place in drawn}
        self.texts = {file: (ROOT / file).read_text() for file in {place.file for place in self.faults.values()}}
        self.told = {number: place.told(self.texts[place.file]) for number, place in self.faults.items()}
        self.copy = Copy(options.work / "copy")
        self.native, self.windows = Build(self.copy, "check"), Build(self.copy, "windows")
        self.rounds = 0

    def open(self, numbers, *outcomes):
        """Those of whom nothing, or only one of these outcomes is known."""
        return [number for number in numbers
                if self.outcomes.get(self.told[number], {"outcome": "unknown"})["outcome"] in ("unknown", *outcomes)]

    def note(self, fault, outcome, by, begun):
        one = {"fault": fault, "outcome": outcome, "by": by, "seconds": round(time.monotonic() - begun, 1)}
        self.outcomes[fault] = one
        with self.file.open("a") as lines:
            lines.write(json.dumps(one) + "\n")
        self.rounds += 1
        print(f"{self.rounds:4d} {outcome:13s}{one['seconds']:6.1f} s  {by or '-':30s} {fault}"[:200], flush=True)

    def plant(self):
        """Puts all that can share a build into the copy; the numbers of the others."""
        (self.copy.folder / "fault.h").write_text(PROLOGUE.replace("@FILE@", str(self.copy.fault)))
        self.schemas, alone = {}, []
        for number, place in self.faults.items():
            schema = self.schemas.setdefault(place.file, Schema(self.texts[place.file]))
            # What others compile without our flags, and what says itself which fault it is.
            if place.file == "client/update_client.h" or not schema.take(number, place):
                alone.append(number)
        for build in (self.native, self.windows):
            build.configure()
        for build in (self.native, self.windows):
            while True:
                where = self.write_schemas()
                if build.build():
                    break
                dropped = self.drop(build.error_places(), where)
                if not dropped:
                    raise SystemExit(f"building failed for another reason: {build.log}")
                alone += dropped
        return alone

    def write_schemas(self):
        where = {}
        for file, schema in self.schemas.items():
            text, lines = schema.text()
            self.copy.write(file, text.encode())
            where[file] = lines
        return where

    def drop(self, places_of_errors, where):
        dropped = []
        for file, line in places_of_errors:
            for region, (first, last) in where.get(file, {}).items():
                if first - 1 <= line <= last + 1 and region in self.schemas[file].regions:
                    dropped += self.schemas[file].drop(region)
        if not dropped:  # nothing stands near: all of the file
            for file in {file for file, _ in places_of_errors if file in self.schemas}:
                for region in list(self.schemas[file].regions):
                    dropped += self.schemas[file].drop(region)
        return dropped

    def judge(self, build, number, last):
        """With all faults in one build: whether a test fails that comes past this one."""
        begun = time.monotonic()
        if self.rounds % CONTROL_EVERY == CONTROL_EVERY - 1:
            by = build.catcher(0, everything=True)
            self.note("nothing", "false alarm" if by else "control", by, begun)
            begun = time.monotonic()
        by = build.catcher(number)
        if by:
            self.note(self.told[number], "caught", by, begun)
            return
        by = None if build.comes_past(number) else f"not reached ({build.preset})"
        before = self.outcomes.get(self.told[number], {"by": None})["by"] or ""
        place = self.faults[number]
        # What only the compiler computes is out of a running program's reach.
        if last and by and before.startswith("not") and is_refused(
                self.copy, (self.native, self.windows), place.file, place.planted_in(self.texts[place.file])):
            return self.note(self.told[number], "no fault", "compiler", begun)
        self.note(self.told[number], "missed" if last else "open", by, begun)

    def judge_alone(self, number):
        """With a build of its own."""
        begun = time.monotonic()
        place, fault = self.faults[number], self.told[number]
        planted = place.planted_in(self.texts[place.file])
        if place.kind == "removed lock" and violates_lock_rules(self.copy, self.locks, place.file, planted):
            return self.note(fault, "caught", "lock analysis", begun)
        here = (self.copy.folder / place.file).read_bytes()
        seen = False
        try:
            for build in (self.native, self.windows):
                self.copy.write(place.file, planted.encode())
                if not build.build():
                    return self.note(fault, "no fault", "compiler", begun)
                if "no work to do" in build.log.read_text():
                    continue
                seen = True
                by = build.catcher(0, everything=True)
                if by:
                    return self.note(fault, "caught", by, begun)
            return self.note(fault, "missed" if seen else "no fault", None, begun)
        finally:
            self.copy.write(place.file, here)
            for build in (self.native, self.windows):
                build.build()

    def go(self, again):
        alone = self.plant()
        together = [number for number in self.faults if number not in alone]
        print(f"{len(together)} faults share a build, {len(alone)} have one each")
        wish = ("missed", "open") if again else ()
        try:
            for build in (self.native, self.windows):
                for number in self.open(together, *wish, *(["open"] if build is self.windows else [])):
                    if not build.seconds:
                        build.start()
                    self.judge(build, number, build is self.windows)
            self.locks = Build(self.copy, "tsan")
            for number in self.open(alone, *wish):
                if not self.locks.log.exists():
                    self.locks.configure()
                for build in (self.native, self.windows):
                    if not build.seconds:
                        build.start()
                self.judge_alone(number)
        finally:
            for build in (self.native, self.windows):
                if build.seconds:
                    build.stop()


def report(outcomes):
    counted = [one for one in outcomes if one["outcome"] in ("caught", "missed")]
    table = collections.defaultdict(lambda: [0, 0])
    for one in counted:
        row = table[one["fault"].split(": ")[1]]
        row[0] += 1
        row[1] += one["outcome"] == "caught"
    print(f"\n{'kind':20s} planted caught")
    for kind, (planted, caught) in sorted(table.items()):
        print(f"{kind:20s} {planted:7d} {caught:6d}")
    caught = sum(one["outcome"] == "caught" for one in counted)
    print(f"{'all':20s} {len(counted):7d} {caught:6d}   {100 * caught / max(1, len(counted)):.1f} %")
    print("\nNot caught:" if caught < len(counted) else "")
    for one in counted:
        if one["outcome"] == "missed":
            print("  " + one["fault"] + (f"  [{one['by']}]" if one["by"] else ""))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("files", nargs="*", default=["src", "client"], help="where to plant: files or folders")
    parser.add_argument("--count", type=int, default=400, help="faults drawn (default 400)")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--again", action="store_true", help="try those again that were missed")
    parser.add_argument("--report", action="store_true", help="only show what is known")
    parser.add_argument("--work", type=pathlib.Path, default=ROOT / "build" / "mutate")
    options = parser.parse_args()
    options.work.mkdir(parents=True, exist_ok=True)
    run = Run(options)
    if not options.report:
        run.go(options.again)
    report([run.outcomes[fault] for fault in run.told.values() if fault in run.outcomes])
    return 0


if __name__ == "__main__":
    sys.exit(main())
