"""The demo: one update from request to restart, told as a short story."""

import argparse
import pathlib
import shutil
import textwrap
import time

import stage


def heading(text):
    print(f"\n--- {text}")


def tell(text):
    print(textwrap.fill(text, 96, initial_indent="    ", subsequent_indent="    "))


def show(text, keep=lambda line: True):
    for line in text.splitlines():
        if line.strip() and keep(line):
            print(f"      | {line.rstrip()[:150]}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--package", type=pathlib.Path, required=True)
    parser.add_argument("--work", type=pathlib.Path, required=True)
    options = parser.parse_args()
    options.work = options.work.resolve()
    accounts = stage.AccountService(options.work / "account-service")
    machine = stage.Machine(options.work / "machine")
    try:
        play(options, accounts, machine)
    finally:
        machine.stop()
        accounts.stop()


def start_again(machine):
    machine.wine("sc", "start", stage.SERVICE)
    for _ in range(200):
        if "RUNNING" in machine.wine("sc", "query", stage.SERVICE, check=False).stdout:
            return
        time.sleep(0.1)
    raise RuntimeError("the service did not start again")


def tell_what_takes_how_long():
    """Seconds as measured on two quiet processors; the first line of each part says when it has begun."""
    tell("What takes how long: the publisher's keys and certificates some 3 s, a new machine and the "
         "installation of the package some 16 s, all else 2 s. Nothing is asked; Ctrl+C ends the story.")


def play(options, accounts, machine):
    programs = options.build / "tools" / "stage"
    tell_what_takes_how_long()
    heading("A publisher signs an update")
    publisher = stage.Publisher(options.work / "publisher")
    bundles = stage.make_bundles(publisher, programs, options.work / "bundles")
    digest = publisher.digest(publisher.approved)
    tell(f"approved.exe is signed (Authenticode) by a certificate with the SHA-256 digest {digest[:16]}...")

    heading("The account service approves that certificate, over HTTPS")
    accounts.approve(digest)
    servers = accounts.start()
    show(accounts.profile.read_text())
    tell(f"served by nginx at https://{servers['good']}/api/zmscert/profile")

    heading("A machine gets the service, by its Windows Installer package")
    machine.make({"ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST": servers["good"]})
    machine.trust(programs, publisher.root)
    shutil.copy(servers["ca"], machine.path(r"C:\authorities.pem"))
    arguments = ["/qn", "/l*v", r"C:\install.log", r"CABUNDLE=C:\authorities.pem"]
    tell(f"msiexec /i {options.package.name} {' '.join(arguments)}")
    machine.wine("msiexec", "/i", machine.windows(options.package.resolve()), *arguments)
    client = stage.INSTALL_DIR + r"\zarn-update.exe"
    show(machine.wine(client, "status").stdout)
    plan = machine.path(r"C:\zarn-test\plan.txt")
    plan.write_text("exit=0\nlog=Zarn Media Server Setup.log\n")

    heading("A caller asks for a bundle that is not signed")
    refused = machine.wine(client, "install", machine.windows(bundles / "unsigned.exe"), check=False)
    show(refused.stdout)
    runs = machine.path(r"C:\zarn-test\runs.txt")
    if refused.returncode == 0 or runs.exists():
        raise RuntimeError("an unsigned bundle was not refused")
    tell("Refused, and nothing ran.")

    heading("An administrator asks why: what the service decides on it, step by step, without running it")
    refused = machine.wine(client, "verify", machine.windows(bundles / "unsigned.exe"), check=False)
    show(refused.stdout)
    if refused.returncode != 1:
        raise RuntimeError("the unsigned bundle was not found to be refused")

    heading("The same of the signed bundle")
    show(machine.wine(client, "verify", machine.windows(bundles / "approved.exe")).stdout)

    heading("A caller asks for the signed bundle")
    watcher = machine.start(programs / "await_service_end.exe")
    installed = machine.wine(client, "install", machine.windows(bundles / "approved.exe"), check=False)
    show(installed.stdout)
    if installed.returncode != 0:
        raise RuntimeError("the signed bundle was not installed")
    tell("What ran, by the installer's own record:")
    show(runs.read_text())

    heading("The service ends itself to be restarted (exit code 1467)")
    show(watcher.communicate(timeout=60)[0], lambda line: "ended" in line)
    tell("On Windows the recovery actions start it again; here the story does.")
    start_again(machine)
    logs = next(machine.prefix.glob("drive_c/users/*/AppData/Local/Zarn Media Server/Logs"))
    tell("The installer's logs were collected:")
    for file in sorted((logs / "Installer Logs").iterdir()):
        print(f"      | {file.name}")
    tell("The service's own account of it (rotated by the second start). Two things in it look like faults "
         "and are none. The first lines are younger than those behind them: each file begins with the "
         "system's description, which is written when the file is opened, and the lines of the service's "
         'first milliseconds waited for that. And "Win32 Error: 0 Success." is how the system reports a '
         "file without a signature: the call says that it failed, and leaves no error behind; the service "
         "goes by the failure, and refuses.")
    show((logs / "Zarn Update Service.1.log").read_text(errors="replace"))
    tell("And its record of every request (zarn-update history):")
    show(machine.wine(client, "history").stdout)
    shutil.copytree(logs, options.work / "Logs", dirs_exist_ok=True)

    heading("What to try next")
    work = options.work.relative_to(stage.ROOT)
    tell(f"The machine is kept in {work} until the next demo, switched off. From the folder of this checkout:")
    prefix = f"WINEPREFIX=$PWD/{work}/machine tools/wine"
    program = f"'{client}'"
    print(f"      {prefix} {program} history")
    print(f"      {prefix} {program} explain 30004")
    print(f"      {prefix} {program} --help")
    print("      ./dev test      every test: natively under sanitizers, and under Wine")


main()
