"""Account services that misbehave, each in its own way: NAME(request, out, hosts) answers one request. servers.py
gives each one a port of its own; all but plain_http speak https, some with the wrong certificate or version."""

import asyncio
import gzip
import json
import socket
import struct

import hostile
from servers import LIFETIME_SECONDS, PROFILE, PROFILE_PATH

CHUNK = b"x" * 65536


def response(status, body=b"", *headers):
    lines = [f"HTTP/1.1 {status} x", f"Content-Length: {len(body)}", "Connection: close", *headers]
    return "\r\n".join(lines).encode() + b"\r\n\r\n" + body


def fixed(answer):
    async def reply(_request, out, _hosts):
        out.write(answer)
    return reply


SCENARIOS = {name: fixed(answer) for name, answer in {
    "status500": response(500), "empty_reply": b"", "version_1_0": b"HTTP/1.0 200 OK\r\n\r\n" + PROFILE,
    **dict.fromkeys(("other_ca", "wrong_host", "plain_http", "expired", "not_yet_valid", "self_signed",
                     "truncated_chain", "tls1_0", "tls1_1"), response(200, PROFILE)),
    "gzip": response(200, gzip.compress(PROFILE), "Content-Encoding: gzip"),
    "gzip_bomb": response(200, gzip.compress(bytes(32 << 20), 1), "Content-Encoding: gzip"),
    "announced": response(200, b"x" * 2_000_000),
}.items()}


async def send(out, data):
    """Lets the loop see that the client has gone, which a full-speed writer else never would."""
    out.write(data)
    await out.drain()
    await asyncio.sleep(0)


async def redirect_http(_request, out, hosts):
    out.write(response(302, b"", f"Location: http://{hosts['plain_http']}{PROFILE_PATH}"))


async def redirects(request, out, _hosts):
    """/N redirects N times."""
    left = int(request.path.strip("/"))
    out.write(response(302, b"", f"Location: /{left - 1}") if left else response(200, PROFILE))


async def reset(_request, out, _hosts):
    await send(out, response(200, PROFILE * 100)[:300])
    await asyncio.sleep(0.05)
    out.get_extra_info("socket").setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    out.transport.abort()


async def endless(_request, out, _hosts):
    out.write(b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n")
    while True:
        await send(out, b"10000\r\n" + CHUNK + b"\r\n")


async def endless_headers(_request, out, _hosts):
    """Interim responses without end: each one's headers stay within any limit per response."""
    while True:
        await send(out, b"HTTP/1.1 103 Early Hints\r\n" + b"X-Filler: y\r\n" * 50 + b"\r\n")


async def silent(_request, _out, _hosts):
    await asyncio.sleep(LIFETIME_SECONDS)


async def drip(_request, out, _hosts):
    out.write(b"HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n")
    while True:
        await send(out, b"x")
        await asyncio.sleep(1)


async def slow(request, out, _hosts):
    """?ms=N answers after N milliseconds."""
    await asyncio.sleep(int(request.path.partition("?ms=")[2]) / 1000)
    out.write(response(200, PROFILE))


async def echo(request, out, _hosts):
    """What was received, as JSON."""
    out.write(response(200, json.dumps(vars(request), default=bytes.decode).encode()))


async def programme(request, out, hosts):
    """/SEED is one of the seeded hostile answers."""
    await hostile.act_of(request.path)[1](out, hosts)


SCENARIOS |= {function.__name__: function for function in (
    redirect_http, redirects, reset, endless, endless_headers, silent, drip, slow, echo, programme)} | hostile.RAW
