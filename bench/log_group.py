"""Log calls, and lines on disk, beside other loggers that write every line at once."""

import shutil

import group
import rounds
from group import Growth, Table, Target

TITLE = "Logging"
LOGGERS = ("zarn", "spdlog", "glog", "boost-async", "boost-sync")
PEERS = ("spdlog", "glog", "boost-async", "boost-sync")
TEXT_BYTES = 72  # lines of about 125 bytes
CELLS = {  # name: (cell, producers, lines of each, candidates)
    "burst 1": ("burst", 1, 4000, LOGGERS),
    "burst 4": ("burst", 4, 4000, LOGGERS),
    "paced 4": ("paced", 4, 5000, LOGGERS),
    "flood 1": ("flood", 1, 400_000, (*LOGGERS, "write")),
    "flood 4": ("flood", 4, 100_000, LOGGERS),
}

SPDLOG = "spdlog, async, flush on every line"
TARGETS = (
    Target("log call, p50 in bursts, 1 producer", ("zarn burst 1", "p50_ns"), [("spdlog burst 1", "p50_ns")],
           at_most=0.45, peer=SPDLOG),
    Target("log call, p50 in bursts, 4 producers", ("zarn burst 4", "p50_ns"), [("spdlog burst 4", "p50_ns")],
           at_most=0.45, peer=SPDLOG),
    Target("log call, p99 at a steady pace, 4 producers", ("zarn paced 4", "p99_ns"), [("spdlog paced 4", "p99_ns")],
           at_most=0.3, peer=SPDLOG),
    Target("lines/s with every line written, 4 producers", ("zarn flood 4", "lines_per_s"),
           [(f"{peer} flood 4", "lines_per_s") for peer in PEERS], at_least=2, peer="best of spdlog, glog, Boost.Log"),
    Target("lines/s with every line written, 1 producer", ("zarn flood 1", "lines_per_s"),
           [("write flood 1", "lines_per_s")], at_least=0.75, peer="bare write loop of the same bytes"),
)
TABLES = (
    Table("Loggers, every line by a write of its own", (*LOGGERS, "write"), (
        ("call p50, bursts, 1 producer", "{} burst 1", "p50_ns"),
        ("4 producers", "{} burst 4", "p50_ns"),
        ("call p99, steady, 4 producers", "{} paced 4", "p99_ns"),
        ("written, 1 producer", "{} flood 1", "lines_per_s"),
        ("4 producers", "{} flood 4", "lines_per_s"),
        ("writes a line", "{} writes", "writes_per_line"),
    )),
)
SHOWN = {"zarn": "this service", "spdlog": "spdlog", "glog": "glog", "boost-sync": "Boost.Log"}
GROWTH = (
    Growth("log-producers", "Lines written, by producers", "producers", "lines/s", SHOWN,
           "{who} producers {x}", "lines_per_s", (1, 2, 4, 8, 16)),
    Growth("log-call-producers", "A log call in bursts (p50), by producers", "producers", "ns", SHOWN,
           "{who} burst producers {x}", "p50_ns", (1, 2, 4, 8, 16)),
    Growth("log-length", "Text written, by length of its lines", "bytes of text in a line", "bytes/s",
           # not glog, which cuts lines at 30,000 bytes
           {"write": "bare writes", "zarn": "this service", "spdlog": "spdlog", "boost-sync": "Boost.Log"},
           "{who} length {x}", "text_bytes_per_s", (20, 100, 400, 1600, 6400, 65536)),
)


class Bench(group.Bench):
    def _cell(self, who, name, cell, producers, lines, text=TEXT_BYTES):
        lines = max(20, lines // 20) if self.quick else lines
        return self.native.log_cell(name, candidate=who, cell=cell, producers=producers, lines=lines, text=text)

    def cells(self):
        return [self._cell(who, f"{who} {name}", cell, producers, lines)
                for name, (cell, producers, lines, candidates) in CELLS.items() for who in candidates]

    def growth_cells(self):
        throughput, calls, length = GROWTH
        cells = [self._cell(who, name, "flood", x, 200_000 // x) for who, x, name in throughput.cells()]
        cells += [self._cell(who, name, "burst", x, 2000) for who, x, name in calls.cells()]
        cells += [self._cell(who, name, "flood", 1, min(200_000, 50_000_000 // x), x)
                  for who, x, name in length.cells()]
        return cells

    def once_cells(self):
        """That each candidate really makes a system call for each line."""
        if shutil.which("strace") is None:
            return []
        return [self._traced_cell(who) for who in (*LOGGERS, "write")]

    def _traced_cell(self, who):
        lines = 500
        summary = self.options.work / "strace.txt"
        trace = ("strace", "-f", "-c", "-e", "trace=write,writev", "-o", str(summary))
        cell = self._cell(who, f"{who} writes", "flood", 1, lines * (20 if self.quick else 1))

        def run():
            cell.run(trace)
            rows = [line.split() for line in summary.read_text().splitlines()]
            writes = sum(int(row[3]) for row in rows if row and row[-1] in ("write", "writev"))
            if writes < lines:
                raise RuntimeError(f"{who} made {writes} writes for {lines} lines")
            return {"writes_per_line": round(writes / lines, 2)}
        return rounds.Cell(cell.name, run)
