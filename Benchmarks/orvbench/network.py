"""A network of our own: this process in one namespace, a few hosts in another. Needs root."""

from __future__ import annotations

import contextlib
import ctypes
import os
import subprocess
from typing import Iterator

PREFIX = "10.77.0"
NETWORK = f"{PREFIX}.0/24"
OWN_ADDRESS = f"{PREFIX}.1/24"
HOSTS = 5
_CLONE_NEWNET = 0x40000000
_libc = ctypes.CDLL(None, use_errno=True)


def _check(result: int) -> None:
    if result != 0:
        raise OSError(ctypes.get_errno(), os.strerror(ctypes.get_errno()))


@contextlib.contextmanager
def own_network() -> Iterator[None]:
    """Moves this thread, and what it starts, into a network that has nothing but a loopback."""
    before = os.open("/proc/thread-self/ns/net", os.O_RDONLY | os.O_CLOEXEC)
    _check(_libc.unshare(_CLONE_NEWNET))
    try:
        _ip("link", "set", "lo", "up")
        yield
    finally:
        _check(_libc.setns(before, _CLONE_NEWNET))
        os.close(before)


@contextlib.contextmanager
def neighbours() -> Iterator[None]:
    """Joins this network to one where a few hosts answer; the other addresses stay silent."""
    # Its namespace is made before it prints, and goes with it.
    keeper = subprocess.Popen(["unshare", "--net", "sh", "-c", "echo; exec sleep 86400"],
                              stdout=subprocess.PIPE)
    assert keeper.stdout is not None
    try:
        keeper.stdout.readline()
        pid = str(keeper.pid)
        _ip("link", "add", "en5", "type", "veth", "peer", "name", "hosts", "netns", pid)
        _ip("address", "add", OWN_ADDRESS, "dev", "en5")
        there = ["nsenter", "--net", "--target", pid, "ip"]
        for number in range(HOSTS):
            address = f"{PREFIX}.{10 + 40 * number}/24"
            subprocess.run([*there, "address", "add", address, "dev", "hosts"], check=True)
        subprocess.run([*there, "link", "set", "hosts", "up"], check=True)
        _ip("link", "set", "en5", "up")
        yield
    finally:
        keeper.kill()
        keeper.wait()
        keeper.stdout.close()


def _ip(*arguments: str) -> None:
    subprocess.run(["ip", *arguments], check=True)
