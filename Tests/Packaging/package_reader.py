"""Reads a flat package with other means than those that wrote it: bsdtar for the archives, and the
bill of materials by following its own pointers."""

from __future__ import annotations

import dataclasses
import struct
import subprocess
from pathlib import Path
from xml.etree import ElementTree


@dataclasses.dataclass(frozen=True)
class Listed:
    """What the bill of materials or the payload says of a path."""
    kind: str  # "file", "folder" or "link"
    mode: int
    owner: int
    group: int
    size: int


@dataclasses.dataclass(frozen=True)
class BomEntry(Listed):
    checksum: int = 0
    target: str = ""


class Package:
    def __init__(self, file: Path) -> None:
        self.file = file

    def members(self) -> list[str]:
        return _bsdtar("-tf", str(self.file)).decode().split()

    def member(self, name: str) -> bytes:
        return _bsdtar("-xOf", str(self.file), name)

    def information(self) -> ElementTree.Element:
        return ElementTree.fromstring(self.member("PackageInfo"))

    def payload(self) -> dict[str, Listed]:
        return _listing(self.member("Payload"))

    def content(self, path: str, archive: str = "Payload") -> bytes:
        return _bsdtar("-xOf", "-", f".{path}", given=self.member(archive))

    def scripts(self) -> dict[str, Listed]:
        return _listing(self.member("Scripts"))

    def bill_of_materials(self) -> dict[str, BomEntry]:
        return read_bill_of_materials(self.member("Bom"))


_KINDS = {"-": "file", "d": "folder", "l": "link"}


def _listing(archive: bytes) -> dict[str, Listed]:
    """Paths as the Mac's, the root as "/"."""
    found = {}
    for line in _bsdtar("--format", "mtree", "--options", "!all,type,mode,uid,gid,size", "-cf", "-",
                        "@-", given=archive).decode().splitlines():
        path, *fields = line.split()
        if not path.startswith("."):
            continue
        values = dict(field.split("=") for field in fields)
        kind = values["type"].replace("dir", "folder")
        found[_unescaped(path[1:]) or "/"] = Listed(
            kind, int(values["mode"], 8), int(values.get("uid", 0)), int(values.get("gid", 0)),
            int(values.get("size", 0)))
    return found


def _unescaped(path: str) -> str:
    return path.encode().decode("unicode_escape").encode("latin-1").decode()


def _bsdtar(*arguments: str, given: bytes | None = None) -> bytes:
    return subprocess.run(["bsdtar", *arguments], input=given, stdout=subprocess.PIPE,
                          check=True).stdout


def read_bill_of_materials(content: bytes) -> dict[str, BomEntry]:
    magic, _, _, index_place, _, names_place, _ = struct.unpack_from(">8s6I", content)
    assert magic == b"BOMStore"

    def block(number: int) -> bytes:
        place, size = struct.unpack_from(">2I", content, index_place + 4 + 8 * number)
        return content[place:place + size]

    variables = _variables(content, names_place)
    magic, _, node_number, _, count = struct.unpack_from(">4s4I", block(variables["Paths"]))
    assert magic == b"tree"
    node = block(node_number)
    while not struct.unpack_from(">H", node)[0]:
        node = block(struct.unpack_from(">I", node, 12)[0])

    paths: dict[int, str] = {0: ""}
    found: dict[str, BomEntry] = {}
    keys = []
    while True:
        _, rows, following, _ = struct.unpack_from(">2H2I", node)
        for row in range(rows):
            value, key = struct.unpack_from(">2I", node, 12 + 8 * row)
            number, details = struct.unpack(">2I", block(value))
            parent, name = struct.unpack_from(">I", block(key))[0], block(key)[4:-1].decode()
            keys.append((parent, name.encode()))
            paths[number] = f"{paths[parent]}/{name}" if parent else ""
            found[paths[number] or "/"] = _bom_entry(block(details))
        if not following:
            break
        node = block(following)
    assert len(found) == count and keys == sorted(keys)
    return found


def _variables(content: bytes, place: int) -> dict[str, int]:
    found = {}
    count, = struct.unpack_from(">I", content, place)
    place += 4
    for _ in range(count):
        number, length = struct.unpack_from(">IB", content, place)
        found[content[place + 5:place + 5 + length].decode()] = number
        place += 5 + length
    return found


def _bom_entry(details: bytes) -> BomEntry:
    kind, _, _, mode, owner, group, _, size, _, checksum, length = struct.unpack_from(
        ">2B2H4IB2I", details)
    target = details[31:31 + length].rstrip(b"\0").decode()
    return BomEntry({1: "file", 2: "folder", 3: "link"}[kind], mode & 0o7777, owner, group, size,
                    checksum, target)
