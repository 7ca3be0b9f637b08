"""Makes or clears a whole stage in a work folder: the fixture of the end-to-end tests, and of runs by hand."""

import argparse
import hashlib
import os
import pathlib
import shutil
import signal
import socket
import subprocess

import stage

COLLECTOR = """
global(parser.escapeControlCharactersOnReceive="on" maxMessageSize="64k")
module(load="imudp")
template(name="record" type="string" string="%pri%|%hostname%|%syslogtag%|%msg%\\n")
input(type="imudp" address="127.0.0.1" port="{port}" ruleset="collect")
ruleset(name="collect") {{ action(type="omfile" file="{folder}/collected.txt" template="record") }}
"""


def start_collector(folder):
    """A real rsyslog; the port that it listens at."""
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    (folder / "rsyslog.conf").write_text(COLLECTOR.format(port=port, folder=folder))
    subprocess.run(["rsyslogd", "-i", folder / "pid", "-f", folder / "rsyslog.conf"], check=True,
                   env=dict(os.environ, PATH=os.environ["PATH"] + ":/usr/sbin"),
                   stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return port


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("action", choices=["start", "stop"])
    parser.add_argument("--work", type=pathlib.Path, required=True)
    parser.add_argument("--programs", type=pathlib.Path, help="folder with the stand-in installers")
    parser.add_argument("--dist", type=pathlib.Path, help="the shippable tree")
    parser.add_argument("--service", type=pathlib.Path, help="another program in the service's place")
    options = parser.parse_args()
    options.work = options.work.resolve()

    accounts = stage.AccountService(options.work / "account-service")
    machine = stage.Machine(options.work / "machine")
    collector = options.work / "collector"
    if options.action == "stop":
        machine.stop()
        accounts.stop()
        if (collector / "pid").exists():  # rsyslog removes it when it ends
            os.kill(int((collector / "pid").read_text()), signal.SIGTERM)
        return

    publisher = stage.Publisher(options.work / "publisher")
    bundles = stage.make_bundles(publisher, options.programs, options.work / "bundles")
    accounts.approve(publisher.digest(publisher.approved))
    servers = accounts.start()
    machine.make({"ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST": servers["good"],
                  "ZARN_MEDIA_SERVER_SYSLOG_COLLECTOR": f"127.0.0.1:{start_collector(stage.fresh(collector))}",
                  "ZARN_MEDIA_SERVER_SYSLOG_MINUTES": "600",
                  "ZARN_MEDIA_SERVER_DEFAULT_PREFERENCES": "ZarnOnlineUsername=operator"})
    machine.lay_out(options.dist, servers["ca"])
    if options.service:
        shutil.copy(options.service, machine.path(stage.INSTALL_DIR) / "ZarnUpdateService.exe")
    machine.trust(options.programs, publisher.root, publisher.sha1_root)
    machine.register()
    settings = {
        "bundles": machine.windows(bundles),
        "profile": machine.windows(accounts.profile),
        "approved_digest": publisher.digest(publisher.approved),
        "approved_sha256": hashlib.sha256((bundles / "approved.exe").read_bytes()).hexdigest(),
        "decoy_digest": publisher.digest(publisher.other),
        "collected": machine.windows(collector / "collected.txt"),
    }
    text = "".join(f"{name}={value}\n" for name, value in settings.items())
    (machine.path(r"C:\zarn-test") / "stage.txt").write_text(text)


main()
