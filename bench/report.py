"""The figures of each kind of machine, kept as JSON, and docs/performance.md, made of them."""

import datetime
import json
import os
import pathlib
import platform
import re
import subprocess

import svg_plot

ROOT = pathlib.Path(__file__).resolve().parent.parent

# How a number is shown, by the end of its name.
UNITS = {"_per_s": "/s", "_ns": " ns", "_us": " us", "_ms": " ms", "MiB": " MiB", "ns": " ns"}
NAMES = {"zarn": "this service", "find": "19 x find", "hyperscan": "Hyperscan", "easy": "reused easy handle",
         "relayed": "the same behind three hand-offs", "memchr": "memchr (no scrubbing)",
         "write": "bare writes (no logger)", "boost-sync": "Boost.Log, synchronous",
         "boost-async": "Boost.Log, asynchronous", "null": "service that does nothing",
         "bare": "bare copy and check", "promise-zarn": "this service", "promise-std": "std::promise"}
EMPHASIS = {"missed": "**missed**", "failed": "**failed**"}


# ---- Figures ---------------------------------------------------------------------------

class Figures:
    """What was measured on one kind of machine, as it is kept."""

    def __init__(self, kept):
        self.machine, self.facts = kept["machine"], kept["facts"]
        self.medians, self.failures = kept["medians"], kept["failures"]
        self.slug = slug(self.machine)

    def has_failed(self, cell):
        return cell in self.failures

    def knows(self, cell, number):
        return number in self.medians.get(cell, {})

    def value(self, cell, number):
        return self.medians[cell][number]


def slug(machine):
    return re.sub(r"[^a-z0-9]+", "-", machine.lower()).strip("-")


def processor():
    model = next(line.split(":", 1)[1] for line in open("/proc/cpuinfo") if line.startswith("model name"))
    return " ".join(re.sub(r"\((R|TM)\)", "", model, flags=re.IGNORECASE).split())


def commit():
    def git(*words):
        return subprocess.run(["git", "-C", ROOT, *words], capture_output=True, text=True, check=True).stdout.strip()
    changed = " with changes" if git("status", "--porcelain", "--", "src", "bench", "cmake") else ""
    return git("rev-parse", "--short=9", "HEAD") + changed


