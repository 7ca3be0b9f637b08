#!/usr/bin/python3
"""nginx as the account service, and beside it servers that misbehave, one per
port, when they are wished. Everything listens on 127.0.0.1.

  servers.py start DIR [--profile FILE] [--misbehaving]   returns when every server answers
  servers.py stop DIR                                     ends what start began; may be repeated

DIR/servers.txt then has a line name=value for each server (host:port), "ca" and
"other_ca_file" (PEM files), "profile" (the file that nginx serves, read anew for
each request; FILE when given) and "access_log" (of nginx: connection serial,
requests on that connection so far, status, URI). Whatever happens, all servers
end after two hours.
"""

import argparse
import asyncio
import contextlib
import functools
import importlib
import json
import os
import signal
import socket
import ssl
import subprocess
import sys
import time
import warnings

PROFILE_PATH = "/api/zmscert/profile"
HOST = "127-0-0-1.anything.zarn.direct"
GOOD_NAMES = f"DNS:{HOST},DNS:127-0-0-1.test.zarn.direct,IP:127.0.0.1"
PROFILE = json.dumps({"certs": ["0123456789abcdef" * 4]}).encode()
LIFETIME_SECONDS = 2 * 3600


# ---- Certificates -------------------------------------------------------------

def openssl(*arguments):
    subprocess.run(["openssl", *arguments], check=True, stdin=subprocess.DEVNULL, capture_output=True)


CA_CONFIGURATION = """
[ca]
default_ca=d
[d]
database={database}/index.txt
new_certs_dir={database}
rand_serial=yes
policy=p
default_md=sha256
unique_subject=no
email_in_dn=no
copy_extensions=copy
[p]
commonName=supplied
"""


def make_ca(directory, name):
    base = os.path.join(directory, name)
    openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "30",
            "-subj", f"/CN=Zarn test {name}", "-keyout", base + ".key", "-out", base + ".pem")


def make_certificate(directory, name, ca, alternative_names, *, dates=(), extensions=()):
    """Signed by the authority `ca`, or, without one, by itself."""
    base = os.path.join(directory, name)
    openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj", f"/CN={name}",
            "-addext", f"subjectAltName={alternative_names}", "-keyout", base + ".key", "-out", base + ".csr",
            *(part for extension in extensions for part in ("-addext", extension)))
    signer, database = os.path.join(directory, ca or name), base + ".ca"
    os.makedirs(database, exist_ok=True)
    for file, text in (("index.txt", ""), ("ca.cnf", CA_CONFIGURATION.format(database=database))):
        with open(os.path.join(database, file), "w", encoding="utf-8") as made:
            made.write(text)
    openssl("ca", "-batch", "-config", os.path.join(database, "ca.cnf"), "-in", base + ".csr", "-out", base + ".pem",
            "-notext", "-keyfile", signer + ".key", *(("-cert", signer + ".pem") if ca else ("-selfsign",)),
            *(dates or ("-days", "30")))
    return context_for(base)


def context_for(base):
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(base + ".pem", base + ".key")
    return context


def old_context(base, version):
    """Speaks one old version of TLS and no other."""
    context = context_for(base)
    with warnings.catch_warnings():
        warnings.simplefilter("ignore", DeprecationWarning)
        context.minimum_version = context.maximum_version = version
    context.set_ciphers("ALL:@SECLEVEL=0")
    return context


def bad_contexts(directory):
    """Servers that no client may take for the right one, by name."""
    authority = ("basicConstraints=critical,CA:TRUE",)
    make_certificate(directory, "intermediate", "ca", "DNS:authority.example", extensions=authority)
    return {
        "expired": make_certificate(directory, "expired", "ca", GOOD_NAMES,
                                    dates=("-startdate", "20200101000000Z", "-enddate", "20210101000000Z")),
        "not_yet_valid": make_certificate(directory, "not_yet_valid", "ca", GOOD_NAMES,
                                          dates=("-startdate", "20480101000000Z", "-enddate", "20490101000000Z")),
        "self_signed": make_certificate(directory, "self_signed", None, GOOD_NAMES),
        # The intermediate certificate is not sent along.
        "truncated_chain": make_certificate(directory, "truncated_chain", "intermediate", GOOD_NAMES),
        "tls1_0": old_context(os.path.join(directory, "good"), ssl.TLSVersion.TLSv1),
        "tls1_1": old_context(os.path.join(directory, "good"), ssl.TLSVersion.TLSv1_1),
    }


# ---- Servers that misbehave ------------------------------------------------------

