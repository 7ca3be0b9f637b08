#!/usr/bin/python3
"""Load and endurance: the service on a private Wine machine, many callers at once, and everything that
can happen to it, at random from a printed seed. Called by ./dev soak and, for some seconds, by ctest.

First comes one long life of the service, under load and hostile answers, that nothing ends: by it memory,
handles and threads are judged, less what a bare loop of the same calls of the system grows by beside it.
Then storms: stops, ends from outside, restarts after installs, killed and stopped callers, bundles exchanged,
settings of every wrong type, the clock set back and forth, a registry and threads that are refused. After each
round:

- every call has an answer or a typed error, and only one that its kind allows;
- what was answered "installed" stands in the record once, with that status, and every record has its call;
- as many installers ran as the record says, each of them genuine;
- every line of log and record is whole, and no log says that something broke;
- the service serves the next request.
"""

import argparse
import asyncio
import collections
import contextlib
import json
import os
import pathlib
import random
import re
import shutil
import signal
import ssl
import statistics
import subprocess
import sys
import threading
import time

import hostile
import servers
import stage

CALLERS = r"C:\zarn-test\callers"
RECORDS = r"C:\ProgramData\Zarn Update Service"
KEPT_ROUNDS = 3  # of callers' files, for a look afterwards
CALLER_LIMIT = 1800  # seconds for a round's calls
SETTLE_SECONDS = 12  # idle workers of the pool end after ten
FLAT = {"own KiB": 2048, "handles": 20, "threads": 3, "descriptors": 15}  # the most that a third may be above another

# What the library answers (client/zarn_update_client.h), and the service.
OK, TIMED_OUT, CANCELLED = 0, 8, 9
AWAY = {5, 7, 12}  # not running, interrupted, other
CONTROL_MANAGER_TIMEOUT = "1053"  # Wine's waits ten seconds for a process, however many others there are
NOT_LISTENING = 1715  # what Wine says of an endpoint that is busy for a millisecond, too
INSTALLED = {0, 30000, 30001}
OUTCOMES = INSTALLED | {30002, 30003, 30005}
ALLOWED = {  # statuses of answered calls, results beside OK that need no reason
    "probe": ({0}, set()), "service": ({0}, set()), "under-way": ({0}, set()), "exchange": ({0}, set()),
    "app-data": ({0}, set()), "wrong": (set(), {1, 2, 3, 4}),
    "check-missing": ({30004}, set()), "check-refused": ({30004}, set()), "check-foreign": ({30004, 30005}, set()),
    "check-approved": ({0, 30004, 30005}, set()), "check-limited": ({0, 30004, 30005}, {TIMED_OUT}),
    "install-refused": ({30002, 30004, 30005}, set()), "install-shared": (OUTCOMES | {30004}, set()),
    "install-approved": (OUTCOMES, set()), "install-wait": (OUTCOMES, set()),
    "install-cancelled": (OUTCOMES, {CANCELLED}),
}
OWN_PATH = {"install-approved", "install-wait", "install-cancelled"}
VERIFIED = {"check-refused", "check-foreign", "check-approved", "check-limited", "install-refused", "install-shared",
            *OWN_PATH}
EXIT_CODES = {0, 1467, 77}  # a stop, a restart after an install, ended from outside

LOG_LINE = re.compile(r"\w{3} \d\d, \d{4} \d\d:\d\d:\d\d\.\d{3} \[\d{4,}\] (ERROR|WARN|INFO|DEBUG|VERBOSE) - ")
BROKEN = re.compile(r"FATAL ERROR|[Uu]nknown exception|std::|EXCEPTION|lost because the queue")
PREFERENCES = ("LogNumFiles", "LogVerbose", "logDebug", "LogMemoryUse", "LogTokensForDebug", "LocalAppDataPath",
               "ZarnOnlineUsername")
CLOCKS = (0, 0, 1, -1, 3600, -3600, 86400 * 40, -86400 * 400, 86400 * 365 * 30, -86400 * 365 * 50)  # seconds off
REFUSALS = ("registry", "CreateThread", "_beginthreadex")
PLANS = ("exit=1641\n", "exit=1641\nlog=Zarn Media Server Setup.log\n", "exit=1603\n", "exit=30003\n",
         "exit=1641\nsleep_ms=300\n", "exit=0\n", "exit=3010\n")
