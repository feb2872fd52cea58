"""launchd as tests reach it: from outside of the sample Mac and without a process for each request."""

from __future__ import annotations

import atexit
import contextlib
import functools
import json
import os
import subprocess
import sys
from typing import Iterator

from . import client, conversation

_SAMPLE_MAC = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def ask_running(sample: str, arguments: list[str]) -> conversation.Reply | None:
    """Asks a supervisor that is at work already; None when there is none. Paths among the arguments
    are absolute."""
    try:
        with _short_name(os.path.join(sample, "launchd")) as folder:
            return client.ask(f"{folder}/socket", conversation.request("/", arguments))
    except FileNotFoundError:
        return None


def start(mac: str, entered: bool) -> None:
    """Starts a supervisor unless one is at work. Does nothing where it cannot (another system than
    Linux, no right to enter): launchctl then starts its own, or says why not."""
    if sys.platform != "linux":
        return
    with _short_name(os.path.join(mac, ".sample/launchd")) as folder:
        client.unless_one_answers(folder, lambda: _have_one_born(mac, entered))


def _have_one_born(mac: str, entered: bool) -> None:
    nursery = _nursery()
    nursery.stdin.write(json.dumps([mac, entered]) + "\n")
    nursery.stdin.flush()
    nursery.stdout.readline()


@functools.cache
def _nursery() -> subprocess.Popen:
    # Its own session: the terminal's Ctrl-C is not for it. It ends with its standard input.
    nursery = subprocess.Popen(
        [sys.executable, "-ES", "-m", "launchd.nursery"], cwd=_SAMPLE_MAC, text=True,
        stdin=subprocess.PIPE, stdout=subprocess.PIPE, start_new_session=True)
    atexit.register(nursery.communicate)
    return nursery


@contextlib.contextmanager
def _short_name(folder: str) -> Iterator[str]:
    """A name of the folder that fits into a socket's path, on Linux."""
    descriptor = os.open(folder, os.O_RDONLY | os.O_DIRECTORY)
    try:
        yield f"/proc/self/fd/{descriptor}"
    finally:
        os.close(descriptor)
