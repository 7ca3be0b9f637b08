#!/usr/bin/env python3
"""Runs clang-tidy over the files of a build, but not over those that it found clean
before: a stamp stands for a file with all that the outcome depends on, which are the
file, the project's own headers in it, its compile command, clang-tidy's configuration
and the packages of the system.
"""

import argparse
import concurrent.futures
import hashlib
import json
import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
INCLUDE = re.compile(rb'^\s*#\s*include\s+["<]([^">]+)[">]', re.MULTILINE)
# What clang does not know, and what differs between checkouts only.
NOT_FOR_CLANG = re.compile(r"-Wduplicated-cond|-Wlogical-op|-Wuseless-cast|-ffile-prefix-map=.*|(.*/)?ccache")


def digest(*parts):
    return hashlib.sha256(b"\0".join(part if isinstance(part, bytes) else part.encode() for part in parts)).hexdigest()


class Sources:
    """The project's files and their headers, each read once."""

    def __init__(self, build):
        self.bases = [ROOT / "src", ROOT, ROOT / "tests", ROOT / "setup", ROOT / "bench", build / "src"]
        self.includes = {}

    def headers_of(self, path):
        if path not in self.includes:
            names = [name.decode() for name in INCLUDE.findall(path.read_bytes())]
            places = [[base / name for base in (path.parent, *self.bases)] for name in names]
            self.includes[path] = [file for group in places for file in group if file.is_file()]
        return self.includes[path]

    def closure(self, path):
        found, pending = {path}, [path]
        while pending:
            new = set(self.headers_of(pending.pop())) - found
            found |= new
            pending += new
        return sorted(found)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, required=True, help="configured without batches")
    parser.add_argument("--stamps", type=pathlib.Path, required=True)
    parser.add_argument("--jobs", type=int, default=1)
    parser.add_argument("--not-in", type=pathlib.Path, help="leave out what this build compiles, too")
    parser.add_argument("--extra-arg", action="append", default=[], help="an argument more for the compiler")
    options = parser.parse_args()

    def commands(build):
        entries = json.loads((build / "compile_commands.json").read_text())
        own = [entry for entry in entries if entry["file"].endswith(".cpp")
               and pathlib.Path(entry["file"]).is_relative_to(ROOT)
               and not pathlib.Path(entry["file"]).is_relative_to(ROOT / "build")]
        return {entry["file"]: entry for entry in own}

    files = commands(options.build)
    for file in commands(options.not_in) if options.not_in else ():
        files.pop(file, None)
    for entry in files.values():
        words = shlex.split(entry.pop("command"))
        entry["arguments"] = [word for word in words if not NOT_FOR_CLANG.fullmatch(word)]
    database = options.build / "tidy"
    database.mkdir(exist_ok=True)
    (database / "compile_commands.json").write_text(json.dumps(list(files.values())))

    packages = subprocess.run(["dpkg-query", "-W"], check=True, capture_output=True).stdout
    # Files that headers are generated from are not told apart: a change of one counts for all.
    generators = [path.read_bytes() for pattern in ("*.in", "*.idl") for path in sorted(ROOT.glob(f"src/**/{pattern}"))]
    common = digest(packages, (ROOT / ".clang-tidy").read_bytes(), *generators, *options.extra_arg)
    sources = Sources(options.build)

    def stamp_of(file):
        command = " ".join(files[file]["arguments"]).replace(str(ROOT), ".")
        contents = [path.read_bytes() for path in sources.closure(pathlib.Path(file))]
        return options.stamps / digest(common, command, *contents)

    stamps = {file: stamp_of(file) for file in files}
    waiting = [file for file in files if not stamps[file].exists()]
    options.stamps.mkdir(parents=True, exist_ok=True)
    print(f"{len(files) - len(waiting)} of {len(files)} files are clean since they last changed", flush=True)

    def tidy(file):
        extra = [f"--extra-arg={argument}" for argument in ("-Wno-unknown-warning-option", *options.extra_arg)]
        result = subprocess.run(["clang-tidy", "--quiet", "-p", database, *extra, file],
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        if result.returncode == 0:
            stamps[file].touch()
        return file, result

    failed = 0
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        running = [pool.submit(tidy, file) for file in waiting]
        for done, future in enumerate(concurrent.futures.as_completed(running), 1):
            file, result = future.result()
            print(f"[{done}/{len(waiting)}] {pathlib.Path(file).relative_to(ROOT)}", flush=True)
            if result.returncode != 0:
                failed += 1
                print(result.stdout, flush=True)
    sys.exit(f"clang-tidy finds fault with {failed} files" if failed else 0)


main()
