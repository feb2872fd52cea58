"""launchctl's side of the conversation, where the tool's own script got no answer.

The supervisor is started when nobody answers, and asked again when it ended between two requests.
"""

from __future__ import annotations

import _socket  # the socket module takes longer to load than everything else here
import fcntl
import os
import sys

from . import conversation

_ATTEMPTS = 20


def main(sample: str, arguments: list[str]) -> int:
    if not arguments:
        print("Usage: launchctl <subcommand> ... | help [subcommand]", file=sys.stderr)
        return 64
    if arguments[0] == "asuser" and len(arguments) > 2:
        os.execvp(arguments[2], arguments[2:])
    folder = os.path.join(sample, "launchd")
    here = os.getcwd()
    if arguments[0] == "teardown" and not os.path.exists(os.path.join(folder, "socket")):
        return 0
    # A socket's path must be short, so it is reached from its own folder.
    os.chdir(folder)
    for _ in range(_ATTEMPTS):
        reply = ask("socket", conversation.request(here, arguments))
        if reply:
            break
        _start(sample)
    else:
        print("launchctl: the supervisor does not answer", file=sys.stderr)
        return 1
    code, output, error = reply
    sys.stdout.write(output)
    sys.stderr.write(error)
    return code


def ask(place: str, request: bytes) -> conversation.Reply | None:
    """None when nobody is there (any more) to answer."""
    connection = _unix_socket()
    answer = b""
    try:
        connection.connect(place)
        connection.sendall(request)
        while part := connection.recv(65536):
            answer += part
    except (FileNotFoundError, ConnectionError):
        return None
    finally:
        connection.close()
    return conversation.read_answer(answer) if answer else None


def _unix_socket() -> _socket.socket:
    return _socket.socket(_socket.AF_UNIX, _socket.SOCK_STREAM)


def _start(sample: str) -> None:
    import subprocess  # only the first call of all pays for it

    def launch() -> None:
        listening, ready = os.pipe()
        with open("supervisor.log", "ab") as log:
            # Its own session: it must outlive whoever needed it first.
            subprocess.Popen(
                [sys.executable, "-ES", os.path.join(sample, "lib/supervisor.py"), sample,
                 str(ready)],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log, pass_fds=[ready],
                start_new_session=True, cwd="/")
        os.close(ready)
        os.read(listening, 1)
        os.close(listening)

    unless_one_answers(".", launch)


def unless_one_answers(folder: str, launch) -> None:
    """Calls `launch` to start a supervisor: once, however many ask for it at the same moment.
    `folder` is launchd's, by a name short enough for a socket's path."""
    with open(f"{folder}/start.lock", "a", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        probe = _unix_socket()
        answered = probe.connect_ex(f"{folder}/socket") == 0
        probe.close()
        if not answered:
            launch()
