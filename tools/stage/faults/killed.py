"""Ends a program from outside at any of its writes, files and requests to Wine's server alike: strace counts them."""

import re
import signal
import subprocess

CALLS = "write,writev,pwrite64,sendmsg"


def writes_of(command, trace, **options):
    """Name and text of each of the program's own writes, its helpers' left out, in their order."""
    subprocess.run(["strace", "--seccomp-bpf", "-f", "-s", "400", "-o", trace, "-e", f"trace={CALLS}", *command],
                   **options)
    lines = trace.read_text(errors="replace").splitlines()
    matches = (re.match(lines[0].split()[0] + r" +(\w+)(\(.*)", line) for line in lines)
    return [match.groups() for match in matches if match]


def kill_at(command, writes, number, **options):
    """Runs it until the write of this number, which does not happen; whether it came to that."""
    name = writes[number][0]
    nth = [call for call, _ in writes[:number + 1]].count(name)
    run = subprocess.run(["strace", "-f", "-o", "/dev/null", "-e", f"trace={name}",
                          "-e", f"inject={name}:signal=SIGKILL:when={nth}", *command], **options)
    return run.returncode == -signal.SIGKILL
