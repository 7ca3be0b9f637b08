"""Account services that misbehave, each in its own way: NAME(request, out, hosts)
answers one request. servers.py gives each one a port of its own; all speak https
but plain_http, and other_ca and wrong_host have certificates that must not do.
"""

import asyncio
import gzip
import json
import socket
import struct
import urllib.parse

from servers import LIFETIME_SECONDS, PROFILE, PROFILE_PATH

CHUNK = b"x" * 65536


def response(status, body=b"", *headers):
    lines = [f"HTTP/1.1 {status} x", f"Content-Length: {len(body)}", "Connection: close", *headers]
    return "\r\n".join(lines).encode() + b"\r\n\r\n" + body


SCENARIOS = {}


def scenario(function):
    SCENARIOS[function.__name__] = function
    return function


def fixed(name, answer):
    async def reply(_request, out, _hosts):
        out.write(answer)
    SCENARIOS[name] = reply


for code in (500, 404, 304, 204):
    fixed(f"status{code}", response(code))
for name in ("other_ca", "wrong_host", "plain_http"):
    fixed(name, response(200, PROFILE))
fixed("garbage", response(200, b"\x00\xff<html>this is no JSON"))
fixed("no_certs", response(200, b"{}"))
fixed("upper_case", response(200, PROFILE.upper().replace(b"CERTS", b"certs")))
fixed("certs_object", response(200, json.dumps({"certs": {"a": "0123456789abcdef" * 4}}).encode()))
fixed("brackets", response(200, b'{"certs":' + b"[" * 200_000 + b"]" * 200_000 + b"}"))
fixed("redirect_loop", response(302, b"", f"Location: {PROFILE_PATH}"))
fixed("gzip", response(200, gzip.compress(PROFILE), "Content-Encoding: gzip"))
fixed("gzip_bomb", response(200, gzip.compress(bytes(32 << 20), 1), "Content-Encoding: gzip"))
fixed("announced", response(200, b"x" * 2_000_000))
fixed("version_1_0", b"HTTP/1.0 200 OK\r\n\r\n" + PROFILE)
fixed("empty_reply", b"")


async def send(out, data):
    """Lets the loop see that the client has gone, which a full-speed writer else never would."""
    out.write(data)
    await out.drain()
    await asyncio.sleep(0)


@scenario
async def redirect(_request, out, hosts):
    out.write(response(302, b"", f"Location: https://{hosts['good']}{PROFILE_PATH}"))


@scenario
async def redirect_http(_request, out, hosts):
    out.write(response(302, b"", f"Location: http://{hosts['plain_http']}{PROFILE_PATH}"))


@scenario
async def redirects(request, out, _hosts):
    """/N redirects N times."""
    left = int(request.path.strip("/"))
    out.write(response(302, b"", f"Location: /{left - 1}") if left else response(200, PROFILE))


@scenario
async def reset(_request, out, _hosts):
    await send(out, response(200, PROFILE * 100)[:300])
    await asyncio.sleep(0.05)
    out.get_extra_info("socket").setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    out.transport.abort()


@scenario
async def endless(_request, out, _hosts):
    out.write(b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n")
    while True:
        await send(out, b"10000\r\n" + CHUNK + b"\r\n")


@scenario
async def endless_headers(_request, out, _hosts):
    """Interim responses without end: each one's headers stay within any limit per response."""
    while True:
        await send(out, b"HTTP/1.1 103 Early Hints\r\n" + b"X-Filler: y\r\n" * 50 + b"\r\n")


@scenario
async def silent(_request, _out, _hosts):
    await asyncio.sleep(LIFETIME_SECONDS)


@scenario
async def drip(_request, out, _hosts):
    out.write(b"HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n")
    while True:
        await send(out, b"x")
        await asyncio.sleep(1)


@scenario
async def slow(request, out, _hosts):
    """?ms=N answers after N milliseconds."""
    query = urllib.parse.parse_qs(urllib.parse.urlsplit(request.path).query)
    await asyncio.sleep(int(query.get("ms", ["300"])[0]) / 1000)
    out.write(response(200, PROFILE))


@scenario
async def echo(request, out, _hosts):
    """What was received, as JSON."""
    answer = {"method": request.method, "path": request.path, "headers": request.headers, "body": request.body.decode()}
    out.write(response(200, json.dumps(answer).encode()))
