#!/usr/bin/env python3
"""Writes the bill of materials of the shippable tree: CycloneDX JSON with every
library that the programs are made of, in the version that was really built in.

What was built in is read from the build itself: the static libraries on the link
lines of the programs and the headers that their objects were compiled from. A
library that the table below does not know is an error.
"""

import argparse
import hashlib
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tarfile
import urllib.parse
import uuid
from datetime import datetime, timezone
from typing import NamedTuple

MINGW = "/usr/x86_64-w64-mingw32"
GCC = "/usr/lib/gcc/x86_64-w64-mingw32"
NAMESPACE = uuid.UUID("7b0d3b0e-6e0f-4d0c-9a0c-5d7d0a3c2f11")


class Library(NamedTuple):
    """A Debian source package. `package`: the installed binary package that says
    which version; without one the dependency cache built it and says so itself.
    `places`: what the paths of its libraries and headers match."""

    name: str
    source: str
    licence: str
    places: str
    package: str = ""


LIBRARIES = [
    Library("OpenSSL", "openssl", "Apache-2.0", r"/lib(ssl|crypto)\.a$|/include/openssl/"),
    Library("curl", "curl", "curl", r"/libcurl\.a$|/include/curl/"),
    Library("Boost", "boost1.81", "BSL-1.0", r"/libboost_\w+\.a$|/include/boost/"),
    Library("fmt", "fmtlib", "MIT", r"/libfmt\.a$|/include/fmt/"),
    Library("libzip", "libzip", "BSD-3-Clause", r"/libzip\.a$|/include/zip(conf)?\.h$"),
    Library("zlib", "libz-mingw-w64", "Zlib", r"/libz\.a$|/include/z(lib|conf)\.h$", "libz-mingw-w64-dev"),
    Library("JSON for Modern C++", "nlohmann-json3", "MIT", r"/(include|headers/json)/nlohmann/", "nlohmann-json3-dev"),
    Library("expected", "tl-expected", "CC0-1.0", r"/(include|headers/expected)/tl/", "libexpected-dev"),
    Library("GCC runtime libraries", "gcc-12", "GPL-3.0-or-later WITH GCC-exception-3.1",
            rf"^{GCC}/", "gcc-mingw-w64-x86-64-posix-runtime"),
    Library("MinGW-w64 runtime", "mingw-w64", "ZPL-2.1 AND MIT AND BSD-3-Clause",
            rf"^({MINGW}|/usr/share/mingw-w64)/", "mingw-w64-x86-64-dev"),
]
CA_BUNDLE = Library("Mozilla CA certificates", "ca-certificates", "MPL-2.0", "", "ca-certificates")
# Where this project's own sources and libraries are, in the checkout and in the build folder.
OWN_FOLDERS = {"src", "client"}
# On every link line without being named there.
ALWAYS = {"gcc-12", "mingw-w64"}


class Build:
    """What ninja knows about a build folder."""

    def __init__(self, folder):
        self.folder = folder
        cache = (folder / "CMakeCache.txt").read_text()
        self.checkout = pathlib.Path(re.search(r"^CMAKE_HOME_DIRECTORY:INTERNAL=(.*)$", cache, re.MULTILINE)[1])
        self.inputs = {}
        self.link_lines = {}
        outputs = []
        for line in (folder / "build.ninja").read_text().splitlines():
            if line.startswith("build "):
                left, right = re.split(r"(?<!\$): ", line[len("build "):], maxsplit=1)
                outputs = left.split(" | ")[0].split()
                inputs = right.split(" || ")[0].replace(" | ", " ").split()[1:]
                self.inputs.update((output, inputs) for output in outputs)
            elif line.startswith("  LINK_LIBRARIES = "):
                self.link_lines.update((output, line.split()[2:]) for output in outputs)
        self.headers = {}
        text = subprocess.run(["ninja", "-C", folder, "-t", "deps"], check=True, capture_output=True, text=True).stdout
        for block in text.split("\n\n"):
            lines = block.split("\n")
            self.headers[lines[0].split(":")[0]] = [line.strip() for line in lines[1:]]

    def target(self, name):
        found = [output for output in self.link_lines if output.split("/")[-1] == name]
        if len(found) != 1:
            sys.exit(f"sbom: {self.folder} builds no {name}")
        return found[0]

    def objects(self, target):
        """The objects of a target and of the project's own libraries in it."""
        pending, seen = [target], set()
        while pending:
            for name in self.inputs.get(pending.pop(), []):
                if name not in seen:
                    seen.add(name)
                    pending.append(name)
        return {name for name in seen if name.endswith(".obj")}

    def parts(self, target):
        """Paths of the libraries and headers in a target."""
        paths = {word for word in self.link_lines[target] if word.endswith(".a")}
        for name in self.objects(target):
            paths.update(self.headers.get(name, []))
        return {str((self.folder / path).resolve()) for path in paths}


