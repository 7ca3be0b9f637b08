#!/usr/bin/env python3
"""Makes the Windows Installer package out of the shippable tree and the tables in setup/, and
prints its path.

The tables say all that happens at installation; this only fills in what the build knows: the
files and their components, versions and identifiers. The same input gives the same bytes.
"""

import argparse
import hashlib
import os
import pathlib
import re
import shutil
import struct
import subprocess
import time
import uuid
import xml.etree.ElementTree as ET

SETUP = pathlib.Path(__file__).resolve().parent.parent / "setup"
WIX = "http://schemas.microsoft.com/wix/2006/wi"
# Never changes: by it Windows Installer knows that a package is another version of this one.
UPGRADE_CODE = "{6C0E37C3-5BD9-4F2B-9A0F-0B6E2F3A7D51}"
NAMESPACE = uuid.UUID(UPGRADE_CODE)
# Attributes of a component.
REGISTRY_KEY_PATH, PERMANENT, X64 = 4, 16, 256


def guid(text):
    return "{%s}" % str(uuid.uuid5(NAMESPACE, text)).upper()


def element(name):
    return f"{{{WIX}}}{name}"


def identifier(path):
    """What the tables call a file: letters, digits, periods and underscores."""
    return re.sub(r"^(?=\d)|[^A-Za-z0-9._]", "_", path.as_posix())


def short_name(name, taken):
    """A name in the old form, eight letters and three, which the tables want beside the long one."""
    if re.fullmatch(r"[A-Za-z0-9_-]{1,8}(\.[A-Za-z0-9_-]{1,3})?", name):
        return name
    stem, _, kind = name.rpartition(".") if "." in name else (name, "", "")
    clean = [re.sub(r"[^A-Z0-9_]", "", part.upper()) for part in (stem, kind)]
    for number in range(1, 1000):
        short = clean[0][:7 - len(str(number))] + f"~{number}" + (f".{clean[1][:3]}" if clean[1] else "")
        if short not in taken:
            taken.add(short)
            return short
    raise ValueError(f"no short name is left for {name}")


def version_in(program):
    """The four fields of a program's version resource."""
    content = program.read_bytes()
    place = content.find(struct.pack("<II", 0xFEEF04BD, 0x00010000))
    if place < 0:
        raise ValueError(f"{program.name} has no version resource")
    high, low = struct.unpack_from("<II", content, place + 8)
    return ".".join(str(field) for field in (high >> 16, high & 0xFFFF, low >> 16, low & 0xFFFF))


