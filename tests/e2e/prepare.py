"""Fixture of the end-to-end tests: makes or clears the stage in a work folder."""

import argparse
import hashlib
import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "stage"))
import stage  # noqa: E402


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("action", choices=["start", "stop"])
    parser.add_argument("--work", type=pathlib.Path, required=True)
    parser.add_argument("--programs", type=pathlib.Path, help="folder with the stand-in installers")
    parser.add_argument("--dist", type=pathlib.Path, help="the shippable tree")
    options = parser.parse_args()
    options.work = options.work.resolve()

    accounts = stage.AccountService(options.work / "account-service")
    machine = stage.Machine(options.work / "machine")
    if options.action == "stop":
        machine.stop()
        accounts.stop()
        return

    publisher = stage.Publisher(options.work / "publisher")
    bundles = stage.make_bundles(
        publisher, options.programs / "genuine_installer.exe", options.programs / "intruder_installer.exe",
        options.work / "bundles",
    )
    accounts.approve(publisher.digest(publisher.approved))
    servers = accounts.start()
    machine.make({"ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST": servers["good"]})
    machine.lay_out(options.dist, servers["ca"])
    machine.wine(options.programs / "trust_root.exe", machine.windows(publisher.root.with_suffix(".der")),
                 machine.windows(publisher.sha1_root.with_suffix(".der")))
    settings = {
        "bundles": machine.windows(bundles),
        "profile": machine.windows(accounts.profile),
        "approved_digest": publisher.digest(publisher.approved),
        "approved_sha256": hashlib.sha256((bundles / "approved.exe").read_bytes()).hexdigest(),
        "decoy_digest": publisher.digest(publisher.other),
    }
    text = "".join(f"{name}={value}\n" for name, value in settings.items())
    (machine.path(r"C:\zarn-test") / "stage.txt").write_text(text)


main()
