"""Signs one program in every way that the trust checks must tell apart.

usage: make_signed_files.py PROGRAM FOLDER
Leaves in FOLDER the signed files, the roots (*-root.der) that the test may trust,
and digests.txt with "name=digest" lines of the signing certificates.
"""

import pathlib
import shutil
import struct
import sys

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "stage"))
import stage  # noqa: E402


def security_directory(program):
    """Where the offset and the size of the certificate table stand."""
    header = struct.unpack_from("<I", program, 0x3C)[0]
    return header + 24 + 112 + 4 * 8  # the fifth directory of a 64-bit image


def certificate_entry(program):
    """Where the file's first certificate table entry begins."""
    return struct.unpack_from("<I", program, security_directory(program))[0]


def damaged(source, target, damage):
    program = bytearray(source.read_bytes())
    damage(program)
    target.write_bytes(program)


def change_text(program):
    program[program.index(b"A program to sign")] ^= 0x20


def claim_huge_length(program):
    struct.pack_into("<I", program, security_directory(program) + 4, 0x04000000)
    struct.pack_into("<I", program, certificate_entry(program), 0x04000000)


def spoil_signature(program):
    start = certificate_entry(program) + 8
    program[start : start + 64] = bytes(64)


def main():
    program, folder = map(pathlib.Path, sys.argv[1:])
    stage.fresh(folder)
    publisher = stage.Publisher(folder / "publisher")
    subject = "/C=US/ST=Ohio/L=Dayton/O=Zarn, Inc./CN=Zarn Media"
    approved = publisher._signer("approved-sha1", subject, publisher.sha1_root, "sha1")
    for root in (publisher.root, publisher.sha1_root):
        shutil.copy(root.with_suffix(".der"), folder)

    shutil.copy(program, folder / "unsigned.exe")
    publisher.sign(approved, program, folder / "approved-sha1.exe", [publisher.sha1_root])
    publisher.sign(publisher.approved, program, folder / "approved.exe", [publisher.root])
    publisher.sign(publisher.other, program, folder / "decoy.exe", [approved, publisher.approved, publisher.root])
    publisher.sign(publisher.untrusted, program, folder / "untrusted-root.exe", [publisher.unknown_root])
    publisher.sign(publisher.expired, program, folder / "expired.exe", [publisher.sha1_root])
    for name, damage in (("changed", change_text), ("huge-length", claim_huge_length), ("spoiled", spoil_signature)):
        damaged(folder / "approved-sha1.exe", folder / f"{name}.exe", damage)

    signers = {"approved": publisher.approved, "approved-sha1": approved, "other": publisher.other}
    lines = (f"{name}={publisher.digest(pem)}\n" for name, pem in signers.items())
    (folder / "digests.txt").write_text("".join(lines))


main()
