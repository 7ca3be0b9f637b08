"""The setup program on a machine: a private Wine prefix, in which the installed
service is asked for checks and updates as on a real one.

Of access control lists Wine keeps what permission bits can say: that others are
kept out of the temp folder is seen, that members of "Users" are is not. Recovery
actions and a service's own environment mean nothing to it: the values are looked
at, what Windows does with them is not.
"""

import argparse
import contextlib
import json
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
SETUP_LOG = r"C:\setup.log"
DONE, NOT_STARTED, FAILED, NOT_INSTALLED, BUSY, BAD_ARGUMENTS = 0, 1053, 1603, 1605, 1618, 1639


class Scene:
    """What all tests share; made once."""

    def __init__(self, options):
        self.options = options
        self.work = options.work
        self.dist = stage.fresh(self.work / "dist")
        stage.run("cmake", "--install", options.build, "--prefix", self.dist, "--component", "dist", "--strip")
        self.setup = self.package("first")
        self.newer = self.package("second", version="1.0.1")
        self.accounts = stage.AccountService(self.work / "account-service")
        self.machine = stage.Machine(self.work / "machine")

    def package(self, name, dist=None, version=None):
        out = stage.fresh(self.work / name)
        stage.run(ROOT / "tools" / "package.sh", self.options.build, dist or self.dist, out,
                  *([version] if version else []))
        return out / "ZarnUpdateServiceSetup.exe"

    def open(self):
        programs = self.options.build / "tools" / "stage"
        publisher = stage.Publisher(self.work / "publisher")
        self.bundles = stage.make_bundles(publisher, programs / "genuine_installer.exe",
                                          programs / "intruder_installer.exe", self.work / "bundles")
        self.accounts.approve(publisher.digest(publisher.approved))
        servers = self.accounts.start()
        self.ca = servers["ca"]
        # Wine does not act on a service's own environment.
        self.machine.make({"ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST": servers["good"]})
        self.machine.wine(programs / "trust_root.exe", self.machine.windows(publisher.root.with_suffix(".der")))
        self.machine.path(r"C:\ca.pem").write_bytes(pathlib.Path(self.ca).read_bytes())

    def close(self):
        self.machine.stop()
        self.accounts.stop()