class Request:
    def __init__(self, method, path, headers, body):
        self.method, self.path, self.headers, self.body = method, path, headers, body


async def read_request(reader, writer):
    head = (await reader.readuntil(b"\r\n\r\n")).decode("latin-1").split("\r\n")
    method, path, _version = head[0].split(" ", 2)
    headers = dict(line.split(": ", 1) for line in head[1:] if ": " in line)
    if headers.get("Expect") == "100-continue":
        writer.write(b"HTTP/1.1 100 Continue\r\n\r\n")
    body = await reader.readexactly(int(headers.get("Content-Length", 0)))
    return Request(method, path, headers, body)


def connection_handler(behave, hosts):
    async def handle(reader, writer):
        gone = (ConnectionError, asyncio.IncompleteReadError, ssl.SSLError, TimeoutError)
        with contextlib.suppress(*gone):
            try:
                await behave(await read_request(reader, writer), writer, hosts)
                await writer.drain()
            finally:
                writer.close()
                with contextlib.suppress(*gone):
                    await writer.wait_closed()
    return handle


# ---- nginx ----------------------------------------------------------------------

NGINX_CONFIGURATION = """
daemon off;
{user}
worker_processes 1;
pid "{directory}/nginx.pid";
error_log "{directory}/nginx-error.log";
events {{ worker_connections 512; }}
http {{
  log_format connections '$connection $connection_requests $status $request_uri';
  access_log "{directory}/nginx-access.log" connections;
  client_body_temp_path "{directory}/nginx-tmp"; proxy_temp_path "{directory}/nginx-tmp";
  fastcgi_temp_path "{directory}/nginx-tmp"; uwsgi_temp_path "{directory}/nginx-tmp";
  scgi_temp_path "{directory}/nginx-tmp";
  default_type application/json;
  ssl_certificate "{directory}/good.pem";
  ssl_certificate_key "{directory}/good.key";
  server {{ listen 127.0.0.1:{good} ssl; location = {path} {{ alias "{profile}"; }} }}
  server {{ listen 127.0.0.1:{resume} ssl; location = {path} {{ alias "{directory}/resume.bin"; }} }}
}}
"""


def start_nginx(directory, profile, sockets):
    """nginx takes over the listening sockets, as after an upgrade, so no port can be lost to somebody else."""
    with open(os.path.join(directory, "resume.bin"), "wb") as file:
        file.write(bytes(ord("a") + i % 26 for i in range(5000)))
    ports = {name: listener.getsockname()[1] for name, listener in sockets.items()}
    configuration = os.path.join(directory, "nginx.conf")
    with open(configuration, "w", encoding="utf-8") as file:
        file.write(NGINX_CONFIGURATION.format(directory=directory, profile=profile, path=PROFILE_PATH,
                                              user="user root;" if os.geteuid() == 0 else "", **ports))
    descriptors = [listener.fileno() for listener in sockets.values()]
    environment = dict(os.environ, NGINX="".join(f"{number};" for number in descriptors))
    environment["PATH"] = environment.get("PATH", "") + ":/usr/sbin"
    return subprocess.Popen(["nginx", "-e", os.path.join(directory, "nginx-error.log"), "-p", directory,
                             "-c", configuration], env=environment, pass_fds=descriptors, stdin=subprocess.DEVNULL)


async def wait_for_answer(port, context):
    """The kernel queues the connection until nginx takes it."""
    reader, writer = await asyncio.open_connection("127.0.0.1", port, ssl=context, server_hostname=HOST)
    writer.write(f"GET {PROFILE_PATH} HTTP/1.0\r\n\r\n".encode())
    await reader.readuntil(b"\r\n")
    writer.close()


# ---- Commands --------------------------------------------------------------------

def listen():
    listener = socket.socket()
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(("127.0.0.1", 0))
    listener.listen(256)
    listener.setblocking(False)
    return listener


def note_process(directory, pid):
    with open(os.path.join(directory, "pids"), "a", encoding="utf-8") as file:
        file.write(f"{pid} {start_time(pid)}\n")