def version(command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()[0]


def of_this_machine(results, options):
    facts = {
        "Machine": f"{processor()}, {os.cpu_count()} cores, Linux {platform.release()}",
        "Commit": commit(),
        "Date": f"{datetime.date.today()}",
        "Compilers": f"{version(['g++', '--version'])}; {version(['x86_64-w64-mingw32-g++-posix', '--version'])}, -O2",
        "Rounds": f"{options.rounds} ({options.growth_rounds} for the plots); what counts is the median",
    }
    medians = {cell: {name: float(f"{value:.5g}") for name, value in numbers.items()}
               for cell, numbers in results.medians().items()}
    return {"machine": processor(), "facts": facts, "failures": results.failures, "medians": medians}


def as_json(measured):
    """With a line for each cell, so that a later run's changes can be read."""
    parts = {name: json.dumps(part, indent=1) for name, part in measured.items()}
    cells = [f"  {json.dumps(cell)}: {json.dumps(numbers)}" for cell, numbers in measured["medians"].items()]
    parts["medians"] = "{\n" + ",\n".join(cells) + "\n}"
    return "{\n" + ",\n".join(f"{json.dumps(name)}: {text}" for name, text in parts.items()) + "\n}\n"


def keep(measured, groups, folder, docs):
    """In place of what was kept of this kind of machine."""
    figures = Figures(measured)
    folder.mkdir(parents=True, exist_ok=True)
    (folder / f"{figures.slug}.json").write_text(as_json(measured))
    plots = docs / "plots" / figures.slug
    plots.mkdir(parents=True, exist_ok=True)
    for old in plots.glob("*.svg"):
        old.unlink()
    for growth in (growth for group in groups for growth in group.GROWTH):
        series = {}
        for who, x, cell in growth.cells():
            if figures.knows(cell, growth.number):
                series.setdefault(growth.candidates[who], []).append((x, figures.value(cell, growth.number)))
        if series:
            image = svg_plot.plot(growth.title, growth.x_label, growth.y_label, series)
            (plots / f"{growth.file}.svg").write_text(image)


# ---- The page --------------------------------------------------------------------------

def shown(name, value):
    unit = next((unit for end, unit in UNITS.items() if name.endswith(end)), "")
    if name.endswith("bytes_per_s"):
        return f"{value / 1e9:.2f} GB/s"
    for factor, suffix in ((1e6, " M"), (1e3, " k")):
        if name.endswith("_per_s") and value >= factor:
            return f"{value / factor:.3g}{suffix}{unit}"
    return f"{value:.0f}{unit}" if value >= 1000 else f"{value:.3g}{unit}"


def markdown(headings, rows):
    lines = [headings, ["---"] * len(headings), *rows]
    return "".join("| " + " | ".join(line) + " |\n" for line in lines)


def candidate_name(name):
    first, _, rest = name.partition(" ")
    return f"{NAMES.get(first, first)}{', ' + rest if rest else ''}"


def cells_shown(group):
    """The cells that its targets and tables stand on."""
    cells = [cell for target in group.TARGETS for cell, _ in target.places()]
    cells += [cell.format(who) for table in group.TABLES for who in table.candidates for _, cell, _ in table.columns]
    return list(dict.fromkeys(cells))


def ratio(target, figures):
    verdict = target.verdict(figures)
    if verdict in ("failed", "not measured"):
        return EMPHASIS.get(verdict, verdict)
    text = f"{target.value(figures):.2f} {target.unit}".rstrip()
    return f"**{text}**" if verdict == "missed" else text


def verdict_of_all(target, machines):
    """Met is what was measured and met everywhere."""
    verdicts = [target.verdict(figures) for figures in machines]
    worst = next(word for word in ("missed", "failed", "not measured", "met") if word in verdicts)
    if worst == "not measured" and "met" in verdicts:
        return "met where measured"
    return EMPHASIS.get(worst, worst)


def overview(groups, machines):
    rows = [(target.what, target.peer, target.limit, *(ratio(target, figures) for figures in machines),
             verdict_of_all(target, machines)) for group in groups for target in group.TARGETS]
    return markdown(["what", "against", "target", *(figures.machine for figures in machines), "on all"], rows)


def target_row(target, figures):
    is_known = all(figures.knows(*place) for place in target.places())
    own = shown(target.ours[1], figures.value(*target.ours)) if figures.knows(*target.ours) else ""
    peer = target.peer
    if target.against and is_known:
        peer += f": {shown(target.against[0][1], target.peer_value(figures))}"
    verdict = target.verdict(figures)
    return (target.what, own, peer, ratio(target, figures).strip("*"), target.limit, EMPHASIS.get(verdict, verdict))


def table_of(table, figures):
    """Nothing when none of it was measured."""
    rows = []
    for candidate in table.candidates:
        cells = [(cell.format(candidate), number) for _, cell, number in table.columns]
        if any(figures.knows(*place) for place in cells):
            rows.append([candidate_name(candidate)] + [
                shown(number, figures.value(cell, number)) if figures.knows(cell, number) else ""
                for cell, number in cells])
    return markdown(["", *(heading for heading, _, _ in table.columns)], rows) if rows else ""


def group_section(group, figures, docs):
    parts = []
    for table in group.TABLES:
        text = table_of(table, figures)
        parts += [f"#### {table.title}\n", text] if text else []
    for growth in group.GROWTH:
        image = f"plots/{figures.slug}/{growth.file}.svg"
        parts += [f"![{growth.title}]({image})\n"] if (docs / image).exists() else []
    return [f"### {group.TITLE}\n", *parts] if parts else []


def machine_section(groups, figures, docs):
    rows = [target_row(target, figures) for group in groups for target in group.TARGETS]
    parts = [f"## {figures.machine}\n", "".join(f"- {name}: {fact}\n" for name, fact in figures.facts.items()),
             markdown(["what", "this service", "against", "ratio", "target", ""], rows)]
    if figures.failures:
        parts.append("### Cells that failed\n")
        parts += [f"{cell}:\n\n```\n{text}\n```\n" for cell, text in figures.failures.items()]
    for group in groups:
        parts += group_section(group, figures, docs)
    return parts


def write_page(groups, folder, docs):
    """Of all the figures that are kept in `folder`; its first table is shown, too."""
    kept = [Figures(json.loads(file.read_text())) for file in sorted(folder.glob("*.json"))]
    targets = overview(groups, kept)
    print("".join(f"    {line}\n" for line in targets.replace("**", "").splitlines()), end="")
    parts = [
        "# Performance\n\nWritten by `./dev bench`; not to be edited by hand (`bench/method.md` and "
        "`bench/findings.md` are). The figures\nof each kind of machine are those of its last run, "
        "kept in `bench/results`.\n",
        (ROOT / "bench/method.md").read_text(),
        "## Targets\n\nThe ratios on each kind of machine; what they were made of is in its section below.\n",
        targets, (ROOT / "bench/findings.md").read_text(),
    ]
    for figures in kept:
        parts += machine_section(groups, figures, docs)
    docs.mkdir(parents=True, exist_ok=True)
    (docs / "performance.md").write_text("\n".join(part.rstrip("\n") + "\n" for part in parts))
