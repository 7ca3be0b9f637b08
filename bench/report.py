"""Results as text on the terminal and as docs/performance.md with its plots."""

import datetime
import os
import pathlib
import platform
import subprocess

import svg_plot

ROOT = pathlib.Path(__file__).resolve().parent.parent

# How a number is shown, by the end of its name: unit and factor.
UNITS = (("_per_s", "/s", 1), ("_ns", " ns", 1), ("_us", " us", 1), ("_ms", " ms", 1), ("_MiB", " MiB", 1),
         ("ns", " ns", 1))
NAMES = {"zarn": "this service", "find": "19 x find", "hyperscan": "Hyperscan", "easy": "reused easy handle",
         "memchr": "memchr (no scrubbing)", "write": "bare writes (no logger)", "boost-sync": "Boost.Log, synchronous",
         "boost-async": "Boost.Log, asynchronous", "null": "service that does nothing",
         "bare": "bare copy and check"}


def shown(name, value):
    unit = next((unit for end, unit, _ in UNITS if name.endswith(end)), "")
    if name.endswith("bytes_per_s"):
        return f"{value / 1e9:.2f} GB/s"
    for factor, suffix in ((1e6, " M"), (1e3, " k")):
        if name.endswith("_per_s") and value >= factor:
            return f"{value / factor:.3g}{suffix}{unit}"
    return f"{value:.0f}{unit}" if value >= 1000 else f"{value:.3g}{unit}"


def candidate_name(name):
    first, _, rest = name.partition(" ")
    return f"{NAMES.get(first, first)}{', ' + rest if rest else ''}"


class Section:
    def __init__(self, group, results, options):
        self.group, self.results, self.options = group, results, options

    def missed(self):
        return [target for target in self.group.TARGETS if not target.is_met(self.results)]

    def _row(self, target):
        own = target.ours[1]
        limit = f"at most {target.at_most}" if target.at_most is not None else f"at least {target.at_least}"
        value = target.value(self.results)
        peer = ""
        if target.against:
            peer = f"{target.peer}: {shown(target.against[0][1], target.peer_value(self.results))}"
        unit = f" {target.unit}" if target.unit else ""
        return (target.what, shown(own, self.results.median(*target.ours)), peer, f"{value:.2f}{unit}", limit + unit,
                "met" if target.is_met(self.results) else "**missed**")

    def target_rows(self):
        return [self._row(target) for target in self.group.TARGETS]

    def _table(self, table):
        rows = []
        for candidate in table.candidates:
            cells = [(column.format(candidate), number) for _, column, number in table.columns]
            known = self.results.numbers
            rows.append([candidate_name(candidate)] + [
                shown(number, self.results.median(cell, number)) if number in known.get(cell, {}) else ""
                for cell, number in cells])
        return markdown(["", *(heading for heading, _, _ in table.columns)], rows)

    def details(self):
        parts = [f"### {table.title}\n\n{self._table(table)}" for table in self.group.TABLES]
        if self.options.no_growth:
            return parts
        return parts + [f"![{growth.title}](plots/{growth.file}.svg)\n" for growth in self.group.GROWTH]

    def plots(self):
        if self.options.no_growth:
            return
        for growth in self.group.GROWTH:
            series = {}
            for who, x, cell in growth.cells():
                if self.results.has(cell):
                    series.setdefault(growth.candidates[who], []).append((x, self.results.median(cell, growth.number)))
            yield growth.file, svg_plot.plot(growth.title, growth.x_label, growth.y_label, series)


def markdown(headings, rows):
    lines = [headings, ["---"] * len(headings), *rows]
    return "".join("| " + " | ".join(line) + " |\n" for line in lines)


def machine():
    model = next(line.split(":", 1)[1].strip() for line in open("/proc/cpuinfo") if line.startswith("model name"))
    return f"{model}, {os.cpu_count()} cores, Linux {platform.release()}"


def commit():
    def git(*words):
        return subprocess.run(["git", "-C", ROOT, *words], capture_output=True, text=True, check=True).stdout.strip()
    changed = " with changes" if git("status", "--porcelain", "--", "src", "bench", "cmake") else ""
    return git("rev-parse", "--short=9", "HEAD") + changed


def version(command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()[0]


def write(sections, folder, options):
    """Writes the report into `folder`, shows its first table and answers how many targets were missed."""
    (folder / "plots").mkdir(parents=True, exist_ok=True)
    for section in sections:
        for name, image in section.plots():
            (folder / "plots" / f"{name}.svg").write_text(image)
    headings = ["what", "this service", "against", "ratio", "target", ""]
    rows = [row for section in sections for row in section.target_rows()]
    for row in rows:
        print("    " + " | ".join(cell.replace("**", "") for cell in row))
    method = (ROOT / "bench/method.md").read_text()
    findings = (ROOT / "bench/findings.md").read_text()
    parts = [
        "# Performance\n\nWritten by `./dev bench` from one run; not to be edited by hand "
        "(`bench/method.md` and `bench/findings.md` are).\n",
        f"- Machine: {machine()}\n- Commit: {commit()}\n- Date: {datetime.date.today()}\n"
        f"- Compilers: {version(['g++', '--version'])}; {version(['x86_64-w64-mingw32-g++-posix', '--version'])}, -O2\n"
        f"- Rounds: {options.rounds} ({options.growth_rounds} for the plots); what counts is the median\n",
        method, "## Targets\n\n" + markdown(headings, rows), findings,
    ]
    for section in sections:
        parts += [f"## {section.group.TITLE}\n", *section.details()]
    (folder / "performance.md").write_text("\n".join(part.rstrip("\n") + "\n" for part in parts))
    return sum(len(section.missed()) for section in sections)
