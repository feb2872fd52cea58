"""Volumes that treat names as a Mac's do (lib/volume.py), for tests that need one."""

from __future__ import annotations

import contextlib
import importlib.util
import os
import pathlib
import subprocess
import sys
import time
from typing import Iterator, Optional

_PROGRAM = pathlib.Path(__file__).resolve().parent.parent / "lib/volume.py"


def why_impossible() -> Optional[str]:
    """What this machine or this user lacks for volumes; None when nothing."""
    if sys.platform != "linux" or os.geteuid() != 0:
        return "mounting needs root on Linux"
    if not os.access("/dev/fuse", os.R_OK | os.W_OK):
        return "volumes need /dev/fuse"
    if importlib.util.find_spec("fusepy") is None:
        return "volumes need python3-fusepy"
    return None


@contextlib.contextmanager
def mounted(kind: str, backing: pathlib.Path, place: pathlib.Path) -> Iterator[None]:
    """A volume of the kind "apfs" or "hfs+" at the folder `place`; its content lies in `backing`."""
    server = subprocess.Popen([sys.executable, _PROGRAM, kind, backing, place],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    try:
        end = time.monotonic() + 10
        while not os.path.ismount(place):
            assert server.poll() is None and server.stdout, server.stdout.read().decode()
            assert time.monotonic() < end, "not mounted"
            time.sleep(0.01)
        yield
    finally:
        subprocess.run(["umount", "--lazy", place], check=False, stderr=subprocess.DEVNULL)
        server.terminate()
        server.wait(10)
