"""The package on a machine: a private Wine prefix, in which Windows Installer's stand-in installs
it and the installed service is asked for checks and updates as on a real one.

Wine passes over access control lists, recovery, privileges, the service's own environment and its
start type: for these the package's tables are read back, and what Windows makes of them is not seen.
"""

import concurrent.futures
import contextlib
import functools
import json
import os
import pathlib
import re
import resource
import shutil
import struct
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools" / "stage"))
import stage  # noqa: E402

SERVICE_KEY = r"HKLM\System\CurrentControlSet\Services\ZarnUpdateService"
SETTINGS_KEY = r"HKLM\Software\Zarn, Inc.\Zarn Update Service"
UNINSTALL_KEY = r"HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall"
MACHINE_KEY = r"HKLM\System\CurrentControlSet\Control\Session Manager\Environment"
SOURCE_KEY = r"HKLM\System\CurrentControlSet\Services\EventLog\Application\Zarn Update Service"
FOLDER = stage.INSTALL_DIR
PROGRAM = FOLDER + r"\ZarnUpdateService.exe"
TOOL = FOLDER + r"\zarn-update.exe"
TEMP = r"C:\windows\ZarnUpdateTemp"
HOST = "ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST"
CHOSEN = r"CABUNDLE=C:\ca.pem"
ACCOUNT = "ACCOUNTHOST=first.example"
LONG = "ZARN_LONG" in os.environ


