"""The installed service on a disk with room for so many times 4 KiB, from none to enough for one whole install:
its temp folder, logs and records lie on one small file system. ZARN_LONG=1 takes every number of blocks.

Where this process may not mount anything, the test is skipped.
"""

import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import time
import zipfile

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "stage"))
import stage  # noqa: E402
from faults import killed, small_disk  # noqa: E402

TOOL = stage.INSTALL_DIR + r"\zarn-update.exe"
LINE = re.compile(r"[A-Z][a-z]{2} \d\d, \d{4} \d\d:\d\d:\d\d\.\d{3} \[\d{4,}\] [A-Z]+ - .*")
LONG = "ZARN_LONG" in os.environ


class FullMachine(stage.MachineTest):
    @classmethod
    def setUpClass(cls):
        cls.mounts = small_disk.may_mount()
        cls.publish()
        authorities = cls.make_machine()
        cls.machine.lay_out(cls.dist, authorities)
        cls.machine.register()
        cls.start()
        cls.plan("first")
        assert cls.install() == 30001
        cls.stop()
        cls.data = next(cls.machine.prefix.glob("drive_c/users/*/AppData/Local/Zarn Media Server"))
        cls.temp = next(cls.machine.prefix.glob("drive_c/users/*/Temp"))
        cls.records = cls.at(r"C:\ProgramData\Zarn Update Service")
        if cls.mounts:
            cls.disk = small_disk.SmallDisk(cls.work / "disk", (cls.temp, cls.data, cls.records))
        cls.start()

    @classmethod
    def start(cls):
        cls.machine.wine("sc", "start", stage.SERVICE)
        deadline = time.monotonic() + 30
        approved = cls.machine.windows(cls.bundles / "approved.exe")
        while cls.machine.wine(TOOL, "check", approved, check=False).returncode:
            assert time.monotonic() < deadline, "the service does not answer"

    @classmethod
    def stop(cls):
        cls.machine.wine("sc", "stop", stage.SERVICE)
        deadline = time.monotonic() + 30
        while "STOPPED" not in cls.machine.wine("sc", "query", stage.SERVICE).stdout:
            assert time.monotonic() < deadline, "the service does not stop"

    @classmethod
    def plan(cls, name):
        """The next installer writes a log of its own, succeeds and asks for no restart."""
        cls.at(r"C:\zarn-test\plan.txt").write_text(f"exit=1641\nlog=dd_vcredist_{name}.log\n")
        cls.at(r"C:\zarn-test\runs.txt").unlink(missing_ok=True)

    @classmethod
    def install(cls):
        answer = cls.machine.wine(TOOL, "install", cls.machine.windows(cls.bundles / "approved.exe"), "--json",
                                  check=False).stdout
        return json.loads(answer[answer.index("{"):])["status"]

    def has_run(self):
        runs = self.at(r"C:\zarn-test\runs.txt")
        return runs.exists() and "end genuine" in runs.read_text()

    def assert_all_is_whole(self):
        """Log lines are whole, or torn and at the end of what found room; records are whole; so are collected logs."""
        for log in (self.data / "Logs").glob("*.log"):
            for line in log.read_text().splitlines():
                self.torn += not LINE.fullmatch(line) and line != ""
        for record in self.records.glob("*.jsonl"):
            for line in record.read_text().splitlines():
                self.assertIn("status", json.loads(line), record)
        for log in (self.data / "Logs" / "Installer Logs").glob("*"):
            self.assertEqual(log.read_bytes(), (self.temp / log.name).read_bytes(), log.name)

    def test_goes_on_when_there_is_space_again(self):
        if not self.mounts:
            self.skipTest("skipped, no right to mount")
        answers, torn = {}, 0
        enough = ((self.bundles / "approved.exe").stat().st_size // small_disk.BLOCK // 32 + 2) * 32
        for blocks in range(0, enough + 1, 1 if LONG else 32):
            with self.subTest(blocks=blocks):
                self.torn = 0
                self.plan(f"{blocks}_full")
                (self.temp / stage.STAGED).unlink(missing_ok=True)
                self.disk.fill(blocks)
                if blocks % 64 == 32:
                    self.stop()
                    self.start()
                answer = self.install()
                self.assertEqual(self.has_run(), answer == 30001)
                self.assertIn(answer, (30001, 30002))
                self.disk.free()
                answers[answer] = answers.get(answer, 0) + 1
                self.plan(f"{blocks}_space")
                if blocks % 64 == 32:
                    time.sleep(5)  # the log looks for space again
                self.assertEqual(self.install(), 30001)
                self.assertTrue(self.has_run())
                self.assert_all_is_whole()
                torn = max(torn, self.torn)
                log = (self.data / "Logs" / "Zarn Update Service.log").read_text()
                self.assertIn("Installer exit code:  1641", log[-4096:])
                records = (self.records / "Update History.jsonl").read_text().splitlines()
                self.assertEqual(json.loads(records[-1])["status"], 30001)
                collected = self.data / "Logs" / "Installer Logs" / f"dd_vcredist_{blocks}_space.log"
                self.assertTrue(collected.exists())
        self.assertEqual(answer, 30001, "so many blocks are enough")
        print(f"install | space | 0 to {enough} blocks |", " | ".join(f"{a}: {n}" for a, n in sorted(answers.items())),
              f"| torn log lines: {torn}")

    def archive(self, target):
        """The names of what is in it; none when it is not there."""
        path = self.at(target)
        if not path.exists():
            return set()
        if path.is_dir():
            return {file.relative_to(path).as_posix() for file in path.rglob("*") if file.is_file()}
        with zipfile.ZipFile(path) as whole:
            self.assertIsNone(whole.testzip())
            return set(whole.namelist())

    def test_an_archive_of_logs_is_whole_or_not_there_wherever_its_maker_is_killed(self):
        quiet = {"env": self.machine.environment, "stdout": subprocess.DEVNULL, "stderr": subprocess.DEVNULL}
        for target in (r"C:\zarn-test\whole.zip", r"C:\zarn-test\whole"):
            command, path = [stage.ROOT / "tools" / "wine", TOOL, "collect-logs", target], self.at(target)
            self.machine.wine(*command[1:], check=False)  # the first time takes other ways
            shutil.rmtree(path) if path.is_dir() else path.unlink()
            writes = killed.writes_of(command, self.work / "trace.txt", **quiet)
            wanted, outcomes = self.archive(target), {True: 0, False: 0}
            self.assertIn("status.json", wanted)
            # From where the target is named on, as strace shows the letters of Windows.
            name = r"\0".join(path.name)
            first = next(number for number, (_, text) in enumerate(writes) if name in text)
            for number in range(first, len(writes), 1 if LONG else (len(writes) - first) // 5):
                with self.subTest(target=target, write=number, of=len(writes)):
                    # How many writes there are differs from run to run: one that ended before its
                    # turn is followed by one that is killed earlier.
                    is_killed = False
                    while not is_killed and number > 0:
                        shutil.rmtree(path) if path.is_dir() else path.unlink(missing_ok=True)
                        is_killed = killed.kill_at(command, writes, number, **quiet)
                        found = self.archive(target)
                        self.assertIn(found, (set(), wanted) if is_killed else (wanted,))
                        number -= max(1, len(writes) // 20)
                    self.assertTrue(is_killed)
                    outcomes[bool(found)] += 1
            print(f"collect-logs | killed | whole: {outcomes[True]} | not there: {outcomes[False]}")


if __name__ == "__main__":
    stage.run_tests(FullMachine)
