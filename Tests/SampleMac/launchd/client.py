"""launchctl's side of the conversation: one request and one answer, each a line of JSON.

The supervisor is started when nobody answers, and asked again when it ended between two requests.
"""

import fcntl
import json
import os
import socket
import sys

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
    request = json.dumps({"arguments": arguments, "folder": here}) + "\n"
    # A socket's path must be short, so it is reached from its own folder.
    os.chdir(folder)
    for _ in range(_ATTEMPTS):
        answer = _ask(request)
        if answer:
            break
        _start(sample)
    else:
        print("launchctl: the supervisor does not answer", file=sys.stderr)
        return 1
    reply = json.loads(answer)
    sys.stdout.write(reply["output"])
    sys.stderr.write(reply["error"])
    return reply["code"]


def _ask(request: str) -> str:
    """The answer, empty when nobody is there (any more) to give one."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as connection:
        try:
            connection.connect("socket")
            connection.sendall(request.encode())
            return connection.makefile(encoding="utf-8").readline()
        except (FileNotFoundError, ConnectionError):
            return ""


def _start(sample: str) -> None:
    import subprocess  # only the first call of all pays for it

    with open("start.lock", "a", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as probe:
            if probe.connect_ex("socket") == 0:
                return
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