class PackageTest(stage.MachineTest):
    """All tests share one machine; each begins with what it needs to be installed, or not."""

    @classmethod
    def setUpClass(cls):
        cls.publish()
        signer = cls.publisher.approved
        signing, key = cls.work / "sign", signer.with_suffix(".key")
        signing.write_text(f"#!/bin/sh -e\nosslsigncode sign -certs '{signer}' -key '{key}' -in \"$1\" "
                           '-out "$1.signed"\nmv "$1.signed" "$1"\n')
        signing.chmod(0o755)
        packages = stage.fresh(cls.work / "shipped")
        packers = concurrent.futures.ThreadPoolExecutor(2)
        cls.addClassCleanup(packers.shutdown, cancel_futures=True)
        made = [packers.submit(stage.run, ROOT / "tools" / "package.sh", cls.build, cls.dist, packages,
                               env=dict(os.environ, ZARN_SIGN=signing)),
                packers.submit(cls.package, "newer", 1),
                packers.submit(cls.package, "unstartable", 2, service="zarn-update.exe")]

        authorities = cls.make_machine()
        shutil.copy(authorities, cls.at(r"C:\ca.pem"))
        _, cls.newer, cls.unstartable = (package.result() for package in made)
        cls.shipped = next(packages.glob("*.msi"))
        cls.bill = json.loads((packages / "ZarnUpdateService.cdx.json").read_text())

    @classmethod
    def package(cls, name, later, service="ZarnUpdateService.exe"):
        """A package whose programs say that they are `later` builds newer."""
        folder = stage.fresh(cls.work / name)
        tree = shutil.copytree(cls.dist, folder / "tree")
        for program, source in (("ZarnUpdateService.exe", service), ("zarn-update.exe", "zarn-update.exe"),
                                ("ZarnUpdateClient.dll", "ZarnUpdateClient.dll")):
            content = bytearray((cls.dist / source).read_bytes())
            place = content.index(struct.pack("<II", 0xFEEF04BD, 0x00010000)) + 12
            content[place:place + 4] = struct.pack("<I", struct.unpack_from("<I", content, place)[0] + later)
            (tree / program).write_bytes(content)
        stage.run(ROOT / "tools" / "msi.py", "--tree", tree, "--version-text", name, "--epoch", 1700000000,
                  "--work", folder / "work", "--output", folder)
        return next(folder.glob("*.msi"))

    def with_target(self, package, action, target):
        copy = shutil.copy(package, self.work / f"{action}.msi")
        stage.run("msibuild", copy, "-q",
                  f"UPDATE `CustomAction` SET `Target` = '{target}' WHERE `Action` = '{action}'")
        return copy

    def msiexec(self, verb, package, *properties, before=None):
        """Whether it went well; self.said is its log."""
        log = self.at(r"C:\install.log")
        log.unlink(missing_ok=True)
        code = self.in_background("msiexec", verb, self.machine.windows(package), "/qn", "/l*v", r"C:\install.log",
                                  *properties, before=before).wait()
        self.said = log.read_text(errors="replace") if log.exists() else ""
        return code == 0

    def assert_refused(self, action, package, *properties, before=None):
        """The installation fails in the action that is named: Wine's log leaves out the sentence of a refusal."""
        self.assertFalse(self.msiexec("/i", package, *properties, before=before))
        failed = re.search(r"Action ended [\d:]+: (?!INSTALL|Migrate)(\w+)\. Return value [03]", self.said)
        self.assertEqual(failed and failed[1], action)

    def assert_installs(self, package, *properties):
        self.assertTrue(self.msiexec("/i", package, *properties), self.said)

    def have_nothing(self):
        for package in (self.newer, self.shipped):
            if package.stem.split("-")[1] == self.version():
                self.msiexec("/x", package)
        self.assert_nothing_installed()

    def have_first_version(self, *properties):
        self.have_nothing()
        self.assert_installs(self.shipped, CHOSEN, *properties)

    def values(self, key):
        text = self.machine.wine("reg", "query", key, check=False).stdout
        return dict(re.findall(r"^ +(\w+) +REG_\w+ +(.*?)\r?$", text, re.MULTILINE))

    def settings(self):
        """What the package was told; beside it the service keeps the highest version that it installed."""
        return {name: value for name, value in self.values(SETTINGS_KEY).items() if name != "HighestInstalledVersion"}

    def environment(self):
        return dict(entry.split("=", 1) for entry in self.values(SERVICE_KEY)["Environment"].split(r"\0"))

    def version(self):
        entry = r"DisplayName +REG_SZ +Zarn Update Service\s+DisplayVersion +REG_SZ +([\d.]+)"
        return "".join(re.findall(entry, self.machine.wine("reg", "query", UNINSTALL_KEY, "/s").stdout))

    def is_running(self):
        return "RUNNING" in self.machine.wine("sc", "query", stage.SERVICE, check=False).stdout

    def bundle(self, name):
        return self.machine.windows(self.bundles / name)

    def accepts(self, name):
        return self.machine.wine(TOOL, "check", self.bundle(name), check=False).returncode == 0

    def files(self):
        folder = self.at(FOLDER)
        return {path.relative_to(folder).as_posix(): path.read_bytes() for path in folder.rglob("*") if path.is_file()}

    def logs(self):
        return next(self.machine.prefix.glob("drive_c/users/*/AppData/Local/Zarn Media Server"))

    def state(self):
        return self.files(), self.values(SERVICE_KEY), self.settings(), self.version(), self.is_running()

    def assert_nothing_installed(self):
        self.assertFalse(self.at(FOLDER).exists() or self.at(TEMP).exists())
        self.assertEqual(self.values(SERVICE_KEY) | self.values(SOURCE_KEY) | self.settings(), {})

    def wait_until(self, condition):
        deadline = time.monotonic() + 30
        while not condition():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.05)

    def in_background(self, *arguments, before=None):
        # Without a pipe for its output, whose end comes only with that of Wine's own helpers.
        command = [str(ROOT / "tools" / "wine"), *map(str, arguments)]
        return subprocess.Popen(command, env=self.machine.environment, stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL, restore_signals=before is None, preexec_fn=before)

    @contextlib.contextmanager
    def installer_running(self, milliseconds, *command):
        """From when the stand-in installer runs that the command starts, to the command's end."""
        self.at(r"C:\zarn-test\plan.txt").write_text(f"sleep_ms={milliseconds}\nexit=3010\n")
        runs = self.at(r"C:\zarn-test\runs.txt")
        runs.unlink(missing_ok=True)
        with self.in_background(*command):
            self.wait_until(runs.exists)
            yield

    @contextlib.contextmanager
    def held_open(self, path):
        """Meanwhile a program has the file open and lets nobody rename it."""
        self.at(r"C:\zarn-test\hold.bat").write_text(f'@"{self.bundle("unsigned.exe")}" <"{path}"\r\n')
        with self.installer_running(60_000, "cmd", "/c", r"C:\zarn-test\hold.bat"):
            yield
            self.machine.wine("taskkill", "/f", "/im", "unsigned.exe")

    def test_installs_a_service_that_serves_and_removes_all_but_logs_and_records(self):
        self.have_nothing()
        drive = self.machine.prefix / "drive_c"
        before = {path for path in drive.rglob("*") if path.is_file()}
        self.assert_installs(self.shipped, CHOSEN, "ACCOUNTHOST=account.vendor.example:8443",
                             "PROXY=http://proxy.example:3128")
        self.assertTrue(self.is_running())
        expected = {"ImagePath": f'"{PROGRAM}"', "Type": "0x10", "Start": "0x2", "ObjectName": "LocalSystem",
                    "DisplayName": "Zarn Update Service",
                    "Description": "Installs signed updates of the Zarn Media Server."}
        self.assertLessEqual(expected.items(), self.values(SERVICE_KEY).items())
        self.assertEqual(self.environment(), {"TMP": TEMP, "TEMP": TEMP, HOST: "account.vendor.example:8443",
                                              "HTTPS_PROXY": "http://proxy.example:3128"})
        self.assertEqual(self.values(SOURCE_KEY), {"EventMessageFile": PROGRAM, "TypesSupported": "0x7"})
        self.assertIn(FOLDER, self.values(MACHINE_KEY)["PATH"])
        shipped = {path.relative_to(self.dist).as_posix() for path in self.dist.rglob("*") if path.is_file()}
        self.assertEqual({name for name in self.files() if not name.startswith("Licences/")},
                         shipped | {"ZarnUpdateService.cdx.json", "Resources/cacert-chosen.pem"})
        for file in (self.shipped, self.at(PROGRAM), self.at(TOOL), self.at(FOLDER + r"\ZarnUpdateClient.dll")):
            said = stage.run("osslsigncode", "verify", "-CAfile", self.work / "publisher" / "root.pem", file)
            self.assertIn("Succeeded", said)
        self.assertTrue(self.accepts("approved.exe"))
        self.assertFalse(self.accepts("unsigned.exe"))
        self.machine.wine(TOOL, "install", self.bundle("unsigned.exe"), check=False)

        self.assertTrue(self.msiexec("/x", self.shipped), self.said)
        self.assert_nothing_installed()
        self.assertNotIn(FOLDER, self.values(MACHINE_KEY)["PATH"])
        left = {path for path in drive.rglob("*") if path.is_file()} - before
        # Wine keeps the service's temp folder out of the one that removal empties.
        self.assertLessEqual({path.name for path in left if path.suffix not in (".log", ".jsonl")}, {stage.STAGED})

    def test_removal_takes_logs_and_records_along_when_asked_but_no_others(self):
        self.have_first_version()
        foreign = self.logs() / "Logs" / "Zarn Media Server.log"
        foreign.write_text("text")
        self.machine.wine(TOOL, "install", self.bundle("unsigned.exe"), check=False)
        self.assertTrue(self.msiexec("/x", self.shipped, "PURGELOGS=1"), self.said)
        self.assertEqual([path for path in self.logs().rglob("*") if path.is_file()], [foreign])
        self.assertEqual(list(self.at(r"C:\ProgramData\Zarn Update Service").glob("*")), [])
        self.assert_nothing_installed()

    def test_upgrade_keeps_settings_and_logs_and_is_not_taken_back(self):
        self.have_first_version()
        self.assert_installs(self.shipped, ACCOUNT)
        logs = {path.name for path in self.logs().rglob("*.log")}
        _, registration, settings, _, _ = self.state()
        self.assertEqual(settings, {"AccountHost": "first.example", "CaBundle": r"C:\ca.pem", "Proxy": ""})
        with self.held_open(FOLDER + r"\Resources\cacert.pem"):
            self.assert_installs(self.newer)
        files, *after = self.state()
        self.assertEqual(after, [registration, settings, self.newer.stem.split("-")[1], True])
        self.assertEqual(files["Resources/cacert-chosen.pem"], self.at(r"C:\ca.pem").read_bytes())
        self.assertLessEqual(logs, {path.name for path in self.logs().rglob("*.log")})
        self.assertTrue(self.accepts("approved.exe"))

        self.assert_refused("RefuseDowngrade", self.shipped)
        self.assertEqual(self.state(), (files, *after))

        self.assert_installs(self.newer, "ACCOUNTHOST=default", "CABUNDLE=default")
        self.assertEqual(self.settings(), {"AccountHost": "", "CaBundle": "", "Proxy": ""})
        self.assertEqual(self.environment(), {"TMP": TEMP, "TEMP": TEMP})
        self.assertNotIn("Resources/cacert-chosen.pem", self.files())

    def test_repair_restores_what_was_changed(self):
        self.have_first_version()
        before = self.state()
        self.at(FOLDER + r"\Resources\cacert.pem").write_text("changed")
        self.at(TOOL).unlink()
        self.machine.wine("reg", "delete", SERVICE_KEY, "/v", "Environment", "/f")
        self.assert_installs(self.shipped)
        self.assertEqual(self.state(), before)
        # A list that is kept is looked at again.
        self.at(FOLDER + r"\Resources\cacert-chosen.pem").write_text("damaged")
        self.assert_refused("CheckSettings", self.newer)

    def test_a_running_update_is_never_cut_short(self):
        self.have_first_version()
        before = self.state()
        impatient = self.with_target(self.newer, "WaitForRunningUpdate", "wait 1")
        with self.installer_running(5_000, TOOL, "install", self.bundle("approved.exe")):
            self.assert_refused("WaitForRunningUpdate", impatient)
            self.assertEqual(self.state(), before)
            # One that waits longer gets its turn.
            self.assert_installs(self.newer)
        self.assertIn("end genuine", self.at(r"C:\zarn-test\runs.txt").read_text())
        self.wait_until(self.is_running)

    def test_what_cannot_be_installed_leaves_the_machine_as_it_was(self):
        self.have_nothing()
        self.at(r"C:\no.pem").write_text("no certificate")

        def refuse(action, package, *properties, before=None):
            with self.subTest(action, properties=properties):
                self.assert_refused(action, package, *properties, before=before)
                self.assert_nothing_installed()

        for text in ("Start=sometimes", "AccountHost=https://host", "Proxy=a b", "CaBundle=ca.pem"):
            name, value = text.split("=")
            refuse("Refuse" + name, self.shipped, f"{name.upper()}={value}")
        for argument in ("ACCOUNTHOST=host:0", "PROXY=ftp://proxy", r"CABUNDLE=C:\missing.pem", r"CABUNDLE=C:\windows",
                         r"CABUNDLE=C:\no.pem"):
            refuse("CheckSettings", self.shipped, argument)
        # A disk without room for the programs, and a service that does not start. That an older version
        # comes back then is Windows' doing: Wine puts back no files.
        refuse(None, self.shipped, before=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (4 << 20, 4 << 20)))
        refuse("StartServices", self.unstartable)
        major = r"HKLM\Software\Microsoft\Windows NT\CurrentVersion", "/v", "CurrentMajorVersionNumber"
        former = UNINSTALL_KEY + r"\ZarnUpdateService"
        self.machine.wine("reg", "add", former, "/v", "UninstallString", "/d", "x")
        refuse("RefuseFormerSetup", self.shipped)
        self.machine.wine("reg", "delete", former, "/f")
        self.machine.wine("reg", "delete", *major, "/f")
        refuse("LaunchConditions", self.shipped)
        self.machine.wine("reg", "add", *major, "/t", "REG_DWORD", "/d", "10")

    def killed(self, line, verb, package, *properties):
        """The package's run is ended from outside when its log has so many lines."""
        log = self.at(r"C:\install.log")
        log.unlink(missing_ok=True)
        run = self.in_background("msiexec", verb, self.machine.windows(package), "/qn", "/l*v", r"C:\install.log",
                                 *properties)
        while run.poll() is None and (not log.exists() or log.read_bytes().count(b"\n") < line):
            pass
        run.kill()
        run.wait()

    def test_killed_anywhere_it_is_made_up_for_by_the_next_run(self):
        settings = {"AccountHost": "first.example", "CaBundle": r"C:\ca.pem", "Proxy": ""}
        chosen = CHOSEN, ACCOUNT

        def goes_on(package):
            self.assert_installs(package, *(() if self.settings() == settings else chosen))
            self.assertEqual((self.settings(), self.version(), self.is_running()),
                             (settings, package.stem.split("-")[1], True))
            self.assertEqual(self.state()[:2], expected[package])
            self.assertTrue(self.accepts("approved.exe"))

        expected, runs = {}, 0
        for package in (self.shipped, self.newer):
            self.have_nothing()
            self.assert_installs(package, *chosen)
            expected[package] = self.state()[:2]
        have_first = functools.partial(self.have_first_version, ACCOUNT)
        steps = (("/i", self.shipped, self.have_nothing, chosen),
                 ("/i", self.newer, have_first, ()), ("/x", self.shipped, have_first, ()))
        for verb, package, prepare, properties in steps:
            prepare()
            self.assertTrue(self.msiexec(verb, package, *properties))
            actions = [number for number, line in enumerate(self.said.splitlines()) if line.startswith("Action start")]
            for line in actions if LONG else actions[len(actions) // 2::len(actions)]:
                with self.subTest(verb, package=package.name, line=line):
                    prepare()
                    self.killed(line, verb, package, *properties)
                    # Wine takes nothing back: of what is new some may be there already.
                    self.assertLessEqual(self.settings().items(), settings.items())
                    if verb == "/x":
                        # Wine forgets a product before it removes its files, and takes nothing back.
                        if not self.msiexec(verb, package) or self.at(FOLDER).exists():
                            goes_on(package)
                            self.assertTrue(self.msiexec(verb, package), self.said)
                        self.assert_nothing_installed()
                    else:
                        goes_on(package)
                    runs += 1
        for size in range(0, 7 << 20, 1 << 16) if LONG else (1 << 18, 4 << 20):
            with self.subTest("upgrade on a full disk", size=size):
                have_first()
                self.assertFalse(self.msiexec("/i", self.newer, before=lambda most=size: resource.setrlimit(
                    resource.RLIMIT_FSIZE, (most, most))))
                self.assertEqual(self.settings(), settings)
                goes_on(self.newer)
                runs += 1
        print(f"package | killed | {runs} runs, at actions of install, upgrade and removal, full disks")

    def rows(self, table):
        text = stage.run("msiinfo", "export", self.shipped, table)
        head, _, _, *rows = (line.rstrip("\r").split("\t") for line in text.split("\n")[:-1])
        return [dict(zip(head, row)) for row in rows]

    def column(self, table, name, *keys):
        rows = self.rows(table)
        return {tuple(row[key] for key in keys) if len(keys) > 1 else row[keys[0]]: row[name] for row in rows}

    def test_tells_windows_what_only_windows_does(self):
        needed = ("AssignPrimaryToken Backup ChangeNotify CreateSymbolicLink Impersonate IncreaseQuota LoadDriver "
                  "Restore Security Shutdown TakeOwnership")
        privileges = "[~]".join(f"Se{name}Privilege" for name in needed.split())
        self.assertEqual(self.column("MsiServiceConfig", "Argument", "Event", "ConfigType"),
                         {("5", "4"): "1", ("5", "5"): "1", ("5", "6"): privileges})
        actions = self.column("CustomAction", "Target", "Action")
        self.assertEqual(actions["SetRecovery"], '"[System64Folder]sc.exe" failure ZarnUpdateService reset= 86400 '
                         "actions= restart/1000/restart/5000/restart/60000")
        # Users read programs and records; nobody but SYSTEM and administrators sees the temp folder.
        locks = {name: re.findall(r"\(A;OICI;(\w+);;;(\w+)\)", text)
                 for name, text in self.column("MsiLockPermissionsEx", "SDDLText", "LockObject").items()
                 if text.startswith("O:BAG:SYD:P(")}
        own = [("FA", "SY"), ("FA", "BA")]
        reading = [*own, ("0x1200a9", "BU")]
        self.assertEqual(locks, {"ProgramFolder": reading, "RecordFolder": reading, "ServiceTempFolder": own})
        self.assertEqual(self.column("Component", "Attributes", "Component")["Record"], "272")  # it stays, 64 bits
        # Users who are no administrators choose nothing; no program is ended, no machine restarted.
        properties = self.column("Property", "Value", "Property")
        self.assertLessEqual({"SecureCustomProperties": "NEWERVERSION;OLDERVERSION", "REBOOT": "ReallySuppress",
                              "MSIRESTARTMANAGERCONTROL": "Disable",
                              "REINSTALLMODE": "amus"}.items(), properties.items())
        self.assertIn("NOT Installed OR REMOVE OR AdminUser",
                      self.column("LaunchCondition", "Description", "Condition"))
        # The old version goes last, and takes neither logs nor the choice of authorities along.
        conditions = self.column("InstallExecuteSequence", "Condition", "Action")
        order = sorted(self.rows("InstallExecuteSequence"), key=lambda row: int(row["Sequence"]))
        self.assertEqual([row["Action"] for row in order][-2:], ["RemoveExistingProducts", "InstallFinalize"])
        for action in ("WaitForRunningUpdate", "PurgeLogs", "ForgetCaBundle"):
            self.assertIn("AND NOT UPGRADINGPRODUCTCODE", conditions[action])
        self.assertEqual(conditions["InstallAgain"], "Installed AND NOT REMOVE AND NOT REINSTALL")
        self.assertIn("Template: x64;1033", stage.run("msiinfo", "suminfo", self.shipped))

    def test_its_tables_fit_together(self):
        """What one table names is in the other: Windows refuses other packages, Wine does not."""
        names = stage.run("msiinfo", "tables", self.shipped).split()
        tables = {name: self.rows(name) for name in names if not name.startswith("_")}
        keys = {name: {next(iter(row.values())) for row in rows} for name, rows in tables.items()}
        keys["Signature"] |= keys["RegLocator"] | keys["DrLocator"]
        for name, rows in tables.items():
            for row in rows:
                for column, value in row.items():
                    if (other := column.rstrip("_").split("_")[0]) != column and value and other in keys:
                        self.assertIn(value, keys[other] | {"TARGETDIR"}, f"{name}.{column}")
        folders = {row["Source"] for row in tables["CustomAction"] if int(row["Type"]) & 63 == 34}
        self.assertLessEqual(folders | {row["DestFolder"] for row in tables["MoveFile"]}, keys["Directory"])
        self.assertLessEqual(keys["CustomAction"], keys["InstallExecuteSequence"])

    def test_the_start_type_is_set_by_the_systems_own_program(self):
        # Wine's cannot do that: another program in its place says what it was given.
        self.have_nothing()
        shutil.copy(self.bundles / "unsigned.exe", self.at(r"C:\zarn-test\sc.exe"))
        self.at(r"C:\zarn-test\plan.txt").write_text("exit=0\n")
        asked, runs = "config ZarnUpdateService start= ", self.at(r"C:\zarn-test\runs.txt")
        own = f'"[System64Folder]sc.exe" {asked}[START]'
        self.assertEqual(self.column("CustomAction", "Target", "Action")["SetStartType"], own)
        package = self.with_target(self.shipped, "SetStartType", rf"C:\zarn-test\sc.exe {asked}[START]")
        for start in ("demand", "delayed-auto"):
            runs.unlink(missing_ok=True)
            self.assert_installs(package, f"START={start}")
            self.assertIn(asked + start, runs.read_text())
            self.assertEqual(self.is_running(), start != "demand")

    def test_the_bill_of_materials_names_what_is_built_in(self):
        versions = {part["bom-ref"]: part.get("version") for part in self.bill["components"]}
        program = (self.dist / "ZarnUpdateService.exe").read_bytes()
        # Each library says its own version inside the program.
        for source, text in {"openssl": "OpenSSL {} ", "libz-mingw-w64": " inflate {} Copyright"}.items():
            self.assertIn(text.format(re.match(r"[\d.]+", versions[source])[0]).encode(), program)
        self.assertNotIn("googletest", versions)
        # What the sources include of libraries, by the folder or file that they name.
        known = {"boost": "boost1.81", "curl": "curl", "fmt": "fmtlib", "openssl": "openssl", "tl": "tl-expected",
                 "nlohmann": "nlohmann-json3", "zip.h": "libzip", "zlib.h": "libz-mingw-w64"}
        system = {path.name for place in ("x86_64-w64-mingw32", "lib/gcc/x86_64-w64-mingw32")
                  for path in pathlib.Path("/usr", place).glob("**/include/**/*")}
        for folder in ("src", "client"):
            for source in (ROOT / folder).rglob("*[!x].[ch]*"):  # not those that end in _posix
                for name in re.findall(r"^#include <([^>]+)>", source.read_text(), re.MULTILINE):
                    first = name.split("/")[0]
                    if first in known or not (re.fullmatch(r"[a-z_]+", name) or first in system):
                        self.assertIn(known.get(first, name), versions, f"{source} includes {name}")
        licences = {name.split("|")[-1].removesuffix(".txt")
                    for key, name in self.column("File", "FileName", "File").items() if "Licences" in key}
        self.assertEqual(licences, {name for name in versions if not name.startswith("file:")})


if __name__ == "__main__":
    stage.run_tests(PackageTest)
