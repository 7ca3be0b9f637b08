"""GET requests to nginx on loopback, beside libcurl's reused easy handle."""

import os
import subprocess

import group
import servers
from group import Growth, Table, Target

TITLE = "HTTP"
BODY_BYTES = 2048
CELLS = {  # name: (scheme, callers, requests of each)
    "https 1": ("https", 1, 4000),
    "http 1": ("http", 1, 4000),
    "http 8": ("http", 8, 2000),
    "https 8": ("https", 8, 2000),
}
CANDIDATES = ("zarn", "easy", "relayed")
TARGETS = (
    # Three threads hand a request on; with a handle of its own the caller does all itself.
    Target("GET over kept-alive https, p50, one caller", ("zarn https 1", "p50_us"), [("easy https 1", "p50_us")],
           at_most=1, price=(1.85, 3, "hand-off", "p50_us"), peer="1.85 x a reused easy handle + 3 hand-offs"),
    Target("connects in that run", ("zarn https 1", "connects"), at_most=1),
    Target("requests/s, 8 callers, http", ("zarn http 8", "requests_per_s"), [("easy http 8", "requests_per_s")],
           at_least=0.5, peer="8 reused easy handles"),
)
TABLES = (
    Table("GET of 2 KiB from nginx on loopback", CANDIDATES, (
        ("http, p50, 1 caller", "{} http 1", "p50_us"),
        ("https, p50, 1 caller", "{} https 1", "p50_us"),
        ("p99", "{} https 1", "p99_us"),
        ("connects", "{} https 1", "connects"),
        ("http, 8 callers", "{} http 8", "requests_per_s"),
        ("https, 8 callers", "{} https 8", "requests_per_s"),
    )),
)
GROWTH = (
    Growth("http-callers", "Requests over kept-alive http, by callers", "callers", "requests/s",
           {"zarn": "this service", "easy": "easy handles"}, "{who} callers {x}", "requests_per_s",
           (1, 2, 4, 8, 16, 32, 64)),
)

CONFIGURATION = """
daemon off;
{user}
worker_processes 1;
pid "{folder}/nginx.pid";
events {{ worker_connections 512; }}
http {{
  access_log off;
  keepalive_requests 100000000;
  client_body_temp_path "{folder}/tmp"; proxy_temp_path "{folder}/tmp"; fastcgi_temp_path "{folder}/tmp";
  uwsgi_temp_path "{folder}/tmp"; scgi_temp_path "{folder}/tmp";
  ssl_certificate "{folder}/bench.pem";
  ssl_certificate_key "{folder}/bench.key";
  server {{
    listen 127.0.0.1:{http};
    listen 127.0.0.1:{https} ssl;
    location = /body {{ alias "{folder}/body"; add_header X-Connection $connection; }}
  }}
}}
"""


class Server:
    """nginx, which takes over listening sockets made here, so that no port can be lost."""

    def __init__(self, folder):
        (folder / "tmp").mkdir(parents=True, exist_ok=True)
        (folder / "body").write_bytes(b"b" * BODY_BYTES)
        servers.make_ca(str(folder), "ca")
        servers.make_certificate(str(folder), "bench", "ca", "IP:127.0.0.1")
        self.ca = folder / "ca.pem"
        sockets = {scheme: servers.listen() for scheme in ("http", "https")}
        ports = {scheme: listener.getsockname()[1] for scheme, listener in sockets.items()}
        self.urls = {scheme: f"{scheme}://127.0.0.1:{port}/body" for scheme, port in ports.items()}
        configuration = folder / "nginx.conf"
        configuration.write_text(CONFIGURATION.format(folder=folder, user="user root;" if os.geteuid() == 0 else "",
                                                      **ports))
        descriptors = [listener.fileno() for listener in sockets.values()]
        environment = dict(os.environ, NGINX="".join(f"{number};" for number in descriptors))
        environment["PATH"] += ":/usr/sbin"
        self.process = subprocess.Popen(["nginx", "-e", folder / "error.log", "-p", folder, "-c", configuration],
                                        env=environment, pass_fds=descriptors)

    def stop(self):
        self.process.terminate()
        self.process.wait()


class Bench(group.Bench):
    def __init__(self, options, stage):
        super().__init__(options, stage)
        self.server = Server(options.work / "nginx")
        stage.callback(self.server.stop)

    def _cell(self, who, name, scheme, callers, requests):
        return self.native.cell(name, "http_bench", candidate=who, url=self.server.urls[scheme], ca=self.server.ca,
                                callers=callers, requests=max(1, requests // (20 if self.quick else 1)),
                                bytes=BODY_BYTES)

    def cells(self):
        hand_off = self.native.cell("hand-off", "micro_bench", candidate="hand-off-asio",
                                    repeat=100 if self.quick else 1000)
        return [hand_off, *(self._cell(who, f"{who} {name}", *cell)
                            for name, cell in CELLS.items() for who in CANDIDATES)]

    def growth_cells(self):
        return [self._cell(who, name, "http", x, 16_000 // x) for who, x, name in GROWTH[0].cells()]
