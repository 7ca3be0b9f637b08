"""Copies of the service's log lines at a real collector: what rsyslog stored is
compared with the log file. Runs on the stage of the end-to-end tests.
"""

import argparse
import contextlib
import os
import pathlib
import re
import socket
import subprocess
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "stage"))
import stage  # noqa: E402

ENVIRONMENT = r"HKLM\System\CurrentControlSet\Control\Session Manager\Environment"
PRIORITIES = {"ERROR": 128, "WARN": 132, "INFO": 134, "DEBUG": 135, "VERBOSE": 136}
HEAD = len("<135>Nov 21 10:15:00 x ZarnUpdateService: [operator] ")
CONFIGURATION = """
global(parser.escapeControlCharactersOnReceive="on" maxMessageSize="64k")
module(load="imudp")
template(name="record" type="string" string="%pri%|%hostname%|%syslogtag%|%msg%\\n")
input(type="imudp" address="127.0.0.1" port="{port}" ruleset="collect")
ruleset(name="collect") {{ action(type="omfile" file="{file}" template="record") }}
"""


@contextlib.contextmanager
def collector(folder):
    """A running rsyslog: its port and the file in which it keeps what it gets."""
    folder = stage.fresh(folder.resolve())
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    file = folder / "collected.txt"
    configuration = folder / "rsyslog.conf"
    configuration.write_text(CONFIGURATION.format(port=port, file=file))
    environment = dict(os.environ, PATH=os.environ["PATH"] + ":/usr/sbin")
    process = subprocess.Popen(["rsyslogd", "-n", "-iNONE", "-f", configuration], env=environment,
                               stdin=subprocess.DEVNULL)
    try:
        yield port, file
    finally:
        process.terminate()
        process.wait()


def wait_for(condition):
    for _ in range(200):
        if condition():
            return
        time.sleep(0.1)
    raise TimeoutError


class CentralCollection(unittest.TestCase):
    machine = None

    def set_environment(self, **variables):
        for name, value in variables.items():
            change = ["add", ENVIRONMENT, "/v", name, "/t", "REG_SZ", "/d", value, "/f"]
            self.machine.wine("reg", *(change if value else ["delete", ENVIRONMENT, "/v", name, "/f"]))
        self.machine.wine("--restart")  # services read the environment once

    def log(self):
        """The newest log's lines: level and message."""
        logs = next(self.machine.prefix.glob("drive_c/users/*/AppData/Local/Zarn Media Server/Logs"))
        try:
            text = (logs / "Zarn Update Service.log").read_text(errors="surrogateescape")
        except FileNotFoundError:  # the service is between renaming the old file and opening the new one
            return []
        return re.findall(r"^\w{3} .*? \[\d+\] (\w+) - (.*)$", text, re.MULTILINE)

    def serve_one_check(self, collector_setting, path):
        self.set_environment(ZARN_MEDIA_SERVER_SYSLOG_COLLECTOR=collector_setting,
                             ZARN_MEDIA_SERVER_SYSLOG_MINUTES="10",
                             ZARN_MEDIA_SERVER_DEFAULT_PREFERENCES="ZarnOnlineUsername=operator")
        self.addCleanup(self.set_environment, ZARN_MEDIA_SERVER_SYSLOG_COLLECTOR="",
                        ZARN_MEDIA_SERVER_SYSLOG_MINUTES="", ZARN_MEDIA_SERVER_DEFAULT_PREFERENCES="")
        self.machine.wine("sc", "create", stage.SERVICE, "binPath=", f'"{stage.INSTALL_DIR}\\ZarnUpdateService.exe"',
                          check=False)  # it may be there already
        self.machine.wine("sc", "start", stage.SERVICE)
        wait_for(lambda: any("networked logging" in message for _, message in self.log()))
        self.machine.wine(self.options.programs / "call_with_any_path.exe", path)
        self.machine.wine("sc", "stop", stage.SERVICE)
        wait_for(lambda: "STOPPED" in self.machine.wine("sc", "query", stage.SERVICE).stdout)

    def test_stores_what_the_log_file_holds(self):
        forged = "C:\\a\n<128>Nov 21 10:15:00 x ZarnUpdateService: [operator] forged " + "long " * 300 + ".exe"
        with collector(self.options.work / "collector") as (port, file):
            self.serve_one_check(f"127.0.0.1:{port}", forged)
            lines = self.log()
            expected = [f"{PRIORITIES[level]}|x|ZarnUpdateService:| [operator] {message[:1024 - HEAD]}"
                        for level, message in lines]
            wait_for(lambda: file.exists() and file.read_text().endswith(expected[-1] + "\n"))
            stored = file.read_text().splitlines()
        # Lines from before the switch may still have been on their way to the file.
        self.assertEqual(stored, expected[-len(stored):])
        self.assertIn("134|x|ZarnUpdateService:| [operator] Enabling networked logging for 10 minutes.", stored)
        self.assertLessEqual({"ERROR", "INFO", "DEBUG"}, {level for level, _ in lines})
        self.assertTrue(any(len(message) > 1024 and "forged" in message for _, message in lines))

    def test_goes_on_without_a_usable_collector(self):
        self.serve_one_check("no-port", r"C:\missing.exe")
        self.assertIn("Error enabling networked logging", "\n".join(message for _, message in self.log()))


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--work", type=pathlib.Path, required=True)
    parser.add_argument("--programs", type=pathlib.Path, required=True)
    CentralCollection.options = parser.parse_args()
    CentralCollection.machine = stage.Machine(CentralCollection.options.work.resolve() / "machine")
    unittest.main(argv=[sys.argv[0]], verbosity=2)
