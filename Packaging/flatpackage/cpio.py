"""The payload and the scripts of a package: cpio's portable ASCII form ("odc"), compressed."""

from __future__ import annotations

import subprocess
from typing import Iterable

from .tree import Entry

_MAGIC = b"070707"
_LIMIT = 8 ** 11  # of a size, in eleven octal digits


def archive(entries: Iterable[Entry], time: int) -> bytes:
    parts = []
    for number, entry in enumerate(entries, 1):
        fields = (0, number, entry.mode, 0, entry.group, 2 if entry.is_folder else 1, 0)
        parts.append(_member(entry.path, fields, time, entry.content))
    parts.append(_member("TRAILER!!!", (0, 0, 0, 0, 0, 1, 0), 0, b""))
    return _compressed(b"".join(parts))


def _compressed(content: bytes) -> bytes:
    """As gzip, smaller by some percent; without a name or time of its own."""
    return subprocess.run(["libdeflate-gzip", "-12", "-c"], input=content, stdout=subprocess.PIPE,
                          check=True).stdout


def _member(path: str, fields: tuple[int, ...], time: int, content: bytes) -> bytes:
    """Fields: device, number, mode, user, group, links, kind of device."""
    if len(content) >= _LIMIT:
        raise ValueError(f"{path} is too large for the archive")
    name = path.encode() + b"\0"
    header = _MAGIC + b"".join(b"%06o" % field for field in fields)
    return header + b"%011o%06o%011o" % (time, len(name), len(content)) + name + content
