#!/usr/bin/env python3
"""Runs fuzz targets and says how far they came; ./dev fuzz builds them first.

Natively each is a libFuzzer program, whose finds are kept in build/corpus beside what the
repository has. Under Wine one program changes the kept inputs at random, from a seed.
"""

import argparse
import os
import pathlib
import re
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
FUZZ, BUILD = ROOT / "fuzz", ROOT / "build"
LONGEST = 256  # bytes; most of what a target does is done in so many
ROUND = 10_000  # the system's trust calls under Wine keep some memory each time
WINDOWS_ONLY = ("collected_text", "signed_program")


def targets(wine):
    names = sorted(path.name.removesuffix("_fuzz.cpp") for path in FUZZ.glob("*_fuzz.cpp"))
    return [name for name in names if wine or name not in WINDOWS_ONLY]


def report(name, runs, seconds, outcome):
    print(f"    {name:18} {runs:>10} runs {seconds:7.0f} s {runs / max(seconds, 0.001):8.0f}/s  {outcome}", flush=True)


def kept(name):
    folders = [BUILD / "corpus" / name, FUZZ / "corpus" / name, FUZZ / "regressions" / name]
    folders[0].mkdir(parents=True, exist_ok=True)
    return [str(folder) for folder in folders if folder.is_dir()]


def run_native(name, arguments):
    log = BUILD / "logs" / f"fuzz-{name}.log"
    log.parent.mkdir(parents=True, exist_ok=True)
    bound = f"-runs={arguments.runs}" if arguments.runs else f"-max_total_time={arguments.seconds}"
    # A small quarantine and no stacks of allocations: several times as fast, and a find is
    # judged again by fuzz_tests, which have both.
    options = "malloc_context_size=0:quarantine_size_mb=1:thread_local_quarantine_size_kb=64:detect_leaks=0"
    begin = time.monotonic()
    with log.open("w") as output:
        code = subprocess.run(
            [BUILD / "fuzz/fuzz" / f"{name}_fuzz", bound, f"-max_len={LONGEST}", f"-seed={arguments.seed}",
             "-entropic=0", "-detect_leaks=0", "-print_final_stats=1", f"-artifact_prefix={BUILD}/corpus/{name}-",
             *kept(name)],
            env={**os.environ, "ASAN_OPTIONS": options}, stdout=output, stderr=subprocess.STDOUT).returncode
    text = log.read_text(errors="replace")
    runs = int((re.findall(r"number_of_executed_units: (\d+)", text) or ["0"])[0])
    failed = re.search(r".*does not hold of:|ERROR: .*", text)
    report(name, runs, time.monotonic() - begin, failed[0][:200] if code else "holds")
    return code == 0


def run_wine(name, arguments):
    runs = arguments.runs or ROUND
    begin, done = time.monotonic(), 0
    while done < runs:
        one = min(ROUND, runs - done)
        ran = subprocess.run(
            [ROOT / "tools/wine", BUILD / "windows/fuzz/fuzz_tests.exe", f"Z:{FUZZ}", str(one),
             str(arguments.seed + done // ROUND), name],
            env={**os.environ, "WINEPREFIX": str(BUILD / "windows/wine")}, text=True, capture_output=True)
        if ran.returncode:
            report(name, done, time.monotonic() - begin, (ran.stdout + ran.stderr)[-2000:])
            return False
        done += one
    report(name, done, time.monotonic() - begin, "holds " + "".join(ran.stdout.splitlines()[2:]))
    return True


def covered(name):
    """Which part of the files of a target what is kept of it reaches."""
    source = (FUZZ / f"{name}_fuzz.cpp").read_text()
    files = [ROOT / base / include.replace(".h", ".cpp") for include in re.findall(r'#include "([a-z_/]+\.h)"', source)
             for base in ("src", ".")]
    program, profile = BUILD / "fuzz-coverage/fuzz/fuzz_tests", BUILD / f"fuzz-coverage/{name}"
    folder = BUILD / "fuzz-coverage/inputs"
    subprocess.run(["rm", "-rf", folder], check=True)
    for kind in ("corpus", "regressions"):
        (folder / kind).mkdir(parents=True)
        for path in (FUZZ / kind / name, BUILD / "corpus" / name if kind == "corpus" else FUZZ / kind / name):
            if path.is_dir():
                subprocess.run(["cp", "-r", path, folder / kind], check=True)
    subprocess.run([program, folder, "0", "1", name], check=True, stdout=subprocess.DEVNULL,
                   env={**os.environ, "LLVM_PROFILE_FILE": f"{profile}.raw"})
    subprocess.run(["llvm-profdata-14", "merge", f"{profile}.raw", "-o", f"{profile}.data"], check=True)
    shown = subprocess.run(["llvm-cov-14", "report", program, f"-instr-profile={profile}.data",
                            *[path for path in files if path.is_file()]], check=True, text=True, capture_output=True)
    for line in shown.stdout.splitlines():
        cells = line.split()
        if ".cpp" in line:  # regions, functions, lines, branches: number, missed, percentage
            print(f"    {name:18} {cells[0]:34} lines {cells[9]:>8}  branches {cells[12]:>8}", flush=True)


def main():
    parser = argparse.ArgumentParser(prog="./dev fuzz", description=__doc__.splitlines()[0])
    parser.add_argument("seconds", nargs="?", type=int, default=30)
    parser.add_argument("--runs", type=int, help="instead of seconds")
    parser.add_argument("--seed", type=int, default=int(time.time()) % 1_000_000)
    parser.add_argument("--wine", action="store_true", help="under Wine instead, 10000 runs when nothing is said")
    parser.add_argument("--coverage", action="store_true", help="only say what the kept inputs reach")
    parser.add_argument("--only", action="append", metavar="TARGET", help="may be repeated")
    arguments = parser.parse_args()
    names = arguments.only or targets(arguments.wine)
    if arguments.coverage:
        for name in names:
            covered(name)
        return 0
    print(f"    seed {arguments.seed}", flush=True)
    run = run_wine if arguments.wine else run_native
    return 0 if all([run(name, arguments) for name in names]) else 1


if __name__ == "__main__":
    sys.exit(main())
