"""The sdk as a new user meets it: docs/calling.md followed to the letter in an empty folder outside the
source tree, and the programs that come of it run against the registered service.
"""

import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools" / "stage"))
import stage  # noqa: E402

MANUAL = (ROOT / "docs" / "calling.md").read_text()
# What Windows maps from its own folder, whatever lies beside a program.
KNOWN_DLLS = {"ADVAPI32.dll", "KERNEL32.dll", "RPCRT4.dll", "SHELL32.dll", "msvcrt.dll", "ntdll.dll"}


def blocks(kind):
    return "".join(re.findall(rf"^```{kind}\n(.*?)^```$", MANUAL, re.MULTILINE | re.DOTALL))


class SdkTest(stage.MachineTest):
    @classmethod
    def setUpClass(cls):
        sdk = stage.fresh(cls.work / "sdk")
        stage.run("cmake", "--install", cls.build, "--prefix", sdk, "--component", "sdk", "--strip")
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.place = pathlib.Path(folder.name)
        (cls.place / "CMakeLists.txt").write_text(blocks("cmake"))
        stage.run("bash", "-euc", blocks("sh"), cwd=cls.place, env={"PATH": "/usr/bin:/bin", "SDK": str(sdk)})
        cls.machine = stage.Machine(cls.work / "machine")
        settings = dict(line.split("=", 1) for line in
                        cls.machine.path(r"C:\zarn-test\stage.txt").read_text().splitlines())
        cls.bundles = settings["bundles"]
        stage.AccountService(cls.work / "account-service").approve(settings["approved_digest"])

    def start_service(self):
        return self.machine.wine("sc", "start", stage.SERVICE, check=False)

    def runs(self, program, bundle, plan):
        """What a program says of a bundle, while somebody restarts the service as Windows would."""
        self.machine.path(r"C:\zarn-test\plan.txt").write_text(plan)
        with subprocess.Popen([ROOT / "tools" / "wine", self.place / program, rf"{self.bundles}\{bundle}"],
                              env=self.machine.environment, stdout=subprocess.PIPE, text=True) as running:
            while running.poll() is None:
                self.start_service()
            return running.returncode, running.stdout.read().splitlines()

    def test_programs_made_by_the_manual_install_a_bundle(self):
        self.start_service()
        reboot = "status 30000, installed, and a reboot is required to complete it (installer exit code 3010)"
        for program, exit_code, words in (("in_c.exe", 0, "status 0, installed"), ("in_cpp.exe", 3010, reboot)):
            self.assertEqual(self.runs(program, "approved.exe", f"exit={exit_code}\n"),
                             (0, [words, "the service is back"]))
        for program in ("build/my_updater.exe", "examples/install_update_c.exe", "examples/install_update_cpp.exe"):
            code, said = self.runs(program, "approved.exe", "exit=1641\n")
            self.assertEqual((code, said[0][:13], len(said)), (0, "status 30001,", 1))
        self.assertEqual(self.runs("by_idl.exe", "approved.exe", "exit=5\n"),
                         (0, ["status 30002, installer's exit code 5"]))
        code, said = self.runs("in_c.exe", "unsigned.exe", "")
        self.assertEqual((code, said[0][:22]), (1, "status 30004, refused:"))
        self.assertEqual(self.machine.wine(self.place / "in_cpp.exe", "b.exe", check=False).stdout.strip(),
                         "no answer: the path is relative")

    def test_library_exports_what_the_header_declares_and_loads_nothing_from_beside_it(self):
        said = stage.run("x86_64-w64-mingw32-objdump", "-p", self.place / "sdk/bin/ZarnUpdateClient.dll")
        self.assertLessEqual(set(re.findall(r"DLL Name: (\S+)", said)), KNOWN_DLLS)
        declared = re.findall(r"ZARN_UPDATE_CALL (zarn_\w+)\(", (ROOT / "client/zarn_update_client.h").read_text())
        self.assertEqual(re.findall(r"\[ +\d+\] (zarn\w+)", said), sorted(declared))
        stage.run("x86_64-w64-mingw32-gcc-posix", "-std=c89", "-pedantic", "-Werror", "-fsyntax-only", "-x", "c",
                  self.place / "sdk/include/zarn_update_client.h")


if __name__ == "__main__":
    stage.run_tests(SdkTest)