def is_ours(path, build):
    """Of the checkout, or made of it; headers of libraries are copied into the build folder, too."""
    return any(path.is_relative_to(top / folder) for top in (build.checkout, build.folder.resolve())
               for folder in OWN_FOLDERS)


def libraries_in(build, programs):
    used = set(ALWAYS)
    for program in programs:
        for path in build.parts(build.target(program)):
            match = [library.source for library in LIBRARIES if re.search(library.places, path)]
            if match:
                used.add(match[0])
            elif not is_ours(pathlib.Path(path), build):
                sys.exit(f"sbom: {program} is made of {path}, which belongs to no library known here")
    return [library for library in LIBRARIES if library.source in used]


def version_of(library, cache):
    if library.package:
        query = ["dpkg-query", "-W", "-f", "${source:Version}\n${Built-Using}", library.package]
        own, *others = subprocess.run(query, check=True, capture_output=True, text=True).stdout.split("\n")
        # A package that was built from another one's source says from which version.
        borrowed = re.search(rf"(?:^|, ){re.escape(library.source)} \(= ([^)]+)\)", others[0])
        return borrowed[1] if borrowed else own
    records = list((cache / "sources").glob(f"{library.source}-*.version"))
    if len(records) != 1:
        sys.exit(f"sbom: {cache} does not say which version of {library.source} it built")
    return records[0].read_text().strip()


def licence_text(library, version, cache):
    if library.package:
        return pathlib.Path(f"/usr/share/doc/{library.package}/copyright").read_bytes()
    archive = cache / "sources" / f"{library.source}_{version.split(':')[-1]}.debian.tar.xz"
    with tarfile.open(archive) as tar:
        return tar.extractfile("debian/copyright").read()


def component(library, version):
    purl = f"pkg:deb/debian/{library.source}@{urllib.parse.quote(version, safe='~')}?arch=source&distro=debian-12"
    return {
        "type": "data" if library is CA_BUNDLE else "library",
        "bom-ref": library.source,
        "name": library.name,
        "version": version,
        "licenses": [{"expression": library.licence}],
        "purl": purl,
    }


def file_component(path, root):
    name = path.relative_to(root).as_posix()
    digest = hashlib.sha256(path.read_bytes()).hexdigest()
    return {"type": "file", "bom-ref": f"file:{name}", "name": name, "hashes": [{"alg": "SHA-256", "content": digest}]}


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, required=True, help="the Windows build folder")
    parser.add_argument("--cache", type=pathlib.Path, required=True, help="the dependency cache")
    parser.add_argument("--tree", type=pathlib.Path, required=True, help="the shippable tree")
    parser.add_argument("--version", required=True)
    parser.add_argument("--epoch", type=int, required=True, help="the time to state, in seconds since 1970")
    parser.add_argument("--output", type=pathlib.Path, required=True)
    parser.add_argument("--licences", type=pathlib.Path, required=True, help="folder for the licence texts")
    options = parser.parse_args()

    files = sorted(path for path in options.tree.rglob("*") if path.is_file())
    programs = [path.name for path in files if path.suffix in (".exe", ".dll")]
    build = Build(options.build)
    parts = libraries_in(build, programs) + [CA_BUNDLE]

    shutil.rmtree(options.licences, ignore_errors=True)
    options.licences.mkdir(parents=True)
    components = []
    for library in parts:
        version = version_of(library, options.cache)
        components.append(component(library, version))
        (options.licences / f"{library.source}.txt").write_bytes(licence_text(library, version, options.cache))
    components += [file_component(path, options.tree) for path in files]

    product = f"zarn-update-service@{options.version}"
    content = {
        "bomFormat": "CycloneDX",
        "specVersion": "1.5",
        "serialNumber": f"urn:uuid:{uuid.uuid5(NAMESPACE, product + json.dumps(components))}",
        "version": 1,
        "metadata": {
            "timestamp": datetime.fromtimestamp(options.epoch, timezone.utc).strftime("%Y-%m-%dT%H:%M:%SZ"),
            "component": {"type": "application", "bom-ref": product, "name": "Zarn Update Service",
                          "version": options.version, "supplier": {"name": "Zarn, Inc."}},
        },
        "components": components,
        "dependencies": [{"ref": product, "dependsOn": [library.source for library in parts]}],
    }
    options.output.write_text(json.dumps(content, indent=2) + "\n")


main()
