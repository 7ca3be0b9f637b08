"""Sets the stage for the demo, the end-to-end tests and the benchmarks: a publisher with signing
certificates and signed bundles, an account service on loopback, and a private
Wine prefix in which the service is laid out as on a real machine.

Everything lives in one work folder; nothing outside it is touched.
"""

import argparse
import hashlib
import json
import os
import pathlib
import shutil
import subprocess
import sys
import unittest

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent.parent
SERVICE = "ZarnUpdateService"
STAGED = "ZarnMediaServerUpdate.exe"
INSTALL_DIR = r"C:\Program Files\Zarn Update Service"


def run(*command, **options):
    """Runs a command; a failure shows what it said."""
    result = subprocess.run(
        [str(part) for part in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, **options
    )
    if result.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))} failed ({result.returncode}):\n{result.stdout}")
    return result.stdout


def fresh(folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    return folder


def run_tests(case):
    """The program of a test case: --build and --work become members of it, the rest is unittest's."""
    parser = argparse.ArgumentParser()
    for name in ("--build", "--work"):
        parser.add_argument(name, type=lambda path: pathlib.Path(path).resolve(), required=True)
    rest = parser.parse_known_args(namespace=case)[1]
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)


class Publisher:
    """Certificate authorities and signing certificates, made with openssl.

    Under Wine 8 a chain of SHA-256 certificates is accepted whatever is wrong
    with it, so the chains that must be refused are signed with SHA-1.
    """

    def __init__(self, folder):
        self.folder = fresh(folder)
        self.root = self._authority("root", "Zarn Test Root", "sha256")
        self.sha1_root = self._authority("sha1-root", "Zarn Test Root (SHA-1)", "sha1")
        self.unknown_root = self._authority("unknown-root", "Unknown Root (SHA-1)", "sha1")
        subject = "/C=US/ST=California/L=Los Gatos/O=Zarn, Inc./CN=Zarn, Inc."
        self.approved = self._signer("approved", subject, self.root, "sha256")
        self.other = self._signer("other", "/C=US/O=Other Publisher/CN=Other Publisher", self.root, "sha256")
        self.untrusted = self._signer("untrusted", subject, self.unknown_root, "sha1")
        self.expired = self._signer("expired", subject, self.sha1_root, "sha1", expired=True)

    def _authority(self, name, common_name, digest):
        key, pem = self.folder / f"{name}.key", self.folder / f"{name}.pem"
        run("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", pem, "-days", "3650",
            f"-{digest}", "-subj", f"/O=Zarn Test/CN={common_name}",
            "-addext", "basicConstraints=critical,CA:TRUE", "-addext", "keyUsage=critical,keyCertSign,cRLSign")
        run("openssl", "x509", "-in", pem, "-outform", "DER", "-out", pem.with_suffix(".der"))
        return pem

    def _signer(self, name, subject, authority, digest, expired=False):
        key, request, pem = (self.folder / f"{name}.{kind}" for kind in ("key", "csr", "pem"))
        extensions = self.folder / f"{name}.ext"
        extensions.write_text("basicConstraints=CA:FALSE\nkeyUsage=digitalSignature\nextendedKeyUsage=codeSigning\n")
        run("openssl", "req", "-newkey", "rsa:2048", "-nodes", "-keyout", key, "-out", request, "-subj", subject)
        dates = ("20200101000000Z", "20210101000000Z") if expired else ("20200101000000Z", "20491231000000Z")
        database = fresh(self.folder / f"{name}.ca")
        (database / "index.txt").write_text("")
        config = database / "ca.cnf"
        config.write_text(
            "[ca]\ndefault_ca=d\n[d]\n"
            f"database={database}/index.txt\nnew_certs_dir={database}\nrand_serial=yes\npolicy=p\n"
            f"default_md={digest}\nunique_subject=no\nemail_in_dn=no\n[p]\n"
            "countryName=optional\nstateOrProvinceName=optional\nlocalityName=optional\n"
            "organizationName=optional\ncommonName=supplied\n"
        )
        run("openssl", "ca", "-batch", "-config", config, "-in", request, "-out", pem, "-notext",
            "-cert", authority, "-keyfile", authority.with_suffix(".key"), "-extfile", extensions,
            "-startdate", dates[0], "-enddate", dates[1])
        return pem

    def sign(self, signer, source, target, carried=()):
        """Signs `source` into `target`; `carried` certificates travel along without signing."""
        chain = self.folder / f"chain-{target.stem}.pem"
        chain.write_text(signer.read_text() + "".join(pem.read_text() for pem in carried))
        target.unlink(missing_ok=True)
        run("osslsigncode", "sign", "-certs", chain, "-key", signer.with_suffix(".key"), "-h", "sha256",
            "-n", "Zarn Media Server Update", "-in", source, "-out", target)

    @staticmethod
    def digest(pem):
        """The digest by which the account service approves a certificate."""
        der = subprocess.run(["openssl", "x509", "-in", str(pem), "-outform", "DER"], check=True, capture_output=True)
        return hashlib.sha256(der.stdout).hexdigest()


