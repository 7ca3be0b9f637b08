"""The setup program on a machine: a private Wine prefix, in which the installed
service is asked for checks and updates as on a real one.

Of access control lists Wine keeps what permission bits can say: that others are
kept out of the temp folder is seen, that members of "Users" are is not. Recovery
actions and a service's own environment mean nothing to it: the values are looked
at, what Windows does with them is not.
"""

import argparse
import concurrent.futures
import contextlib
import json
import os
import pathlib
import re
import resource
import shutil
import subprocess
import sys
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools" / "stage"))
import stage  # noqa: E402

SERVICE_KEY = r"HKLM\System\CurrentControlSet\Services\ZarnUpdateService"
ENTRY_KEY = r"HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\ZarnUpdateService"
FOLDER = stage.INSTALL_DIR
PROGRAM = FOLDER + r"\ZarnUpdateService.exe"
TOOL = FOLDER + r"\zarn-update.exe"
HOST = "ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST"
DONE, FAILED, NOT_INSTALLED, BUSY, BAD_ARGUMENTS = 0, 1603, 1605, 1618, 1639


class SetupTest(unittest.TestCase):
    """All tests share one machine; each begins with what it needs to be installed, or not."""

    build, work = None, None

    @classmethod
    def setUpClass(cls):
        cls.dist = stage.fresh(cls.work / "dist")
        stage.run("cmake", "--install", cls.build, "--prefix", cls.dist, "--component", "dist", "--strip")
        programs = cls.build / "tools" / "stage"
        packers = concurrent.futures.ThreadPoolExecutor(2)
        cls.addClassCleanup(packers.shutdown, cancel_futures=True)
        cls.shipped = packers.submit(cls.package, "shipped", quick="")
        cls.first = packers.submit(cls.package, "first")
        cls.newer = packers.submit(cls.package, "newer", version="1.0.1")

        publisher = stage.Publisher(cls.work / "publisher")
        cls.bundles = stage.make_bundles(publisher, programs / "genuine_installer.exe",
                                         programs / "intruder_installer.exe", cls.work / "bundles")
        accounts = stage.AccountService(cls.work / "account-service")
        accounts.approve(publisher.digest(publisher.approved))
        cls.addClassCleanup(accounts.stop)
        servers = accounts.start()
        cls.machine = stage.Machine(cls.work / "machine")
        cls.addClassCleanup(cls.machine.stop)
        # Wine does not act on a service's own environment.
        cls.machine.make({HOST: servers["good"]})
        cls.machine.wine(programs / "trust_root.exe", cls.machine.windows(publisher.root.with_suffix(".der")))
        cls.at = cls.machine.path
        shutil.copy(servers["ca"], cls.at(r"C:\ca.pem"))

    @classmethod
    def package(cls, name, version="", quick="1"):
        out = stage.fresh(cls.work / name)
        stage.run(ROOT / "tools" / "package.sh", cls.build, cls.dist, out, *version.split(),
                  env=dict(os.environ, ZARN_QUICK_PACKAGE=quick))
        return out / "ZarnUpdateServiceSetup.exe"

    # ---- What the machine is asked ------------------------------------------------

    def setup(self, *arguments, program=None):
        """The exit code; of one that Wine cuts to 8 bits, the whole by setup's log."""
        log = self.at(r"C:\setup.log")
        log.unlink(missing_ok=True)
        command = (program or self.first).result(), "/S", r"/LOG=C:\setup.log", *arguments
        code = self.in_background(*command).wait()
        self.said = log.read_text() if log.exists() else ""
        whole = re.search(r"failed with exit code (\d+): ", self.said)
        if whole is None:
            return code
        self.assertEqual(code, int(whole[1]) & 0xFF)
        return int(whole[1])

    def have_nothing(self):
        if self.at(FOLDER).exists():
            self.assertEqual(self.setup("/UNINSTALL", "/PURGELOGS"), DONE)

    def have_first_version(self, start="auto"):
        self.assertEqual(self.setup(f"/START={start}", r"/CABUNDLE=C:\ca.pem", "/ACCOUNTHOST="), DONE)

    def values(self, key):
        text = self.machine.wine("reg", "query", key, check=False).stdout
        return dict(re.findall(r"^ +(\w+) +REG_\w+ +(.*?)\r?$", text, re.MULTILINE))

    def environment(self):
        entries = self.values(SERVICE_KEY)["Environment"].split(r"\0")
        return dict(entry.split("=", 1) for entry in entries if entry)

    def version(self):
        return self.values(ENTRY_KEY)["DisplayVersion"]

    def is_running(self):
        return "RUNNING" in self.machine.wine("sc", "query", stage.SERVICE, check=False).stdout

    def bundle(self, name):
        return self.machine.windows(self.bundles / name)

    def accepts(self, name):
        return self.machine.wine(TOOL, "check", self.bundle(name), check=False).returncode == 0

    def files(self):
        folder = self.at(FOLDER)
        return {path.relative_to(folder).as_posix(): path.stat().st_mtime_ns
                for path in folder.rglob("*") if path.is_file()}

    def logs(self):
        return next(self.machine.prefix.glob("drive_c/users/*/AppData/Local/Zarn Media Server"))

    def assert_nothing_installed(self):
        self.assertFalse(self.at(FOLDER).exists())
        self.assertEqual(self.values(SERVICE_KEY) | self.values(ENTRY_KEY), {})

    def wait_until(self, condition):
        deadline = time.monotonic() + 30
        while not condition():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.05)

    def in_background(self, *arguments):
        # Without a pipe for its output, whose end comes only with that of Wine's own helpers.
        command = [str(ROOT / "tools" / "wine"), *map(str, arguments)]
        return subprocess.Popen(command, env=self.machine.environment, stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL)

    @contextlib.contextmanager
    def installer_running(self, milliseconds, *command):
        """Yields the command's process, once the stand-in installer that it starts runs."""
        self.at(r"C:\zarn-test\plan.txt").write_text(f"sleep_ms={milliseconds}\nexit=3010\n")
        runs = self.at(r"C:\zarn-test\runs.txt")
        runs.unlink(missing_ok=True)
        with self.in_background(*command) as process:
            self.wait_until(runs.exists)
            yield process

    @contextlib.contextmanager
    def held_open(self, path):
        """Meanwhile a program has the file open and lets nobody rename it."""
        self.at(r"C:\zarn-test\hold.bat").write_text(f'@"{self.bundle("unsigned.exe")}" <"{path}"\r\n')
        with self.installer_running(60_000, "cmd", "/c", r"C:\zarn-test\hold.bat"):
            yield
            self.machine.wine("taskkill", "/f", "/im", "unsigned.exe")

    # ---- Installing and uninstalling ----------------------------------------------

    def test_installs_a_service_that_serves_and_uninstalls_all_but_its_logs(self):
        self.have_nothing()
        drive = self.machine.prefix / "drive_c"
        before = set(drive.rglob("*"))
        self.assertEqual(self.setup(r"/CABUNDLE=C:\ca.pem", "/ACCOUNTHOST=account.vendor.example:8443",
                                    program=self.shipped), DONE)
        self.assertTrue(self.is_running())
        expected = {"ImagePath": f'"{PROGRAM}"', "Type": "0x10", "Start": "0x2", "ObjectName": "LocalSystem",
                    "DisplayName": "Zarn Update Service",
                    "Description": "Installs signed updates of the Zarn Media Server."}
        self.assertLessEqual(expected.items(), self.values(SERVICE_KEY).items())
        self.assertEqual(self.environment(), {"TMP": FOLDER + r"\Temp", "TEMP": FOLDER + r"\Temp",
                                              HOST: "account.vendor.example:8443"})
        self.assertEqual(self.values(ENTRY_KEY)["QuietUninstallString"], rf'"{FOLDER}\Uninstall.exe" /S')
        self.assertEqual(self.at(FOLDER + r"\Temp").stat().st_mode & 0o007, 0)
        self.assertEqual(self.at(FOLDER).stat().st_mode & 0o002, 0)
        shipped = {path.relative_to(self.dist).as_posix() for path in self.dist.rglob("*") if path.is_file()}
        self.assertEqual({name for name in self.files() if not name.startswith("Licences/")},
                         shipped | {"Uninstall.exe", "ZarnUpdateService.cdx.json", "Resources/cacert.chosen"})
        self.assertTrue(self.accepts("approved.exe"))
        self.assertFalse(self.accepts("unsigned.exe"))

        self.assertEqual(self.setup("/UNINSTALL"), DONE)
        self.assert_nothing_installed()
        left = set(drive.rglob("*")) - before
        self.assertEqual({path.suffix for path in left if path.is_file()}, {".log"})
        self.assertTrue(list(self.logs().glob("Logs/Zarn Update Service*.log")))
        self.assertEqual(self.setup("/UNINSTALL"), NOT_INSTALLED)

    def test_uninstall_removes_logs_when_asked_but_only_its_own(self):
        self.have_first_version()
        foreign = self.logs() / "Logs" / "Zarn Media Server.log"
        foreign.write_text("text")
        # As "Programs and Features" does it: the uninstaller goes on as a copy of itself.
        self.machine.wine(FOLDER + r"\Uninstall.exe", "/S", "/PURGELOGS")
        self.wait_until(lambda: [path for path in self.logs().rglob("*") if path.is_file()] == [foreign])
        self.wait_until(lambda: not self.at(FOLDER).exists())
        self.assert_nothing_installed()

    # ---- Upgrading ----------------------------------------------------------------

    def test_upgrades_wholly_or_not_at_all(self):
        self.have_nothing()
        self.have_first_version(start="demand")
        self.machine.wine("sc", "start", stage.SERVICE)
        before, registration = self.files(), self.values(SERVICE_KEY)
        with self.held_open(FOLDER + r"\ZarnUpdateService.cdx.json"):
            self.assertEqual(self.setup("/START=auto", "/ACCOUNTHOST=new.example", program=self.newer), FAILED)
        self.assertIn("Cannot replace", self.said)
        self.assertEqual((self.files(), self.version(), self.is_running()), (before, "1.0.0", True))
        self.assertEqual(self.values(SERVICE_KEY), registration)
        self.assertTrue(self.accepts("approved.exe"))

        self.assertEqual(self.setup(program=self.newer), DONE)
        self.assertEqual((self.files().keys(), self.version(), self.is_running()), (before.keys(), "1.0.1", True))
        self.assertEqual(self.values(SERVICE_KEY)["Start"], "0x3")
        self.assertTrue(self.accepts("approved.exe"))

        self.machine.wine("sc", "stop", stage.SERVICE)
        self.assertEqual(self.setup(program=self.newer), DONE)
        self.assertFalse(self.is_running())

    def test_upgrade_never_cuts_an_update_short(self):
        self.have_first_version()
        before = self.files()
        with self.installer_running(9_000, TOOL, "install", self.bundle("approved.exe")):
            self.assertEqual(self.setup("/WAIT=1", program=self.newer), BUSY)
            self.assertIn("is installing an update", self.said)
            self.assertEqual((self.files(), self.version(), self.is_running()), (before, "1.0.0", True))
            # One that waits longer gets its turn.
            self.assertEqual(self.setup("/WAIT=60", program=self.newer), DONE)
        self.assertIn("end genuine", self.at(r"C:\zarn-test\runs.txt").read_text())
        self.assertEqual((self.version(), self.is_running()), ("1.0.1", True))

    # ---- Failing ------------------------------------------------------------------

    def test_what_setup_cannot_do_leaves_nothing(self):
        self.have_nothing()
        self.at(r"C:\zarn-test\no.pem").write_text("no certificate")
        for argument in ("/FOO", "/start=sometimes", "/WAIT=-1", "/WAIT=3601", "/ACCOUNTHOST=https://host",
                         "/ACCOUNTHOST=host:0", "/CABUNDLE=ca.pem", r"/CABUNDLE=C:\missing.pem",
                         r"/CABUNDLE=C:\zarn-test\no.pem", "/PURGELOGS", r"/D=C:\Elsewhere"):
            with self.subTest(argument):
                self.assertEqual(self.setup(argument), BAD_ARGUMENTS)
                self.assertIn(argument.split("=")[-1].strip("/"), self.said)
        self.assert_nothing_installed()
        self.machine.wine("sc", "create", "Other", "binPath=", r"C:\other.exe", "DisplayName=", "Zarn Update Service")
        self.addCleanup(self.machine.wine, "sc", "delete", "Other")
        self.assertEqual(self.setup(), FAILED)
        self.assertIn("The service cannot be registered", self.said)
        self.assert_nothing_installed()
        self.on_a_full_disk(self.first.result(), "/S", r"/LOG=C:\full.log")
        self.assertIn(f"exit code {FAILED}: The files cannot be written", self.at(r"C:\full.log").read_text())
        self.assert_nothing_installed()

    def on_a_full_disk(self, *arguments):
        """Runs a program whose files cannot grow beyond 4 MiB: its exit code and what it said."""
        limit = 4 << 20
        said = self.work / "said.txt"
        with said.open("w") as output:
            code = subprocess.run([str(ROOT / "tools" / "wine"), *map(str, arguments)], env=self.machine.environment,
                                  stdout=output, stderr=output, restore_signals=False, preexec_fn=lambda:
                                  resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))).returncode
        return code, said.read_text()

    def test_logs_are_collected_whole_or_not_at_all(self):
        self.have_first_version()
        logs = stage.fresh(self.at(r"C:\logs"))
        (logs / "Zarn Update Service.log").write_bytes(os.urandom(8 << 20))
        code, said = self.on_a_full_disk(TOOL, "collect-logs", r"C:\full.zip", "--logs", r"C:\logs")
        self.assertEqual(code, 4)
        self.assertRegex(said, r"\Azarn-update: [^\n]+ could not be written: [^\n]+\.\s*\Z")
        self.assertEqual(list(self.at("C:\\").glob("full.zip*")), [])

    def test_the_bill_of_materials_names_what_is_built_in(self):
        bill = json.loads((self.first.result().parent / "ZarnUpdateService.cdx.json").read_text())
        versions = {part["bom-ref"]: part.get("version") for part in bill["components"]}
        program = (self.dist / "ZarnUpdateService.exe").read_bytes()
        # Each library says its own version inside the program.
        for source, text in {"openssl": "OpenSSL {} ", "libz-mingw-w64": " inflate {} Copyright"}.items():
            self.assertIn(text.format(re.match(r"[\d.]+", versions[source])[0]).encode(), program)
        self.assertLessEqual({"boost1.81", "fmtlib", "mingw-w64", "gcc-12", "ca-certificates"}, set(versions))
        self.assertNotIn("googletest", versions)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--work", type=pathlib.Path, required=True)
    own, rest = parser.parse_known_args()
    SetupTest.build, SetupTest.work = own.build.resolve(), own.work.resolve()
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)