async def serve(directory, profile, scenarios):
    asyncio.get_running_loop().add_signal_handler(signal.SIGTERM, asyncio.current_task().cancel)
    make_ca(directory, "ca")
    make_ca(directory, "other_ca")
    contexts = {"good": make_certificate(directory, "good", "ca", GOOD_NAMES),
                "other_ca": make_certificate(directory, "other", "other_ca", GOOD_NAMES),
                "wrong_host": make_certificate(directory, "elsewhere", "ca", "DNS:elsewhere.example"),
                "plain_http": None} | (bad_contexts(directory) if scenarios else {})
    sockets = {name: listen() for name in ("good", "resume", *scenarios)}
    hosts = {name: f"{HOST}:{listener.getsockname()[1]}" for name, listener in sockets.items()}
    nginx = start_nginx(directory, profile, {name: sockets[name] for name in ("good", "resume")})
    try:
        note_process(directory, nginx.pid)
        for name, behave in scenarios.items():
            if getattr(behave, "is_raw", False):  # has the connection before any TLS
                await asyncio.start_server(functools.partial(behave, hosts=hosts), sock=sockets[name])
            else:
                await asyncio.start_server(connection_handler(behave, hosts), sock=sockets[name],
                                           ssl=contexts.get(name, contexts["good"]))
        trust = ssl.create_default_context(cafile=os.path.join(directory, "ca.pem"))
        await asyncio.wait_for(wait_for_answer(sockets["good"].getsockname()[1], trust), 20)
        facts = hosts | {"ca": os.path.join(directory, "ca.pem"),
                         "other_ca_file": os.path.join(directory, "other_ca.pem"),
                         "access_log": os.path.join(directory, "nginx-access.log"), "profile": profile}
        partial = os.path.join(directory, "servers.txt.new")
        with open(partial, "w", encoding="utf-8") as file:
            file.writelines(f"{name}={value}\n" for name, value in facts.items())
        os.rename(partial, os.path.join(directory, "servers.txt"))
        await asyncio.sleep(LIFETIME_SECONDS)
    except asyncio.CancelledError:
        pass
    finally:
        nginx.terminate()
        nginx.wait()


def start_time(pid):
    """Tells a process from a later one with the same number; None when it is gone."""
    with contextlib.suppress(OSError):
        with open(f"/proc/{pid}/stat", encoding="latin-1") as file:
            fields = file.read().rpartition(")")[2].split()
            return fields[19] if fields[0] != "Z" else None
    return None


def wait_until(condition, seconds):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.02)
    return True


def stop(directory):
    pids = os.path.join(directory, "pids")
    if os.path.exists(pids):
        with open(pids, encoding="utf-8") as file:
            noted = [line.split() for line in file]
        for number in (signal.SIGTERM, signal.SIGKILL):
            running = [(int(pid), began) for pid, began in noted if start_time(pid) == began]
            for pid, _began in running:
                with contextlib.suppress(ProcessLookupError):
                    os.kill(pid, number)
            if wait_until(lambda: all(start_time(pid) != began for pid, began in noted), 5):
                break
        os.remove(pids)
    with contextlib.suppress(FileNotFoundError):
        os.remove(os.path.join(directory, "servers.txt"))


def start(directory, profile, misbehaving):
    os.makedirs(os.path.join(directory, "nginx-tmp"), exist_ok=True)
    stop(directory)
    if profile is None:
        profile = os.path.join(directory, "profile.json")
        with open(profile, "wb") as file:
            file.write(PROFILE)
    log = os.path.join(directory, "servers.log")
    command = [sys.executable, "-B", os.path.abspath(__file__), "serve", directory, "--profile", profile]
    if misbehaving:
        command.append("--misbehaving")
    with open(log, "wb") as output:
        process = subprocess.Popen(command,
                                   stdin=subprocess.DEVNULL, stdout=output, stderr=output, start_new_session=True)
    note_process(directory, process.pid)
    ready = os.path.join(directory, "servers.txt")
    wait_until(lambda: os.path.exists(ready) or process.poll() is not None, 30)
    if not os.path.exists(ready):
        stop(directory)
        sys.exit(f"The test servers did not start; see {log}")


def misbehaving_scenarios():
    """Name -> what answers a request."""
    sys.modules.setdefault("servers", sys.modules[__name__])  # which that module takes from here
    return importlib.import_module("misbehaving").SCENARIOS


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("command", choices=("start", "stop", "serve"))
    parser.add_argument("directory")
    parser.add_argument("--profile")
    parser.add_argument("--misbehaving", action="store_true")
    arguments = parser.parse_args()
    directory = os.path.abspath(arguments.directory)
    profile = os.path.abspath(arguments.profile) if arguments.profile else None
    if arguments.command == "start":
        start(directory, profile, arguments.misbehaving)
    elif arguments.command == "stop":
        stop(directory)
    else:
        asyncio.run(serve(directory, profile, misbehaving_scenarios() if arguments.misbehaving else {}))


if __name__ == "__main__":
    main()
