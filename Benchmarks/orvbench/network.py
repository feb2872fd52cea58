"""A few hosts in a network namespace of their own, next to ours. Needs root."""

from __future__ import annotations

import contextlib
import subprocess
from typing import Iterator

from own_network import ip

PREFIX = "10.77.0"
NETWORK = f"{PREFIX}.0/24"
OWN_ADDRESS = f"{PREFIX}.1/24"
HOSTS = 5


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
        ip("link", "add", "en5", "type", "veth", "peer", "name", "hosts", "netns", pid)
        ip("address", "add", OWN_ADDRESS, "dev", "en5")
        there = ["nsenter", "--net", "--target", pid, "ip"]
        for number in range(HOSTS):
            address = f"{PREFIX}.{10 + 40 * number}/24"
            subprocess.run([*there, "address", "add", address, "dev", "hosts"], check=True)
        subprocess.run([*there, "link", "set", "hosts", "up"], check=True)
        ip("link", "set", "en5", "up")
        yield
    finally:
        keeper.kill()
        keeper.wait()
        keeper.stdout.close()
