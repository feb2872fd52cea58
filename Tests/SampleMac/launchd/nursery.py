"""Forks supervisors: loading what they need takes ten times as long as all else at their start.

Standard input: for each supervisor a line with the sample Mac's folder and whether to enter it, as a
JSON array. Standard output: an empty line when that supervisor listens, or has failed to.
"""

from __future__ import annotations

import json
import os
import signal
import sys
import traceback

from . import supervisor

sys.path.append(os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "lib"))

import enter  # noqa: E402  (the path above comes first)


def main() -> None:
    signal.signal(signal.SIGCHLD, signal.SIG_IGN)  # nobody waits for a supervisor's end
    for line in sys.stdin:
        _bear(*json.loads(line))
        print(flush=True)


def _bear(mac: str, entered: bool) -> None:
    listening, ready = os.pipe()
    if os.fork() == 0:
        os.close(listening)
        _become_supervisor(mac, entered, ready)
    os.close(ready)
    os.read(listening, 1)
    os.close(listening)


def _become_supervisor(mac: str, entered: bool, ready: int) -> None:
    """Never returns: what follows a fork in main() is the parent's."""
    code = 1
    try:
        os.setsid()
        signal.signal(signal.SIGCHLD, signal.SIG_DFL)
        _speak_into_the_log(f"{mac}/.sample/launchd/supervisor.log")
        if entered:
            enter.step_inside(os.path.realpath(mac), [])
        supervisor.main("/.sample" if entered else f"{mac}/.sample", ready)
        code = 0
    except BaseException:  # pylint: disable=broad-except
        traceback.print_exc()
    finally:
        sys.stderr.flush()
        os._exit(code)


def _speak_into_the_log(path: str) -> None:
    log = os.open(path, os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o644)
    nothing = os.open(os.devnull, os.O_RDONLY)
    for own, given in ((0, nothing), (1, log), (2, log)):
        os.dup2(given, own)
    os.close(log)
    os.close(nothing)


if __name__ == "__main__":
    main()
