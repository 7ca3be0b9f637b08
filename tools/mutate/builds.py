"""A copy of the checkout with its builds, and what the tests of a build say."""

import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
# Tests that start and end things for others, and those that play on the stage of the service.
FIXTURE = re.compile(r"(wine|servers|e2e|stage|faults|setup)_(start|stop|dist)$|e2e_dist$")
ON_STAGE = ("end_to_end_tests", "command_line_tool_tests", "hostile_callers_tests")
# What says nothing about a fault in a program, takes minutes, or draws other cases each time.
LEFT_OUT = re.compile(r"layers$|policy_templates$|setup_tests$|sdk_tests$|fault_tests$|soak_tests$|full_machine_tests$")
ERROR_PLACE = re.compile(r"\b((?:src|client)/[\w./-]+):(\d+):")


def run(command, log, seconds, folder, **environment):
    """True when the command works in time; it and its children are ended otherwise."""
    with log.open("w") as output:
        process = subprocess.Popen(command, cwd=folder, stdout=output, stderr=subprocess.STDOUT,
                                   start_new_session=True, env={**os.environ, **environment})
        try:
            return process.wait(seconds) == 0
        except subprocess.TimeoutExpired:
            return False
        finally:
            try:
                os.killpg(process.pid, 9)
            except ProcessLookupError:
                pass
            process.wait()


class Copy:
    """The tracked files in a folder of their own, made once and kept for its builds."""

    def __init__(self, folder):
        self.folder = folder
        self.fault = folder / "fault"
        for file in subprocess.check_output(["git", "-C", ROOT, "ls-files"], text=True).split("\n")[:-1]:
            self.write(file, (ROOT / file).read_bytes())
            shutil.copymode(ROOT / file, folder / file)

    def write(self, file, content):
        """Times stay as they are where nothing changes, so that what is built anew did."""
        target = self.folder / file
        if not target.exists() or target.read_bytes() != content:
            target.parent.mkdir(parents=True, exist_ok=True)
            target.write_bytes(content)

    def choose(self, number):
        """The fault in force from here on in programs that others start; -1 notes what is come past."""
        self.fault.write_text(str(number))

    def passed(self):
        """The faults come past since this was asked last."""
        noted = pathlib.Path(f"{self.fault}.passed")
        numbers = {int(word) for word in noted.read_text().split()} if noted.exists() else set()
        noted.unlink(missing_ok=True)
        return numbers


class Build:
    """One way to build a copy. For one thread."""

    def __init__(self, copy, preset):
        self.copy, self.preset = copy, preset
        self.folder = copy.folder / "build" / preset
        self.log = copy.folder / f"{preset}.log"
        self.seconds = {}
        self.passing = {}  # test -> the faults that it comes past

    def configure(self):
        header = self.copy.folder / "fault.h"
        options = {"check": "-DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=gold", "tsan": "-DZARN_BUILD_FUZZ=OFF",
                   "windows": "-DCMAKE_CXX_FLAGS_RELEASE=-O0 -DNDEBUG -U_FORTIFY_SOURCE"}[self.preset]
        command = ["cmake", "--preset", self.preset, "-DZARN_BATCHES=OFF", options]
        if self.preset != "tsan":
            command.append(f"-DCMAKE_CXX_FLAGS=-w -include {header}")
        if not run(command, self.log, 300, self.copy.folder):
            raise SystemExit(f"configuring failed: {self.log}")

    def build(self):
        return run(["ninja", "-C", self.folder, "-k", "0"], self.log, 3600, self.copy.folder)

    def error_places(self):
        """File and line of all that the compiler complains of."""
        said = self.log.read_text(errors="replace")
        return {(match[1], int(match[2])) for match in ERROR_PLACE.finditer(said)}

    def start(self):
        """Starts what the tests need, and runs each with no fault in force."""
        listed = subprocess.check_output(["ctest", "--test-dir", self.folder, "--show-only=json-v1"])
        names = [test["name"] for test in json.loads(listed)["tests"]]
        fixtures = [name for name in names if FIXTURE.match(name) and not name.startswith("faults")]
        self.starting = [name for name in fixtures if not name.endswith("_stop")]
        self.stopping = [name for name in fixtures if name.endswith("_stop")]
        names = [name for name in names if not FIXTURE.match(name) and not LEFT_OUT.match(name)]
        self.run_fixtures(self.starting)
        for name in names:
            self.copy.passed()
            self.copy.choose(-1)
            begun = time.monotonic()
            works = self.test(name, "-1", 600)
            if not works:  # a busy machine may have cost it a deadline
                begun = time.monotonic()
                works = self.test(name, "-1", 600)
            self.copy.choose(0)
            if not works:
                print(f"      {name} ({self.preset}) fails without a fault and is left out: {self.log}")
                continue
            self.seconds[name] = time.monotonic() - begun
            self.passing[name] = self.copy.passed()

    def run_fixtures(self, names):
        for name in names:
            run(["ctest", "--test-dir", self.folder, "-R", f"^{name}$", "-FA", "."], self.log, 600, self.copy.folder)

    def stop(self):
        self.run_fixtures(self.stopping)

    def test(self, name, fault, seconds):
        command = ["ctest", "--test-dir", str(self.folder), "-R", f"^{name}$", "-FA", "."]
        command += ["--timeout", str(int(seconds))]
        environment = {"ZARN_FAULT": fault} if self.preset != "windows" else {}
        works = run(command, self.log, seconds + 10, self.copy.folder, GTEST_FAIL_FAST="1", **environment)
        if not works and self.preset == "windows":
            # What has a fault in it leaves a machine on which nothing else could be told.
            machine = "e2e" if name in ON_STAGE else "wine"
            self.run_fixtures([f"{machine}_stop", f"{machine}_start"])
        return works

    def catcher(self, number, everything=False):
        """The test that fails with this fault in force; None when none does. Quick ones come first."""
        self.copy.choose(number)
        try:
            for name in sorted(self.seconds, key=lambda one: self.seconds[one]):
                if everything or number in self.passing[name]:
                    if not self.test(name, str(number), 4 * self.seconds[name] + 15):
                        return f"{name} ({self.preset})"
            return None
        finally:
            self.copy.choose(0)

    def comes_past(self, number):
        return any(number in passed for passed in self.passing.values())


def compilers_words(copy, build, file, text):
    """What the compiler of a build says of this text of a file: whether it takes it, and its warnings."""
    here = (copy.folder / file).read_bytes()
    copy.write(file, text.encode())
    try:
        commands = json.loads((build.folder / "compile_commands.json").read_text())
        users = [one for one in commands if one["file"].endswith("/" + file)]
        users = users or [one for one in commands if "/src/" in one["file"]] if file.endswith(".h") else users
        for one in users:
            words = [word for word in shlex.split(one["command"]) if not word.endswith("ccache")]
            words = words[: words.index("-o")] + ["-fsyntax-only", one["file"]]
            done = subprocess.run(words, cwd=one["directory"], capture_output=True, text=True, check=False)
            yield done.returncode == 0, done.stderr
    finally:
        copy.write(file, here)


def violates_lock_rules(copy, build, file, text):
    """Whether clang's analysis sees that a lock is missing, as the build with ThreadSanitizer would."""
    return any("-Wthread-safety" in said for _, said in compilers_words(copy, build, file, text))


def is_refused(copy, builds, file, text):
    """Whether a compiler does not take this text of a file."""
    return not all(takes for build in builds for takes, _ in compilers_words(copy, build, file, text))
