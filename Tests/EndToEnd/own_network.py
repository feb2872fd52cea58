"""A network namespace for this thread and what it starts. Needs root."""

from __future__ import annotations

import contextlib
import ctypes
import os
import subprocess
from typing import Iterator

_CLONE_NEWNET = 0x40000000
_libc = ctypes.CDLL(None, use_errno=True)


def _check(result: int) -> None:
    if result != 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))


def ip(*arguments: str) -> None:
    subprocess.run(["ip", *arguments], check=True)


@contextlib.contextmanager
def own_network() -> Iterator[None]:
    """Moves this thread, and what it starts, into a network that has nothing but a loopback."""
    before = os.open("/proc/thread-self/ns/net", os.O_RDONLY | os.O_CLOEXEC)
    _check(_libc.unshare(_CLONE_NEWNET))
    try:
        ip("link", "set", "lo", "up")
        yield
    finally:
        _check(_libc.setns(before, _CLONE_NEWNET))
        os.close(before)
