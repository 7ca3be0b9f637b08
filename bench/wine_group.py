"""The service as a whole, under Wine: installs, start, idling, size."""

import contextlib
import functools
import os
import pathlib
import time

import group
import rounds
import stage
from group import Growth, Table, Target

TITLE = "The service, under Wine"
NULL_SERVICE = "ZarnNullService"
FOLDER_SERVICE = "ZarnFolderService"
SERVICES = {"zarn": stage.SERVICE, "null": NULL_SERVICE, "null and data folder": FOLDER_SERVICE}
PROGRAMS = {"zarn": "ZarnUpdateService.exe", "null": "null_service.exe"}
MIB = 1 << 20
BUNDLE_MIB = 256
GROWING_MIB = (1, 4, 16, 64, 256, 1023)  # the signature must fit into the limit of 1 GiB
IDLE_SECONDS = 60
IDLE_LIMIT = 240  # seconds
STARTS_IN_A_ROUND = 4  # in turn: single starts scatter by a factor of three
COPY = r"C:\zarn-test\copy.exe"

TARGETS = (
    Target(f"install of a {BUNDLE_MIB} MiB bundle, all but the installer", ("zarn install", "own_ms"),
           [("bare install", "own_ms")], at_most=1.25, peer="CopyFileExW and one WinVerifyTrust"),
    Target("start, from StartService to running", ("zarn start", "start_ms"), [("null start", "start_ms")], at_most=1.3,
           peer="a service that does nothing"),
    # One wake-up, that of the HTTP thread, which Wine makes three context switches of.
    Target("idle service after a check: context switches a minute", ("zarn idle after a check", "switches"),
           at_most=3),
    Target("size of ZarnUpdateService.exe", ("size", "MiB"), at_most=6, unit="MiB"),
)
TABLES = (
    Table("Idling for a minute", ("zarn idle after start", "zarn idle after a check", "null idle after start"), (
        ("context switches", "{}", "switches"), ("CPU", "{}", "cpu_ms"), ("resident", "{}", "resident_MiB"),
        ("of that private", "{}", "private_MiB"), ("threads", "{}", "threads"))),
    Table(f"Install of {BUNDLE_MIB} MiB", ("zarn install", "bare install"), (
        ("all but the installer", "{}", "own_ms"), ("copy", "{}", "copy_ms"), ("WinVerifyTrust", "{}", "verify_ms"))),
    Table("Start", ("zarn start", "null start", "null and data folder start"), (("to running", "{}", "start_ms"),)),
)
GROWTH = (
    Growth("install-size", "Install without the installer, by size of the bundle", "MiB", "ms",
           {"zarn": "this service", "bare": "copy and check"}, "{who} MiB {x}", "own_ms", GROWING_MIB),
    Growth("preferences", "Reading a preference from the registry, again and again", "reads", "us in all",
           {"preferences": "this service", "registry": "registry calls"}, "{who} reads {x}", "total_us",
           (1, 10, 100, 1000, 10000)),
)


def wait_until(condition, what, seconds=60):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise RuntimeError(f"{what}: not within {seconds} s")
        time.sleep(0.05)


class IdleProcess:
    """What a Windows process of one prefix costs, by the kernel's account."""

    def __init__(self, prefix, program):
        mark = f"WINEPREFIX={prefix}\0".encode()
        found = []
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                if program.encode() in (process / "cmdline").read_bytes() and \
                        mark in (process / "environ").read_bytes() + b"\0":
                    found.append(process)
            except OSError:
                continue  # it has ended
        if len(found) != 1:
            raise RuntimeError(f"{len(found)} processes run {program}")
        self.process = found[0]

    def usage(self):
        """Of each thread: how often it gave the processor away, and milliseconds on it."""
        result = {}
        for task in (self.process / "task").iterdir():
            with contextlib.suppress(OSError):
                status = dict(line.split(":", 1) for line in (task / "status").read_text().splitlines())
                run_ns = int((task / "schedstat").read_text().split()[0])
                result[task.name] = (int(status["voluntary_ctxt_switches"]), run_ns / 1e6)
        return result

    def memory(self):
        lines = (self.process / "smaps_rollup").read_text().splitlines()[1:]
        kib = {line.split()[0]: int(line.split()[1]) for line in lines}
        return {"resident_MiB": kib["Rss:"] / 1024,
                "private_MiB": (kib["Private_Clean:"] + kib["Private_Dirty:"]) / 1024,
                "threads": len(list((self.process / "task").iterdir()))}