class SetupTest(unittest.TestCase):
    scene = None

    @classmethod
    def setUpClass(cls):
        cls.addClassCleanup(cls.scene.close)
        cls.scene.open()
        cls.machine = cls.scene.machine

    def setUp(self):
        self.addCleanup(self.clean)

    def clean(self):
        self.setup("/UNINSTALL", "/PURGELOGS")
        shutil.rmtree(self.at(FOLDER), ignore_errors=True)
        for name in ("plan.txt", "runs.txt"):
            self.at(rf"C:\zarn-test\{name}").unlink(missing_ok=True)
        self.at(SETUP_LOG).unlink(missing_ok=True)

    # ---- What the machine is asked ------------------------------------------------

    def at(self, path):
        return self.machine.path(path)

    def setup(self, *arguments, program=None):
        """The exit code; of one that Wine cuts to 8 bits, the whole by setup's log."""
        before = self.log()
        code = self.machine.wine(program or self.scene.setup, "/S", f"/LOG={SETUP_LOG}", *arguments,
                                 check=False).returncode
        self.said = self.log()[len(before):]
        whole = re.search(r"failed with exit code (\d+): ", self.said)
        if whole is None:
            return code
        self.assertEqual(code, int(whole[1]) & 0xFF)
        return int(whole[1])

    def log(self):
        log = self.at(SETUP_LOG)
        return log.read_text() if log.exists() else ""

    def value(self, key, name):
        text = self.machine.wine("reg", "query", key, "/v", name, check=False).stdout
        found = re.search(rf"^\s+{re.escape(name)}\s+REG_\w+\s+(.*?)\r?$", text, re.MULTILINE)
        return found[1] if found else None

    def environment(self):
        text = self.value(SERVICE_KEY, "Environment") or ""
        return dict(entry.split("=", 1) for entry in text.split(r"\0") if entry)

    def is_running(self):
        return "RUNNING" in self.machine.wine("sc", "query", stage.SERVICE, check=False).stdout

    def tool(self, *arguments):
        return self.machine.wine(FOLDER + r"\zarn-update.exe", *arguments, check=False)

    def bundle(self, name):
        return self.machine.windows(self.scene.bundles / name)

    def files(self):
        folder = self.at(FOLDER)
        return {path.relative_to(folder).as_posix(): path.stat().st_mtime_ns
                for path in folder.rglob("*") if path.is_file()}

    def logs(self):
        return next(self.machine.prefix.glob("drive_c/users/*/AppData/Local/Zarn Media Server"), None)

    def assert_nothing_installed(self):
        self.assertFalse(self.at(FOLDER).exists())
        self.assertIsNone(self.value(SERVICE_KEY, "ImagePath"))
        self.assertIsNone(self.value(ENTRY_KEY, "DisplayName"))

    @contextlib.contextmanager
    def held_open(self, path, seconds):
        """Meanwhile a program has the file open and lets nobody rename it."""
        self.at(r"C:\zarn-test\plan.txt").write_text(f"sleep_ms={seconds * 1000}\n")
        holder = self.machine.windows(self.scene.bundles / "unsigned.exe")
        script = self.at(r"C:\zarn-test\hold.bat")
        script.write_text(f'@"{holder}" <"{path}"\r\n')
        runs = self.at(r"C:\zarn-test\runs.txt")
        with self.in_background("cmd", "/c", r"C:\zarn-test\hold.bat"):
            while not runs.exists():
                time.sleep(0.05)
            yield

    @contextlib.contextmanager
    def in_background(self, *arguments):
        command = [str(ROOT / "tools" / "wine"), *map(str, arguments)]
        with subprocess.Popen(command, env=self.machine.environment, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True) as process:
            yield process

    # ---- Installing ---------------------------------------------------------------

    def test_installs_a_service_that_serves(self):
        self.assertEqual(self.setup(r"/CABUNDLE=C:\ca.pem", "/ACCOUNTHOST=account.vendor.example:8443"), DONE)
        self.assertTrue(self.is_running())
        expected = {"ImagePath": f'"{PROGRAM}"', "Type": "0x10", "Start": "0x2", "ObjectName": "LocalSystem",
                    "DisplayName": "Zarn Update Service",
                    "Description": "Installs signed updates of the Zarn Media Server."}
        self.assertEqual({name: self.value(SERVICE_KEY, name) for name in expected}, expected)
        self.assertEqual(self.environment(), {
            "TMP": FOLDER + r"\Temp", "TEMP": FOLDER + r"\Temp",
            "ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST": "account.vendor.example:8443"})
        self.assertEqual(self.value(ENTRY_KEY, "QuietUninstallString"), rf'"{FOLDER}\Uninstall.exe" /S')
        self.assertEqual(self.at(FOLDER + r"\Temp").stat().st_mode & 0o007, 0)
        self.assertEqual(self.at(FOLDER).stat().st_mode & 0o002, 0)

        installed = set(self.files())
        shipped = {path.relative_to(self.scene.dist).as_posix()
                   for path in self.scene.dist.rglob("*") if path.is_file()}
        self.assertLess(shipped, installed)
        self.assertEqual({name for name in installed - shipped if not name.startswith("Licences/")},
                         {"Uninstall.exe", "ZarnUpdateService.cdx.json", "Resources/cacert.chosen"})

        self.assertEqual(self.tool("check", self.bundle("approved.exe")).returncode, 0)
        self.assertNotEqual(self.tool("check", self.bundle("unsigned.exe")).returncode, 0)

    def test_start_on_demand(self):
        self.assertEqual(self.setup("/START=demand"), DONE)
        self.assertEqual(self.value(SERVICE_KEY, "Start"), "0x3")
        self.assertFalse(self.is_running())

    def test_repair_restores_what_is_damaged_and_keeps_what_was_chosen(self):
        self.setup("/START=demand", r"/CABUNDLE=C:\ca.pem", "/ACCOUNTHOST=one.example")
        self.at(PROGRAM).write_bytes(b"damaged")
        self.at(FOLDER + r"\Temp").rmdir()
        self.machine.wine("reg", "add", SERVICE_KEY, "/v", "Environment", "/t", "REG_MULTI_SZ", "/f", "/d",
                          r"HTTPS_PROXY=proxy.example:3128\0temp=C:\Elsewhere\0"
                          r"ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST=one.example")
        self.assertEqual(self.setup(), DONE)
        self.assertEqual(self.at(PROGRAM).read_bytes(), (self.scene.dist / "ZarnUpdateService.exe").read_bytes())
        self.assertTrue(self.at(FOLDER + r"\Temp").is_dir())
        self.assertEqual(self.value(SERVICE_KEY, "Start"), "0x3")
        self.assertEqual(self.environment(), {
            "TMP": FOLDER + r"\Temp", "TEMP": FOLDER + r"\Temp", "HTTPS_PROXY": "proxy.example:3128",
            "ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST": "one.example"})
        bundle = self.at(FOLDER + r"\Resources\cacert.pem")
        self.assertEqual(bundle.read_bytes(), pathlib.Path(self.scene.ca).read_bytes())

        self.assertEqual(self.setup("/ACCOUNTHOST=", "/CABUNDLE=", "/START=auto"), DONE)
        self.assertNotIn("ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST", self.environment())
        self.assertEqual(bundle.read_bytes(), (self.scene.dist / "Resources" / "cacert.pem").read_bytes())
        self.assertTrue(self.is_running())

    # ---- Upgrading ----------------------------------------------------------------

    def test_upgrade_over_a_running_service(self):
        self.setup("/START=demand", r"/CABUNDLE=C:\ca.pem")
        self.machine.wine("sc", "start", stage.SERVICE)
        self.assertEqual(self.setup(program=self.scene.newer), DONE)
        self.assertEqual(self.value(ENTRY_KEY, "DisplayVersion"), "1.0.1")
        self.assertTrue(self.is_running())
        self.assertEqual(self.value(SERVICE_KEY, "Start"), "0x3")
        self.assertFalse([name for name in self.files() if name.startswith("Setup.")])
        self.assertEqual(self.tool("check", self.bundle("approved.exe")).returncode, 0)

        self.machine.wine("sc", "stop", stage.SERVICE)
        self.assertEqual(self.setup(program=self.scene.newer), DONE)
        self.assertFalse(self.is_running())

    def test_upgrade_never_cuts_an_update_short(self):
        self.setup(r"/CABUNDLE=C:\ca.pem")
        before = self.files()
        runs = self.at(r"C:\zarn-test\runs.txt")
        self.at(r"C:\zarn-test\plan.txt").write_text("sleep_ms=9000\nexit=3010\n")
        with self.in_background(FOLDER + r"\zarn-update.exe", "install", self.bundle("approved.exe")) as update:
            while not runs.exists():
                time.sleep(0.05)
            self.assertEqual(self.setup("/WAIT=1", program=self.scene.newer), BUSY)
            self.assertIn("is installing an update", self.said)
            self.assertTrue(self.is_running())
            self.assertEqual(self.files(), before)
            self.assertEqual(self.value(ENTRY_KEY, "DisplayVersion"), "1.0.0")
            # One that waits longer gets its turn, and keeps a third one out.
            with self.in_background(self.scene.newer, "/S", "/WAIT=60", r"/LOG=C:\waiting.log") as waiting:
                while not (waits := self.at(r"C:\waiting.log")).exists():
                    time.sleep(0.05)
                self.assertEqual(self.setup(), BUSY)
                self.assertIn("Another setup", self.said)
                self.assertEqual(waiting.wait(), DONE, waits.read_text())
            update.wait()
        self.assertIn("end genuine", runs.read_text())
        self.assertEqual(self.value(ENTRY_KEY, "DisplayVersion"), "1.0.1")
        self.assertTrue(self.is_running())

    # ---- Uninstalling -------------------------------------------------------------

    def test_uninstall_leaves_nothing_but_logs(self):
        drive = self.machine.prefix / "drive_c"
        before = {path for path in drive.rglob("*")}
        self.setup(r"/CABUNDLE=C:\ca.pem")
        self.tool("check", self.bundle("approved.exe"))
        self.assertEqual(self.setup("/UNINSTALL"), DONE)
        self.assert_nothing_installed()
        left = {path for path in drive.rglob("*")} - before
        self.assertEqual({path.suffix for path in left if path.is_file()}, {".log"})
        self.assertTrue(list(self.logs().glob("Logs/Zarn Update Service*.log")))

        self.assertEqual(self.setup("/UNINSTALL"), NOT_INSTALLED)

    def test_uninstall_removes_logs_when_asked_but_only_its_own(self):
        self.setup()
        foreign = self.logs() / "Logs" / "Zarn Media Server.log"
        collected = self.logs() / "Logs" / "Installer Logs" / "Zarn Media Server Setup.log"
        collected.parent.mkdir()
        for file in (foreign, collected):
            file.write_text("text")
        # As "Programs and Features" does it: the uninstaller goes on as a copy of itself.
        self.machine.wine(FOLDER + r"\Uninstall.exe", "/S", "/PURGELOGS")
        deadline = time.monotonic() + 30
        while self.at(FOLDER).exists() and time.monotonic() < deadline:
            time.sleep(0.1)
        self.assert_nothing_installed()
        while collected.exists() and time.monotonic() < deadline:
            time.sleep(0.1)
        self.assertEqual([path for path in self.logs().rglob("*") if path.is_file()], [foreign])
        foreign.unlink()

    # ---- Failing ------------------------------------------------------------------

    def test_bad_arguments_change_nothing(self):
        self.at(r"C:\zarn-test\no.pem").write_text("no certificate")
        for argument in ("/FOO", "/start=sometimes", "/WAIT=-1", "/WAIT=3601", "/ACCOUNTHOST=https://host",
                         "/ACCOUNTHOST=host:0", "/CABUNDLE=ca.pem", r"/CABUNDLE=C:\missing.pem",
                         r"/CABUNDLE=C:\zarn-test\no.pem", "/PURGELOGS", r"/D=C:\Elsewhere"):
            with self.subTest(argument):
                self.assertEqual(self.setup(argument), BAD_ARGUMENTS)
                self.assertIn(argument.split("=")[-1].strip("/"), self.said)
                self.assert_nothing_installed()

    def test_a_program_folder_that_cannot_be_made(self):
        self.at(FOLDER).write_text("a file")
        self.assertEqual(self.setup(), FAILED)
        self.assertIn("Cannot make the folder", self.said)
        self.assertIsNone(self.value(SERVICE_KEY, "ImagePath"))
        self.at(FOLDER).unlink()

    def test_a_full_disk_leaves_nothing(self):
        # No file may grow beyond 4 MiB, which the service's program does.
        limit = 4 * 1024 * 1024
        command = [str(ROOT / "tools" / "wine"), str(self.scene.setup), "/S", f"/LOG={SETUP_LOG}"]
        subprocess.run(command, env=self.machine.environment, restore_signals=False,
                       preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)))
        self.assertIn(f"failed with exit code {FAILED}: The files cannot be written", self.log())
        self.assert_nothing_installed()

    def test_a_service_that_cannot_be_registered(self):
        self.machine.wine("sc", "create", "Other", "binPath=", r"C:\other.exe", "DisplayName=", "Zarn Update Service")
        self.addCleanup(lambda: self.machine.wine("sc", "delete", "Other"))
        self.assertEqual(self.setup(), FAILED)
        self.assertIn("The service cannot be registered", self.said)
        self.assert_nothing_installed()

    def test_an_upgrade_that_fails_half_way_leaves_the_old_version_running(self):
        self.setup(r"/CABUNDLE=C:\ca.pem")
        before = self.files()
        with self.held_open(FOLDER + r"\ZarnUpdateService.cdx.json", seconds=8):
            self.assertEqual(self.setup(program=self.scene.newer), FAILED)
        self.assertIn("Cannot replace", self.said)
        self.assertEqual(self.files(), before)
        self.assertEqual(self.value(ENTRY_KEY, "DisplayVersion"), "1.0.0")
        self.assertTrue(self.is_running())
        self.assertEqual(self.tool("check", self.bundle("approved.exe")).returncode, 0)

    def test_a_service_that_does_not_start(self):
        broken = self.scene.work / "broken-dist"
        shutil.rmtree(broken, ignore_errors=True)
        shutil.copytree(self.scene.dist, broken)
        shutil.copy(self.scene.bundles / "unsigned.exe", broken / "ZarnUpdateService.exe")
        self.assertEqual(self.setup(program=self.scene.package("broken", dist=broken)), NOT_STARTED)
        self.assertIn("did not start", self.said)

    # ---- The package --------------------------------------------------------------

    def test_the_same_input_gives_the_same_bytes(self):
        again = self.scene.package("a folder of another name")
        self.assertEqual(again.read_bytes(), self.scene.setup.read_bytes())

    def test_the_bill_of_materials_names_what_is_built_in(self):
        bill = json.loads((self.scene.setup.parent / "ZarnUpdateService.cdx.json").read_text())
        versions = {part["bom-ref"]: part.get("version") for part in bill["components"]}
        program = (self.scene.dist / "ZarnUpdateService.exe").read_bytes()
        # Each library says its own version inside the program.
        for source, text in {"openssl": "OpenSSL {} ", "libz-mingw-w64": " inflate {} Copyright"}.items():
            upstream = re.match(r"[\d.]+", versions[source])[0]
            with self.subTest(source):
                self.assertIn(text.format(upstream).encode(), program)
        self.assertLessEqual({"boost1.81", "fmtlib", "mingw-w64", "gcc-12", "ca-certificates"}, set(versions))
        self.assertNotIn("googletest", versions)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--work", type=pathlib.Path, required=True)
    own, rest = parser.parse_known_args()
    SetupTest.scene = Scene(own)
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)
