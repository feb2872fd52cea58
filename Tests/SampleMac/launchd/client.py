"""launchctl's side of the conversation: one request and one answer, each a marshalled object.

The supervisor is started when nobody answers, and asked again when it ended between two requests.
"""

import _socket  # the socket module, like json, takes longer to load than everything else here
import fcntl
import marshal
import os
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
    request = marshal.dumps({"arguments": arguments, "folder": here})
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
    reply = marshal.loads(answer)
    sys.stdout.write(reply["output"])
    sys.stderr.write(reply["error"])
    return reply["code"]


def _ask(request: bytes) -> bytes:
    """The answer, empty when nobody is there (any more) to give one."""
    connection = _unix_socket()
    answer = b""
    try:
        connection.connect("socket")
        connection.sendall(request)
        connection.shutdown(_socket.SHUT_WR)
        while part := connection.recv(65536):
            answer += part
    except (FileNotFoundError, ConnectionError):
        return b""
    finally:
        connection.close()
    return answer


def _unix_socket() -> _socket.socket:
    return _socket.socket(_socket.AF_UNIX, _socket.SOCK_STREAM)


def _start(sample: str) -> None:
    import subprocess  # only the first call of all pays for it

    with open("start.lock", "a", encoding="utf-8") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        probe = _unix_socket()
        answered = probe.connect_ex("socket") == 0
        probe.close()
        if answered:
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