CALM_PLANS = 5  # the first so many restart nothing


class Failed(Exception):
    """What should not have happened."""


class Accounts:
    """The account service: the right list, or, as often as `hostility` says, a hostile answer."""

    def __init__(self, folder, seed):
        self.accounts = stage.AccountService(folder)
        self.folder, self.seed = folder, seed
        self.hostility, self.slow = 0.0, False
        self.asked, self.longest = collections.Counter(), collections.Counter()  # the latter in seconds

    def start(self, digest):
        self.profile = json.dumps({"certs": [digest]}).encode()
        self.accounts.approve(digest)
        self.settings = self.accounts.start()
        ready = threading.Event()
        threading.Thread(target=lambda: asyncio.run(self._serve(ready)), daemon=True).start()
        ready.wait(20)
        return self.settings

    async def _serve(self, ready):
        asyncio.get_running_loop().set_exception_handler(lambda _loop, _what: None)  # of connections that are gone
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(self.folder / "good.pem", self.folder / "good.key")
        listener = servers.listen()
        self.host = f"{servers.HOST}:{listener.getsockname()[1]}"
        await asyncio.start_server(servers.connection_handler(self._answer, self.settings | {"plain_http": self.host}),
                                   sock=listener, ssl=context)
        ready.set()
        await asyncio.Event().wait()

    async def _answer(self, _request, out, hosts):
        number = self.asked.total()
        if random.Random(f"{self.seed} {number}").random() < self.hostility:
            name, play = hostile.act_of(f"{self.seed} {number}", self.slow)
            self.asked[name] += 1
            began = time.monotonic()
            try:
                await play(out, hosts)
            finally:
                self.longest[name] = max(self.longest[name], round(time.monotonic() - began))
        else:
            self.asked["right"] += 1
            out.write(hostile.HEAD + b"Content-Length: %d\r\n\r\n" % len(self.profile) + self.profile)

    def stop(self):
        self.accounts.stop()