def make_bundles(publisher, programs, folder):
    """The bundles the tests ask the service to install, by name; of the stand-in installers in `programs`."""
    fresh(folder)
    genuine, intruder = programs / "genuine_installer.exe", programs / "intruder_installer.exe"
    authority = publisher.root
    publisher.sign(publisher.approved, genuine, folder / "approved.exe", [authority])
    shutil.copy(genuine, folder / "unsigned.exe")
    shutil.copy(intruder, folder / "intruder.exe")
    publisher.sign(publisher.other, genuine, folder / "other-publisher.exe", [authority])
    publisher.sign(publisher.other, genuine, folder / "decoy.exe", [publisher.approved, authority])
    publisher.sign(publisher.untrusted, genuine, folder / "untrusted-root.exe", [publisher.unknown_root])
    publisher.sign(publisher.expired, genuine, folder / "expired.exe", [publisher.sha1_root])

    changed = bytearray((folder / "approved.exe").read_bytes())
    place = changed.index(b"runs.txt".decode().encode("utf-16-le"))
    changed[place] ^= 0x20
    (folder / "changed.exe").write_bytes(changed)

    # Properly signed, but for a processor that this system has not.
    foreign = bytearray(genuine.read_bytes())
    header = int.from_bytes(foreign[0x3C:0x40], "little")
    foreign[header + 4:header + 6] = (0x01C4).to_bytes(2, "little")
    unstartable = folder / "foreign.tmp"
    unstartable.write_bytes(foreign)
    publisher.sign(publisher.approved, unstartable, folder / "unstartable.exe", [authority])
    unstartable.unlink()

    shutil.copy(folder / "approved.exe", folder / "CAPITALS.EXE")
    shutil.copy(folder / "approved.exe", folder / "no-extension")
    return folder


class AccountService:
    """The account service, on loopback."""

    def __init__(self, folder):
        self.folder = folder
        folder.mkdir(parents=True, exist_ok=True)
        self.profile = folder / "profile.json"

    def approve(self, *digests):
        self.profile.write_text(json.dumps({"certs": list(digests)}))

    def start(self):
        self.stop()
        run("python3", HERE / "servers.py", "start", self.folder, "--profile", self.profile)
        lines = (self.folder / "servers.txt").read_text().splitlines()
        self.settings = dict(line.split("=", 1) for line in lines if "=" in line)
        return self.settings

    def stop(self):
        run("python3", HERE / "servers.py", "stop", self.folder)


class Machine:
    """A private Wine prefix in the role of the Windows machine."""

    def __init__(self, prefix):
        self.prefix = prefix
        self.environment = dict(os.environ, WINEPREFIX=str(prefix))

    def wine(self, *arguments, check=True):
        result = subprocess.run(
            [str(ROOT / "tools" / "wine"), *map(str, arguments)],
            env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
        )
        if check and result.returncode != 0:
            raise RuntimeError(f"wine {arguments} ended with {result.returncode}:\n{result.stdout}")
        return result

    def start(self, *arguments):
        """Starts a program and returns when it has written its first line."""
        process = subprocess.Popen(
            [str(ROOT / "tools" / "wine"), *map(str, arguments)],
            env=self.environment, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
        )
        process.stdout.readline()
        return process

    def path(self, windows_path):
        """Where a path of drive C lies for this system."""
        return self.prefix / "drive_c" / windows_path[3:].replace("\\", "/")

    @staticmethod
    def windows(path):
        """What the machine calls a path of this system."""
        return "Z:" + str(path).replace("/", "\\")

    def make(self, environment):
        """A new machine whose services see these environment variables."""
        self.wine("--fresh")
        key = r"HKLM\System\CurrentControlSet\Control\Session Manager\Environment"
        for name, value in environment.items():
            self.wine("reg", "add", key, "/v", name, "/t", "REG_SZ", "/d", value, "/f")
        # Services read the machine's environment once, when the first one starts.
        self.wine("--restart")
        self.path(r"C:\zarn-test").mkdir()

    def lay_out(self, dist, ca):
        """The shippable tree at its place; the CA of the test servers replaces the public ones."""
        target = self.path(INSTALL_DIR)
        shutil.rmtree(target, ignore_errors=True)
        shutil.copytree(dist, target)
        shutil.copy(ca, target / "Resources" / "cacert.pem")

    def trust(self, programs, *authorities):
        """Makes roots of these certificates."""
        self.wine(programs / "trust_root.exe", *(self.windows(one.with_suffix(".der")) for one in authorities))

    def register(self, name=SERVICE, program=f'"{INSTALL_DIR}\\ZarnUpdateService.exe"'):
        self.wine("sc", "create", name, "binPath=", program, "type=", "own", "start=", "demand")

    def stop(self):
        self.wine("--stop", check=False)


class MachineTest(unittest.TestCase):
    """Tests that share a machine; run_tests() says of what build, and in which folder."""

    build, work = None, None

    @classmethod
    def publish(cls):
        """The shippable tree, and who signs which bundles."""
        cls.dist = fresh(cls.work / "dist")
        run("cmake", "--install", cls.build, "--prefix", cls.dist, "--component", "dist", "--strip")
        cls.publisher = Publisher(cls.work / "publisher")
        cls.bundles = make_bundles(cls.publisher, cls.build / "tools" / "stage", cls.work / "bundles")

    @classmethod
    def make_machine(cls):
        """One that trusts the publisher and asks an account service that approves it; the latter's authorities."""
        accounts = AccountService(cls.work / "account-service")
        accounts.approve(cls.publisher.digest(cls.publisher.approved))
        cls.addClassCleanup(accounts.stop)
        servers = accounts.start()
        cls.machine = Machine(cls.work / "machine")
        cls.addClassCleanup(cls.machine.stop)
        cls.machine.make({"ZARN_MEDIA_SERVER_ACCOUNT_SERVICE_HOST": servers["good"]})
        cls.machine.trust(cls.build / "tools" / "stage", cls.publisher.root)
        cls.at = cls.machine.path
        return servers["ca"]
