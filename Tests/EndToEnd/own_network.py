"""A network of our own: this process in one namespace, a few hosts in another. Needs root."""

from __future__ import annotations

import contextlib
import ctypes
import json
import os
import shutil
import subprocess
import sys
from typing import Iterator, Optional

PREFIX = "10.77.0"
NETWORK = f"{PREFIX}.0/24"
OWN_ADDRESS = f"{PREFIX}.1/24"
HOSTS = [f"{PREFIX}.{10 + 40 * number}" for number in range(5)]
_CLONE_NEWNET = 0x40000000
_libc = ctypes.CDLL(None, use_errno=True)


def why_impossible() -> Optional[str]:
    """What this machine or this user lacks for networks of our own; None when nothing."""
    if sys.platform != "linux" or os.geteuid() != 0:
        return "networks of our own need root on Linux"
    if missing := [tool for tool in ("ip", "unshare", "nsenter", "ping") if not shutil.which(tool)]:
        return f"networks of our own need {', '.join(missing)}"
    tried = subprocess.run(["unshare", "--net", "ip", "link", "set", "lo", "up"], check=False,
                           capture_output=True, text=True)
    return f"networks of our own are forbidden here: {tried.stderr}" if tried.returncode else None


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
def neighbours() -> Iterator[str]:
    """Joins this network to one where HOSTS answer, all with one hardware address, which is given;
    the other addresses stay silent."""
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
        for host in HOSTS:
            subprocess.run([*there, "address", "add", f"{host}/24", "dev", "hosts"], check=True)
        subprocess.run([*there, "link", "set", "hosts", "up"], check=True)
        _ip("link", "set", "en5", "up")
        shown = subprocess.run([*there, "-json", "link", "show", "hosts"], check=True,
                               capture_output=True).stdout
        yield json.loads(shown)[0]["address"]
    finally:
        keeper.kill()
        keeper.wait()
        keeper.stdout.close()


@contextlib.contextmanager
def lonely_interface(name: str, address: str, is_up: bool = True) -> Iterator[None]:
    """One more, on which nobody answers but ourselves."""
    far_end = f"{name}-far"
    _ip("link", "add", name, "type", "veth", "peer", "name", far_end)
    _ip("address", "add", address, "dev", name)
    if is_up:
        for end in (far_end, name):
            _ip("link", "set", end, "up")
    try:
        yield
    finally:
        _ip("link", "delete", name)


def _ip(*arguments: str) -> None:
    subprocess.run(["ip", *arguments], check=True)