class Package:
    def __init__(self, options):
        self.tree = options.tree
        self.work = options.work
        self.queries = []  # on the tables that wixl wrote
        version = version_in(self.tree / "ZarnUpdateService.exe")
        fields = version.split(".")
        self.target = options.output.resolve() / f"ZarnUpdateService-{version}.msi"
        self.names = {
            "TIME": time.strftime("%Y/%m/%d %H:%M:%S", time.gmtime(options.epoch)),
            "VERSION": version,
            "VERSION3": ".".join(fields[:3]),
            "NEXT_VERSION": ".".join([*fields[:3], str(int(fields[3]) + 1)]),
            "VERSION_TEXT": options.version_text,
            "PRODUCT_CODE": guid(f"product {version} {options.version_text}"),
            "UPGRADE_CODE": UPGRADE_CODE,
        }

    def fill_in(self, text):
        return re.sub(r"@([A-Z0-9_]+)@", lambda match: self.names[match[1]], text)

    def source(self):
        """setup/package.wxs with the names filled in and the other files of the tree added."""
        ET.register_namespace("", WIX)
        root = ET.fromstring(self.fill_in((SETUP / "package.wxs").read_text().replace("@GUID@", "")))
        self.add_files(root)
        for component in root.iter(element("Component")):
            # The same in every version: what a component holds stays in its place.
            component.set("Guid", guid(f"component {component.get('Id')}"))
            # Attributes that the schema has and wixl has not.
            if component.attrib.pop("Permanent", ""):
                self.change("Component", component.get("Id"), Attributes=X64 + PERMANENT)
            if key := component.attrib.pop("RegistryKeyPath", ""):
                self.change("Component", component.get("Id"), Attributes=X64 + REGISTRY_KEY_PATH, KeyPath=key)
        for file in root.iter(element("File")):
            if file.get("Source").endswith((".exe", ".dll")):
                # A file that has a version is compared by it, not by its hash.
                version = version_in(self.work / file.get("Source"))
                self.change("File", file.get("Id"), Version=version, Language=1033)
                self.queries.append(f"DELETE FROM `MsiFileHash` WHERE `File_` = '{file.get('Id')}'")
        return ET.tostring(root, encoding="utf-8", xml_declaration=True)

    def add_files(self, root):
        """A component for each file of the tree that has none yet."""
        known = {file.get("Source") for file in root.iter(element("File"))}
        top = next(folder for folder in root.iter(element("Directory")) if folder.get("Id") == "ProgramFolder")
        feature = next(root.iter(element("Feature")))
        folders = {pathlib.PurePath("."): top}
        for path in sorted(path.relative_to(self.tree) for path in self.tree.rglob("*") if path.is_file()):
            source, name = f"tree/{path.as_posix()}", identifier(path)
            if source in known:
                continue
            for folder in reversed(path.parents):
                if folder not in folders:
                    folders[folder] = ET.SubElement(folders[folder.parent], element("Directory"),
                                                    Id=identifier(folder) + "Folder", Name=folder.name)
            component = ET.SubElement(folders[path.parent], element("Component"), Id=name, Win64="yes")
            ET.SubElement(component, element("File"), Id=name, Source=source, KeyPath="yes")
            ET.SubElement(feature, element("ComponentRef"), Id=name)

    def change(self, table, key, **columns):
        """Has a row changed when wixl has written it."""
        values = ", ".join(f"`{name}` = '{value}'" if isinstance(value, str) else f"`{name}` = {value}"
                           for name, value in columns.items())
        self.queries.append(f"UPDATE `{table}` SET {values} WHERE `{table}` = '{key}'")

    def table(self, path):
        """A table as it is imported: without comments, with the line ends of its system."""
        lines = [line for line in self.fill_in(path.read_text()).splitlines() if line and not line.startswith("#")]
        filled = self.work / path.name
        filled.write_bytes("".join(line + "\r\n" for line in lines).encode("cp1252"))
        return filled

    def msibuild(self, *arguments):
        subprocess.run(["msibuild", self.draft, *map(str, arguments)], check=True)

    def rows(self, table, *columns):
        run = subprocess.run(["msiinfo", "export", self.draft, table], check=True, capture_output=True, text=True)
        head, _, _, *rows = (line.rstrip("\r").split("\t") for line in run.stdout.splitlines())
        return [[row[head.index(column)] for column in columns] for row in rows]

    def add_short_names(self):
        folders = dict(self.rows("Component", "Component", "Directory_"))
        taken = {}
        for key, name, component in self.rows("File", "File", "FileName", "Component_"):
            if (short := short_name(name, taken.setdefault(folders[component], set()))) != name:
                self.change("File", key, FileName=f"{short}|{name}")
        for key, parent, name in self.rows("Directory", "Directory", "Directory_Parent", "DefaultDir"):
            if name != "." and (short := short_name(name, taken.setdefault(parent, set()))) != name:
                self.change("Directory", key, DefaultDir=f"{short}|{name}")

    def build(self):
        self.draft = self.work / "draft.msi"
        (self.work / "package.wxs").write_bytes(self.source())
        subprocess.run(["wixl", "-a", "x64", "-o", self.draft.name, "package.wxs"], check=True, cwd=self.work)
        tables = sorted((SETUP / "tables").glob("*.idt"))
        content = hashlib.sha256()
        for path in [*sorted(self.work.rglob("*")), *tables]:
            if path.is_file() and path != self.draft:
                content.update(path.read_bytes())
        self.names["PACKAGE_CODE"] = guid(f"package {self.names} {content.hexdigest()}")
        for path in tables:
            self.msibuild("-i", self.table(path))
        self.add_short_names()
        self.msibuild("-q", *self.queries)
        shutil.move(self.draft, self.target)
        print(self.target)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--tree", type=pathlib.Path, required=True, help="the files to install")
    parser.add_argument("--version-text", required=True, help="the version for people, with its revision")
    parser.add_argument("--epoch", type=int, required=True, help="the time to state, in seconds since 1970")
    parser.add_argument("--work", type=pathlib.Path, required=True, help="a folder to work in, made anew")
    parser.add_argument("--output", type=pathlib.Path, required=True, help="the folder for the package")
    options = parser.parse_args()
    shutil.rmtree(options.work, ignore_errors=True)
    shutil.copytree(options.tree, options.work / "tree")
    for path in (options.work / "tree").rglob("*"):
        os.utime(path, (options.epoch, options.epoch))
    options.tree = options.work / "tree"
    Package(options).build()


main()
