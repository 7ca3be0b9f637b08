#!/usr/bin/env python3
"""Checks what includes what, and says in words what should not be:

- Folders stand above each other, bottom first, in the order of the table below. A
  file includes headers of its own folder and of folders below it, never of one above.
- No circles: a unit is a header with its source and the sources of each platform
  (x.h, x.cpp, x_win.cpp, x_posix.cpp). What a unit needs must not need the unit again,
  or neither can be understood, tested or moved without the other.

Tests may include everything, and nothing includes them.
"""

import pathlib
import re
import sys

# Bottom first. Those on one line do not see each other.
LAYERS = [
    ["src/os"],
    ["src/util"],
    ["src/prefs"],
    ["src/system"],
    ["src/log"],
    ["src/http"],
    ["src/trust"],
    ["src/update/interface"],
    ["src/service"],
    ["src/update"],
    ["src/app", "client"],
    ["client/examples", "client/tool/report", "setup/plugin"],
    ["client/tool/machine"],
    ["client/tool/commands"],
    ["client/tool"],
]
HEIGHT = {folder: height for height, folders in enumerate(LAYERS) for folder in folders}
INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.MULTILINE)


def unit_of(path):
    return re.sub(r"(_win|_posix)?\.(h|cpp)$", "", path)


def included_files(root, path):
    """The project's own files that a file includes; what is generated has no place here."""
    for name in INCLUDE.findall((root / path).read_text()):
        for base in (pathlib.PurePosixPath(path).parent, "src", ".", "setup"):
            if (root / base / name).is_file():
                yield (pathlib.PurePosixPath(base) / name).as_posix()
                break


def circles(graph):
    """Groups of units that can all be reached from each other, each as one round through it."""
    def reach(start):
        came_from, pending = {}, [start]
        while pending:
            unit = pending.pop(0)
            for needed in sorted(graph[unit]):
                if needed not in came_from:
                    came_from[needed] = unit
                    pending.append(needed)
        return came_from

    reached = {unit: reach(unit) for unit in graph}
    seen = set()
    for unit in sorted(graph):
        if unit in reached[unit] and unit not in seen:
            seen.update(other for other in reached[unit] if unit in reached[other])
            way = [unit]
            while way[-1] != unit or len(way) == 1:
                way.append(reached[unit][way[-1]])
            yield way[::-1]


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
    files = sorted(path.relative_to(root).as_posix() for top in ("src", "client", "setup")
                   for path in (root / top).rglob("*") if path.suffix in (".h", ".cpp"))
    found, graph = [], {unit_of(path): set() for path in files}
    for path in files:
        folder = pathlib.PurePosixPath(path).parent.as_posix()
        if folder not in HEIGHT:
            found.append(f"{folder}/ has no place in the order of folders in tools/layers.py")
            continue
        for other in included_files(root, path):
            other_folder = pathlib.PurePosixPath(other).parent.as_posix()
            if unit_of(other) in graph and unit_of(other) != unit_of(path):
                graph[unit_of(path)].add(unit_of(other))
            if other_folder != folder and HEIGHT.get(other_folder, len(LAYERS)) >= HEIGHT[folder]:
                found.append(f"{path} includes {other}, but {other_folder}/ is not below {folder}/")
    for way in circles(graph):
        found.append("units in a circle: " + " needs ".join(way))
    for line in dict.fromkeys(found):
        print(line)
    print(f"{len(files)} files of {len(graph)} units: {len(set(found)) or 'no'} includes to mend")
    sys.exit(1 if found else 0)


main()
