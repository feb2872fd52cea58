"""volume.py KIND BACKING PLACE: a Mac's volume, mounted at PLACE until it is unmounted. Names that
differ in case or in Unicode's normal form only are one name, as on every Mac. An "apfs" volume keeps the form
in which a name was written, "hfs+" keeps it decomposed. What is on it lies in the folder BACKING."""

from __future__ import annotations

import os
import sys
import unicodedata
from typing import Iterator

import fusepy


def _same(name: str) -> str:
    return unicodedata.normalize("NFD", unicodedata.normalize("NFD", name).casefold())


class _Volume(fusepy.Operations):
    """Paths of the volume, which begin with "/"; handles are the backing files' descriptors."""

    def __init__(self, backing: str, form: str | None) -> None:
        self.backing = backing
        self.form = form

    def place(self, path: str) -> str:
        """Where it lies: by the name that is there already, in whatever spelling."""
        place = self.backing
        for name in path.strip("/").split("/"):
            if name:
                found = next((one for one in os.listdir(place) if _same(one) == _same(name)), None)
                place = os.path.join(place, found or self.written(name))
        return place

    def written(self, name: str) -> str:
        return unicodedata.normalize(self.form, name) if self.form else name

    def getattr(self, path: str, fh: int | None = None) -> dict:
        status = os.lstat(self.place(path))
        return {key: getattr(status, key) for key in (
            "st_mode", "st_nlink", "st_uid", "st_gid", "st_size", "st_atime", "st_mtime", "st_ctime")}

    def readdir(self, path: str, fh: int) -> Iterator[str]:
        yield from (".", "..", *os.listdir(self.place(path)))

    def create(self, path: str, mode: int, fi: object = None) -> int:
        return os.open(self.place(path), os.O_RDWR | os.O_CREAT | os.O_EXCL, mode)

    def open(self, path: str, flags: int) -> int:
        return os.open(self.place(path), flags & ~(os.O_CREAT | os.O_EXCL | os.O_NOFOLLOW))

    def read(self, path: str, size: int, offset: int, fh: int) -> bytes:
        return os.pread(fh, size, offset)

    def write(self, path: str, data: bytes, offset: int, fh: int) -> int:
        return os.pwrite(fh, data, offset)

    def fsync(self, path: str, datasync: int, fh: int) -> None:
        os.fsync(fh)

    def release(self, path: str, fh: int) -> None:
        os.close(fh)

    def truncate(self, path: str, length: int, fh: int | None = None) -> None:
        os.truncate(self.place(path), length)

    def chmod(self, path: str, mode: int) -> None:
        os.chmod(self.place(path), mode)

    def chown(self, path: str, uid: int, gid: int) -> None:
        os.chown(self.place(path), uid, gid)

    def utimens(self, path: str, times: tuple[float, float] | None = None) -> None:
        os.utime(self.place(path), times)

    def mkdir(self, path: str, mode: int) -> None:
        os.mkdir(self.place(path), mode)

    def rmdir(self, path: str) -> None:
        os.rmdir(self.place(path))

    def unlink(self, path: str) -> None:
        os.unlink(self.place(path))

    def rename(self, old: str, new: str) -> None:
        """What is replaced goes with its spelling."""
        source, replaced = self.place(old), self.place(new)
        os.rename(source, replaced)
        folder = os.path.dirname(replaced)
        os.rename(replaced, os.path.join(folder, self.written(os.path.basename(new))))


if __name__ == "__main__":
    kind, backing, place = sys.argv[1:]
    # The kernel remembers nothing: to it, two spellings are two names.
    fusepy.FUSE(_Volume(backing, {"apfs": None, "hfs+": "NFD"}[kind]), place, foreground=True,
                nothreads=True, entry_timeout=0, negative_timeout=0, attr_timeout=0, fsname=kind)