class Bench(group.Bench):
    def __init__(self, options, on_end):
        super().__init__(options, on_end)
        self.mib = 8 if self.quick else BUNDLE_MIB
        self.growing_mib = GROWING_MIB[:2] if self.quick else GROWING_MIB
        self.accounts = stage.AccountService(options.work / "account-service")
        self.machine = stage.Machine(options.work / "machine")
        on_end.callback(self.accounts.stop)
        on_end.callback(self.machine.stop)
        self._set_the_stage()
        self.program = rounds.Windows(self.machine, options.windows / "bench/wine/service_bench.exe")

    def _set_the_stage(self):
        publisher = stage.Publisher(self.options.work / "publisher")
        self.accounts.approve(publisher.digest(publisher.approved))
        servers = self.accounts.start()
        self.machine.make({"ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST": servers["good"]})
        self.machine.lay_out(self.options.dist, servers["ca"])
        tools = self.options.windows / "tools/stage"
        self.machine.trust(tools, publisher.root)
        self.machine.path(r"C:\zarn-test\plan.txt").write_text("exit=1641\n")
        null_service = self.machine.windows(self.options.windows / "bench/wine/null_service.exe")
        self.machine.register()
        self.machine.register(NULL_SERVICE, f'"{null_service}"')
        self.machine.register(FOLDER_SERVICE, f'"{null_service}" folder')
        self.bundles = stage.fresh(self.options.work / "bundles")
        for mib in {1, self.mib, *self.growing_mib}:
            unsigned = self.bundles / "unsigned.tmp"
            unsigned.write_bytes((tools / "genuine_installer.exe").read_bytes())
            os.truncate(unsigned, mib * MIB)
            publisher.sign(publisher.approved, unsigned, self.bundles / f"{mib}.exe", [publisher.root])
            unsigned.unlink()

    # ---- Services ------------------------------------------------------------------

    def _is(self, service, state):
        return state in self.machine.wine("sc", "query", service, check=False).stdout

    def _stop(self, service):
        if self._is(service, "RUNNING"):
            self.machine.wine("sc", "stop", service)
        wait_until(lambda: self._is(service, "STOPPED"), f"the end of {service}")

    def _start(self, service):
        if not self._is(service, "RUNNING"):
            self.machine.wine("sc", "start", service)
        wait_until(lambda: self._is(service, "RUNNING"), f"the start of {service}")

    def _bundle(self, mib):
        return self.machine.windows(self.bundles / f"{mib}.exe")

    # ---- Cells ---------------------------------------------------------------------

    def _start_cell(self, who):
        cell = self.program.cell(f"{who} start", cell="start", service=SERVICES[who])

        def run():
            self._stop(SERVICES[who])
            return cell.run()
        return rounds.Cell(cell.name, run)

    def _install_cell(self, name, mib):
        warm_up = self.program.cell("", cell="install", path=self._bundle(1))
        cell = self.program.cell(name, cell="install", path=self._bundle(mib))

        def run():
            if not self._is(stage.SERVICE, "RUNNING"):
                self._start(stage.SERVICE)
                warm_up.run()
            return cell.run()
        return rounds.Cell(name, run)

    def _bare_cell(self, name, mib):
        return self.program.cell(name, cell="bare", path=self._bundle(mib), target=COPY, small=self._bundle(1))

    def cells(self):
        starts = 1 if self.quick else STARTS_IN_A_ROUND
        return [*(self._start_cell(who) for _ in range(starts) for who in SERVICES),
                self._install_cell("zarn install", self.mib), self._bare_cell("bare install", self.mib)]

    def growth_cells(self):
        size, preferences = GROWTH
        make = {"zarn": self._install_cell, "bare": self._bare_cell}
        cells = [make[who](name, mib) for who, mib, name in size.cells() if mib in self.growing_mib]
        cells += [self.program.cell(name, cell=who, reads=min(reads, 100) if self.quick else reads)
                  for who, reads, name in preferences.cells()]
        return cells

    # ---- Idling --------------------------------------------------------------------

    def _idle(self, names):
        """What the processes do in the same minute, by name of the cell."""
        seconds = 5 if self.quick else IDLE_SECONDS
        time.sleep(seconds / 2)  # what came before is over
        processes = {name: IdleProcess(self.machine.prefix, PROGRAMS[name.split()[0]]) for name in names}
        before = {name: process.usage() for name, process in processes.items()}
        time.sleep(seconds)
        share = IDLE_SECONDS / seconds
        result = {}
        for name, process in processes.items():
            after = process.usage()
            # A thread that is there at both ends shows what it did; one that came or
            # went did at least something.
            stayed = before[name].keys() & after.keys()
            switches = sum(after[thread][0] - before[name][thread][0] for thread in stayed)
            switches += len(before[name].keys() ^ after.keys())
            cpu_ms = sum(after[thread][1] - before[name][thread][1] for thread in stayed)
            result[name] = {"switches": switches * share, "cpu_ms": cpu_ms * share, **process.memory()}
        return result

    def _idle_cells(self, names, prepare):
        """The first cell that runs measures for all."""
        measured = {}

        def run(name):
            if name not in measured:
                prepare()
                measured.update(self._idle(names))
            return measured[name]
        return [rounds.Cell(name, functools.partial(run, name), IDLE_LIMIT) for name in names]

    def _start_both_anew(self):
        self._stop(stage.SERVICE)
        self._start(stage.SERVICE)
        self._start(NULL_SERVICE)

    def _check_a_bundle(self):
        self._start(stage.SERVICE)
        self.machine.wine(self.options.dist / "zarn-update.exe", "check", self._bundle(1))

    def _size(self):
        return {"MiB": (self.options.dist / "ZarnUpdateService.exe").stat().st_size / MIB}

    def once_cells(self):
        return [rounds.Cell("size", self._size),
                *self._idle_cells(("zarn idle after start", "null idle after start"), self._start_both_anew),
                *self._idle_cells(("zarn idle after a check",), self._check_a_bundle)]

    def recover(self):
        """Ends whatever a failed cell has left behind."""
        self.machine.wine("--restart")
