"""A small file system in memory under folders of a machine, seen by this process and its children alone, and gone
with them."""

import ctypes
import os
import subprocess
import sys
import pathlib

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[1]))
import stage  # noqa: E402

BLOCK, BLOCKS = 4096, 2048


def may_mount():
    """To be asked before anything is started that is to see what is mounted."""
    new_namespace = 0x00020000
    private = ctypes.CDLL(None).unshare(new_namespace) == 0
    return private and subprocess.run(["mount", "--make-rprivate", "/"], capture_output=True).returncode == 0


class SmallDisk:
    def __init__(self, place, folders):
        """The folders are moved there and stay where they were by name."""
        self.filler, self.place = place / "filler", place
        stage.run("mount", "-t", "tmpfs", "-o", f"size={BLOCK * BLOCKS}", "none", stage.fresh(place))
        for number, folder in enumerate(folders):
            stage.run("cp", "-a", folder, place / str(number))
            stage.run("mount", "--bind", place / str(number), folder)

    def fill(self, blocks):
        """Leaves room for so many blocks and no more."""
        free = os.statvfs(self.place).f_bfree
        with open(self.filler, "wb") as filler:
            if free > blocks:
                os.posix_fallocate(filler.fileno(), 0, (free - blocks) * BLOCK)

    def free(self):
        self.filler.unlink()
