"""The log for people: one line for each thing that happened."""

from __future__ import annotations

from pathlib import Path
from typing import TextIO

from .clock import timestamp


class EventLog:
    """Writes lines such as "2026-11-15T21:22:14Z heartbeat hostname=mac-1 uid=mac-...".

    Tokens and passwords never come here.
    """

    def __init__(self, stream: TextIO) -> None:
        self._stream = stream

    @classmethod
    def to_file(cls, path: Path) -> "EventLog":
        return cls(path.open("a", encoding="utf-8", buffering=1))

    def write(self, event: str, **facts: object) -> None:
        details = "".join(f" {key}={_one_line(value)}" for key, value in facts.items())
        self._stream.write(f"{timestamp()} {event}{details}\n")
        self._stream.flush()


def _one_line(value: object) -> str:
    text = "-" if value is None else str(value)
    return text.encode("unicode_escape").decode("ascii") if not text.isprintable() else text
