"""A folder's content in the order in which archives name it."""

from __future__ import annotations

import dataclasses
import os
import stat
from pathlib import Path
from typing import Iterator


# Of a Mac's own folders that the payload passes through: installing must not take them from the
# administrators. Everything else belongs to root and wheel.
_ADMINISTRATORS = 80
_OF_ADMINISTRATORS = ("./Applications", "./Library/Application Support")


@dataclasses.dataclass(frozen=True)
class Entry:
    """One file, folder or link; the topmost folder itself is "."."""
    path: str
    mode: int
    content: bytes  # a link's target

    @property
    def group(self) -> int:
        return _ADMINISTRATORS if self.path in _OF_ADMINISTRATORS else 0

    @property
    def is_folder(self) -> bool:
        return stat.S_ISDIR(self.mode)

    @property
    def is_link(self) -> bool:
        return stat.S_ISLNK(self.mode)


def entries(folder: Path) -> Iterator[Entry]:
    """Every folder before what is in it, names in the order of their bytes."""
    return _below(folder, ".")


def _below(place: Path, path: str) -> Iterator[Entry]:
    mode = place.lstat().st_mode
    if stat.S_ISLNK(mode):
        yield Entry(path, stat.S_IFLNK | 0o755, os.readlink(place).encode())
    elif stat.S_ISDIR(mode):
        yield Entry(path, mode, b"")
        for name in sorted(os.listdir(place), key=os.fsencode):
            yield from _below(place / name, f"{path}/{name}")
    elif stat.S_ISREG(mode):
        yield Entry(path, mode, place.read_bytes())
    else:
        raise ValueError(f"{place} is neither file, folder nor link")
