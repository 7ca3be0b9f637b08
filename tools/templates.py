#!/usr/bin/env python3
"""Checks the administrative templates: each against the schema, and the texts of each
language against what the definitions name. Says in a line what is wrong."""

import pathlib
import re
import subprocess
import sys
import xml.etree.ElementTree as ET

SCHEMA = pathlib.Path(__file__).with_name("templates.xsd")
SPACE = "{http://schemas.microsoft.com/GroupPolicy/2006/07/PolicyDefinitions}"
# Which element each control shows.
CONTROLS = {"text": "textBox", "decimal": "decimalTextBox", "boolean": "checkBox", "enum": "dropdownList"}


def ids(root, kind):
    return [node.get("id") for node in root.iter(SPACE + kind)]


def differences(what, wanted, given):
    """Names that are on one side only, or twice on the given one."""
    found = [f"{what}: {name} is missing" for name in sorted(set(wanted) - set(given))]
    found += [f"{what}: {name} is for nothing" for name in sorted(set(given) - set(wanted))]
    return found + [f"{what}: {name} stands twice" for name in sorted(set(given)) if given.count(name) > 1]


def check(definitions, language):
    admx, adml = ET.parse(definitions).getroot(), ET.parse(language).getroot()
    text = definitions.read_text()
    wrong = differences("string", re.findall(r"\$\(string\.(\w+)\)", text), ids(adml, "string"))
    wrong += differences("presentation", re.findall(r"\$\(presentation\.(\w+)\)", text), ids(adml, "presentation"))

    names = {kind: {node.get("name") for node in admx.iter(SPACE + kind)} for kind in ("category", "definition")}
    for kind, place in (("parentCategory", "category"), ("supportedOn", "definition")):
        refs = {node.get("ref") for node in admx.iter(SPACE + kind)} - {None}
        wrong += differences(place, refs, sorted(names[place]))

    shown = {node.get("id"): node for node in adml.iter(SPACE + "presentation")}
    for policy in admx.iter(SPACE + "policy"):
        name = policy.get("name")
        elements = policy.find(SPACE + "elements")
        wanted = [] if elements is None else [CONTROLS[e.tag[len(SPACE):]] + " " + e.get("id") for e in elements]
        presentation = (policy.get("presentation") or "$(presentation.)")[len("$(presentation."):-1]
        given = [control.tag[len(SPACE):] + " " + control.get("refId") for control in shown.get(presentation, [])]
        wrong += differences(f"policy {name}", wanted, given)
    return wrong


def main(folder):
    [definitions] = folder.glob("*.admx")
    languages = sorted(folder.glob(f"*/{definitions.stem}.adml"))
    wrong = [] if languages else ["there is no language"]
    for file in (definitions, *languages):
        run = subprocess.run(["xmllint", "--noout", "--nonet", "--schema", str(SCHEMA), str(file)],
                             stderr=subprocess.PIPE, text=True)
        wrong += run.stderr.splitlines() if run.returncode else []
    for language in languages:
        wrong += check(definitions, language)
    print("\n".join(wrong) or f"{definitions.name}: {len(languages)} language, nothing wrong")
    return 1 if wrong else 0


sys.exit(main(pathlib.Path(sys.argv[1])))
