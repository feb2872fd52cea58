"""What launchctl and the supervisor say to each other over the socket: one request, one answer.

    request: the working folder and every argument, each ended by a unit separator; a record separator
    answer:  exit code, standard error and standard output, each ended by a unit separator

Plain text, because the tool itself is a shell script: a whole interpreter for each call was a sixth of
what the tests of updates cost.
"""

from __future__ import annotations

Reply = tuple[int, str, str]  # exit code, standard output, standard error

END_OF_REQUEST = b"\x1e"
_SEPARATOR = "\x1f"


def request(folder: str, arguments: list[str]) -> bytes:
    return _fields(folder, *arguments) + END_OF_REQUEST


def read_request(data: bytes) -> tuple[str, list[str]]:
    """The working folder and the arguments."""
    folder, *arguments = _split(data.removesuffix(END_OF_REQUEST))
    return folder, arguments


def answer(reply: Reply) -> bytes:
    code, output, error = reply
    return _fields(str(code), error, output)


def read_answer(data: bytes) -> Reply:
    code, error, output = _split(data)
    return int(code), output, error


def _fields(*texts: str) -> bytes:
    return "".join(text + _SEPARATOR for text in texts).encode(errors="surrogateescape")


def _split(data: bytes) -> list[str]:
    return data.decode(errors="surrogateescape").split(_SEPARATOR)[:-1]