class Pipe:
    """A Windows program that answers lines with lines."""

    def __init__(self, machine, *command):
        self.process = subprocess.Popen([stage.ROOT / "tools/wine", *command], env=machine.environment, text=True,
                                        stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        self.lock = threading.Lock()
        self._read()

    def _read(self):
        line = self.process.stdout.readline()
        if not line:
            raise Failed(f"{self.process.args[1]} has ended with {self.process.wait(10)}")
        return line.split()

    def ask(self, line):
        with self.lock:
            self.process.stdin.write(line + "\n")
            self.process.stdin.flush()
            return self._read()

    def end(self):
        self.process.stdin.close()
        self.process.wait(30)


def process_of(prefix, program):
    """The one process of a prefix that runs a program, by its folder in /proc; None without one."""
    mark = f"WINEPREFIX={prefix}\0".encode()
    for process in pathlib.Path("/proc").glob("[0-9]*"):
        with contextlib.suppress(OSError):
            if program.encode() in (process / "cmdline").read_bytes() and \
                    mark in (process / "environ").read_bytes() + b"\0":
                return process
    return None


def usage(process):
    """Private memory in KiB, threads and descriptors."""
    kib = {line.split()[0]: int(line.split()[1]) for line in (process / "smaps_rollup").read_text().splitlines()[1:]}
    return {"kib": kib["Private_Clean:"] + kib["Private_Dirty:"], "threads": len(list((process / "task").iterdir())),
            "descriptors": len(list((process / "fd").iterdir()))}


class Caller:
    """One process of calls."""

    def __init__(self, soak, name, calls, installs, only=()):
        self.name, self.killed = name, False
        self.file = soak.machine.path(CALLERS) / f"{name}.calls"
        self.process = subprocess.Popen(
            [stage.ROOT / "tools/wine", soak.programs / "caller.exe", str(soak.chance.getrandbits(40)), str(calls),
             soak.machine.windows(soak.bundles), CALLERS, name, str(installs), *only],
            env=soak.machine.environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL)

    def signal(self, number):
        self.killed = self.killed or number == signal.SIGKILL
        if self.process.poll() is None:
            self.process.send_signal(number)

    def calls(self):
        """(kind, path, result, status) of each; result None when the caller was killed meanwhile."""
        begun = None
        if not self.file.exists():
            return
        for line in self.file.read_text(errors="replace").splitlines():
            what, _number, rest = line.split(" ", 2)
            if what == "begin":
                begun = rest.partition(" ")
            else:
                yield begun[0], begun[2], *map(int, rest.split())
                begun = None
        if begun is not None:
            yield begun[0], begun[2], None, None, None, None, None


class Soak:
    def __init__(self, options):
        self.options, self.chance = options, random.Random(options.seed)
        self.work, self.programs = options.work, options.build / "tools/stage"
        self.machine = stage.Machine(self.work / "machine")
        self.accounts = Accounts(self.work / "account-service", options.seed)
        self.callers, self.started, self.faulted = [], 0, False
        self.counts = collections.Counter()  # of calls by kind and outcome
        self.happened = collections.Counter()
        self.rpc_statuses = collections.Counter()
        self.records, self.answered, self.verified, self.ends = {}, {}, 0, 0
        self.longest_ms = collections.Counter()
        self.samples = []
        self.began = time.monotonic()

    # ---- The stage -----------------------------------------------------------------

    def set_stage(self):
        publisher = stage.Publisher(self.work / "publisher")
        self.bundles = stage.make_bundles(publisher, self.programs, self.work / "bundles")
        settings = self.accounts.start(publisher.digest(publisher.approved))
        self.machine.make({"ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST": self.accounts.host})
        self.machine.lay_out(self.options.dist, settings["ca"])
        self.machine.path(CALLERS).mkdir()
        self.machine.trust(self.programs, publisher.root, publisher.sha1_root)
        self.machine.register()
        self.keeper = Pipe(self.machine, self.programs / "keeper.exe")
        self.plan(PLANS[0])

    def plan(self, text):
        """Exchanged whole: installers read it at any time."""
        target = self.machine.path(r"C:\zarn-test\plan.txt")
        target.with_suffix(".new").write_text(text)
        target.with_suffix(".new").rename(target)

    def say(self, text):
        print(f"{time.monotonic() - self.began:7.0f} s  {text}", flush=True)

    # ---- The service -----------------------------------------------------------------

    def start(self):
        for _attempt in range(4):
            answer = self.keeper.ask("start")
            if answer[0] == "running":
                self.started += 1
                return
            if answer[1] != CONTROL_MANAGER_TIMEOUT:
                break
            self.happened["starts that the busy control manager gave up"] += 1
        raise Failed(f"the service does not start: {answer}")

    def end(self, how):
        answer = self.keeper.ask(how)
        if answer[0] == "left":
            raise Failed(f"the service does not end: {how}: {answer}")
        if answer[0] == "ended":
            self.note_end(int(answer[1]))

    def note_end(self, code):
        self.ends += 1
        self.happened[f"process ended with {code}"] += 1
        if code not in EXIT_CODES:
            raise Failed(f"the service ended with {code:#x}")

    def look(self):
        """Starts it when it is not there."""
        answer = self.keeper.ask("look")
        if answer[0] == "ended":
            self.note_end(int(answer[1]))
        if answer[0] != "running":
            self.start()

    def sample(self):
        self.look()
        handles = int(self.keeper.ask("handles")[1])
        return usage(process_of(self.machine.prefix, "ZarnUpdateService.exe")) | {"handles": handles}

    # ---- Calls -----------------------------------------------------------------------

    def call(self, processes, calls, installs):
        number = len(self.callers)
        self.callers += [Caller(self, f"{self.round}-{number + i}", calls, installs) for i in range(processes)]

    def finish_calls(self, disturb=None, every=1.0):
        end = time.monotonic() + CALLER_LIMIT
        next_one = time.monotonic() + every
        while any(caller.process.poll() is None for caller in self.callers):
            if time.monotonic() > end:
                raise Failed("calls without an end")
            if disturb and time.monotonic() > next_one:
                disturb()
                next_one = time.monotonic() + every * self.chance.uniform(0.2, 2)
            elif disturb:
                self.look()
            time.sleep(0.1)

    def judge_calls(self, ended):
        """What the callers were answered in a round in which the service ended so often."""
        for caller in self.callers:
            if caller.process.returncode != 0 and not caller.killed:
                raise Failed(f"caller {caller.name} ended with {caller.process.returncode}")
            for kind, path, result, status, exit_code, rpc, ms in caller.calls():
                self._judge_call(caller, ended, kind, path, result, status, exit_code, rpc, ms)
        for old in self.machine.path(CALLERS).glob("*"):
            if old.name[0].isdigit() and int(old.name.partition("-")[0]) <= self.round - KEPT_ROUNDS:
                old.unlink()
        self.callers = []

    def _judge_call(self, caller, ended, kind, path, result, status, exit_code, rpc, ms):
        if result is None:
            if not caller.killed:
                raise Failed(f"{kind} {path} of {caller.name}: no answer")
            self.counts[kind, "caller killed"] += 1
            return
        statuses, results = ALLOWED[kind]
        shown = f"{kind} {path} of {caller.name}: result {result}, status {status}, exit code {exit_code}, RPC {rpc}"
        if result == OK and status not in statuses:
            raise Failed(shown)
        is_busy = kind == "probe" and rpc == NOT_LISTENING
        if result != OK and result not in results and not is_busy and not (result in AWAY and ended):
            raise Failed(shown + f", and the service ended {ended} times")
        self.counts[kind, status if result == OK else f"result {result}"] += 1
        self.longest_ms[kind] = max(self.longest_ms[kind], ms)
        if rpc:
            self.rpc_statuses[rpc] += 1
        self.verified += kind in VERIFIED and result == OK
        if kind in OWN_PATH:
            self.answered[path] = status if result == OK else None

    def wait_for_installs(self):
        """Of callers who have gone."""
        end = time.monotonic() + 120
        while (self.machine.path(RECORDS) / "Installing.json").exists():
            if time.monotonic() > end:
                raise Failed("an install without an end")
            time.sleep(0.1)

    # ---- Records, runs, logs -----------------------------------------------------------

    def read_records(self):
        for file in self.machine.path(RECORDS).glob("*.jsonl"):
            text = file.read_bytes()
            if text and not text.endswith(b"\n"):
                raise Failed(f"half a line at the end of {file.name}")
            for line in text.decode().splitlines():
                record = json.loads(line)
                self.records[record["time"], record["path"], record["caller"]["processId"]] = record

    def judge_records(self):
        self.read_records()
        by_path = collections.defaultdict(list)
        for record in self.records.values():
            by_path[record["path"]].append(record)
        for path, status in self.answered.items():
            found = by_path[path]
            if len(found) > 1:
                raise Failed(f"{path}: {len(found)} records")
            if status in INSTALLED and not found:
                raise Failed(f"{path}: answered {status}, and no record")
            if found and status is not None and found[0]["status"] != status:
                raise Failed(f"{path}: answered {status}, recorded {found[0]['status']}")
            if status in INSTALLED and not found[0]["installerStarted"]:
                raise Failed(f"{path}: answered {status}, and the record says that nothing ran")
        self._judge_runs(sum(bool(record["installerStarted"]) for record in self.records.values()))

    def _judge_runs(self, recorded):
        runs = self.machine.path(r"C:\zarn-test\runs.txt")
        lines = [line.split() for line in runs.read_text().splitlines()] if runs.exists() else []
        strangers = [line for line in lines if line[1] != "genuine"]
        if strangers:
            raise Failed(f"ran: {strangers[0]}")
        begun = sum(line[0] == "start" for line in lines)
        # A service that is ended from outside may leave an installer without its record.
        killed = self.happened["process ended with 77"]
        if not recorded <= begun <= recorded + killed:
            raise Failed(f"{begun} installers ran, {recorded} are recorded, the service was killed {killed} times")
        self.happened["installers ran"] = begun

    def judge_logs(self):
        folders = [*self.machine.prefix.glob("drive_c/users/*/AppData/Local/Zarn Media Server/Logs"),
                   *self.machine.prefix.glob("drive_c/zarn-test/data */Zarn Media Server/Logs")]
        for file in (file for folder in folders for file in folder.glob("Zarn Update Service*.log")):
            with contextlib.suppress(FileNotFoundError):  # rotated away
                # Of the line that is being written just now only a part may be there.
                for line in file.read_bytes().decode(errors="replace").split("\n")[:-1]:
                    if not LOG_LINE.match(line):
                        raise Failed(f"{file.name} has the line {line[:200]!r}")
                    if not self.faulted and BROKEN.search(line):
                        raise Failed(f"{file.name}: {line[:300]}")

    def judge(self, ended):
        self.judge_calls(ended)
        self.wait_for_installs()
        self.judge_records()
        self.judge_logs()

    def judge_next_request(self):
        """With nothing in its way, the service installs the approved bundle."""
        self.plan(PLANS[0])
        self.accounts.hostility = 0
        for attempt in range(2):
            self.look()
            self.callers = [Caller(self, f"{self.round}-last{attempt}", 1, 1, ["install-approved"])]
            self.finish_calls()
            answers = [status for _kind, _path, _result, status, *_rest in self.callers[0].calls()]
            if answers == [30001]:
                return self.judge_calls(0)
            # A service that was killed before the installer's process had a thread leaves, under Wine, one
            # that never runs, and keeps the copy: an administrator has to end it.
            orphan = process_of(self.machine.prefix, stage.STAGED)
            if orphan is None or not self.happened["process ended with 77"]:
                break
            self.happened["installer without a life ended"] += 1
            os.kill(int(orphan.name), signal.SIGKILL)
            time.sleep(1)
        raise Failed(f"the next request is answered {answers}")

    # ---- What happens ------------------------------------------------------------------

    def wrong_setting(self):
        """A preference of any type and length."""
        kind = self.chance.choice((0, 1, 2, 3, 4, 5, 7, 11, 99))  # REG_NONE to REG_QWORD, and none at all
        data = self.chance.randbytes(self.chance.choice((0, 1, 2, 3, 4, 5, 8, 64, 3000)))
        self.keeper.ask(f"set prefs {self.chance.choice(PREFERENCES)} {kind} {data.hex()}")

    def right_settings(self):
        for name in PREFERENCES:
            self.keeper.ask(f"unset prefs {name}")

    def disturb(self):
        living = [caller for caller in self.callers if caller.process.poll() is None]
        what, act = self.chance.choice((
            ("clock", lambda: self.keeper.ask(f"clock {self.chance.choice(CLOCKS)}")),
            *((f"{what} refused", lambda what=what: self.refuse(what)) for what in REFUSALS),
            ("stop", lambda: self.end("stop")), ("kill", lambda: self.end("kill")),
            ("plan", lambda: self.plan(self.chance.choice(PLANS))), ("setting", self.wrong_setting),
            ("hostility", lambda: setattr(self.accounts, "hostility", self.chance.choice((0, 0, 0.3, 0.9)))),
            ("caller killed", lambda: self.chance.choice(living).signal(signal.SIGKILL)),
            ("caller stopped", lambda: self.pause(self.chance.choice(living)))))
        if living:
            self.happened[what] += 1
            act()

    def refuse(self, what):
        """For a while, and while the service is not started anew."""
        self.faulted = True
        self.keeper.ask(f"refuse {what}")
        time.sleep(self.chance.uniform(0.2, 2))
        self.happened[f"calls that failed, {what}"] += int(self.keeper.ask("allow")[1])

    def pause(self, caller):
        caller.signal(signal.SIGSTOP)
        threading.Timer(self.chance.uniform(0.1, 3), lambda: caller.signal(signal.SIGCONT)).start()

    # ---- Rounds --------------------------------------------------------------------------

    def storm(self, processes, calls, installs):
        before = self.ends
        self.call(processes, calls, installs)
        self.finish_calls(self.disturb)
        self.look()
        self.judge(self.ends - before)
        self.right_settings()
        self.keeper.ask("clock 0")
        self.judge_next_request()

    def calm(self, processes, calls, installs):
        """Load that ends no service."""
        before = self.ends
        self.plan(self.chance.choice(PLANS[:CALM_PLANS]))
        self.accounts.hostility = self.chance.choice((0, 0.2, 0.5))
        self.call(processes, calls, installs)
        self.finish_calls()
        if self.keeper.ask("look")[0] != "running":
            raise Failed("the service has ended by itself")
        self.judge(self.ends - before)
        self.judge_next_request()

    def long_life(self, until):
        """Calm rounds, and the usage behind each of them."""
        self.start()
        first = self.round
        while self.round < first + 3 or time.monotonic() < until:
            self.round += 1
            self.calm(self.options.callers, self.options.calls, self.options.installs)
            time.sleep(SETTLE_SECONDS if self.options.hours else 0)
            sample = self.sample() | {"verified": self.verified}
            self.samples.append(sample)
            self.say(f"round {self.round}: {sample}")

    def storms(self, until):
        """With the fault switch in the service, of the very parts that ship."""
        if self.started:
            self.end("stop")
        shutil.copy(self.programs / "faults/ZarnUpdateServiceUnderFaults.exe",
                    self.machine.path(stage.INSTALL_DIR) / "ZarnUpdateService.exe")
        self.start()
        first = self.round
        while self.round < first + 1 or time.monotonic() < until:
            self.round += 1
            self.accounts.slow = self.chance.random() < 0.1
            self.storm(self.options.callers, self.options.calls, self.options.installs)
            self.say(f"round {self.round}, storm: {self.ends} ends so far")

    def bare_growth(self, rounds):
        """KiB a round that Windows' own calls of a check cost here, without any code of ours."""
        loop = Pipe(self.machine, self.programs / "bare_loop.exe", self.machine.windows(self.bundles / "approved.exe"))
        loop.ask(str(max(rounds // 4, 20)))
        process = process_of(self.machine.prefix, "bare_loop.exe")
        before = usage(process)["kib"]
        loop.ask(str(rounds))
        after = usage(process)["kib"]
        loop.end()
        return (after - before) / rounds

    def judge_usage(self):
        """The middle third of the long life, what is warm then, beside the last one; each by its medians, since a
        round leaves now more, now less of what its threads had."""
        third = max(len(self.samples) // 3, 1)
        first, last = ({key: statistics.median_low(sample[key] for sample in part) for key in self.samples[0]}
                       for part in (self.samples[-2 * third:-third], self.samples[-third:]))
        grown = {key: last[key] - first[key] for key in last}
        bare = self.bare_growth(min(max(grown["verified"], 40), 2000))
        grown["own KiB"] = round(grown["kib"] - bare * grown["verified"])
        self.say(f"long life, last third beside the middle one: {grown}; Wine's own {bare:.1f} KiB a check, taken off "
                 f"in \"own KiB\"; at the end {last}")
        too_much = [key for key, most in FLAT.items() if grown[key] > most]
        if too_much and self.options.hours:
            raise Failed(f"not flat: {too_much}")

    def run(self):
        self.round = 0
        seconds = self.options.hours * 3600
        self.set_stage()
        self.say("the stage is set")
        if self.options.only != "storms":
            self.long_life(self.began + seconds * (1 if self.options.only else 0.5))
            self.judge_usage()
        if self.options.only != "life":
            self.storms(self.began + seconds)
        self.report()

    def report(self):
        self.say(f"seed {self.options.seed}: {self.round} rounds, {sum(self.counts.values())} calls, {self.started} "
                 f"starts, {len(self.records)} records, {sum(self.accounts.asked.values())} requests for the profile")
        for (kind, outcome), number in sorted(self.counts.items(), key=str):
            print(f"    {kind:18} {outcome!s:14} {number:7}   longest {self.longest_ms[kind]} ms")
        for title, table in (("what happened", self.happened), ("RPC statuses", self.rpc_statuses),
                             ("the account service's answers", self.accounts.asked),
                             ("their longest, in seconds", +self.accounts.longest)):
            print(f"  {title}: " + ", ".join(f"{name} {number}" for name, number in sorted(table.items(), key=str)))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=lambda path: pathlib.Path(path).resolve(), required=True)
    parser.add_argument("--dist", type=lambda path: pathlib.Path(path).resolve(), required=True)
    parser.add_argument("--work", type=lambda path: pathlib.Path(path).resolve(), required=True)
    parser.add_argument("--hours", type=float, default=0, help="0: the least of everything")
    parser.add_argument("--seed", type=int, default=random.SystemRandom().getrandbits(32))
    parser.add_argument("--callers", type=int, default=16, help="processes at once")
    parser.add_argument("--calls", type=int, default=200, help="of each of them in a round")
    parser.add_argument("--installs", type=int, default=10, help="their weight among 935 other calls")
    parser.add_argument("--only", choices=("life", "storms"))
    options = parser.parse_args()
    print(f"seed {options.seed}", flush=True)
    os.makedirs(options.work, exist_ok=True)
    soak = Soak(options)
    try:
        soak.run()
    except Failed as failure:
        soak.report()
        sys.exit(f"FAILED in round {soak.round}, seed {options.seed}: {failure}\nEverything is left in {options.work}")
    finally:
        for caller in soak.callers:
            caller.signal(signal.SIGKILL)
        soak.machine.stop()
        soak.accounts.stop()


if __name__ == "__main__":
    main()
