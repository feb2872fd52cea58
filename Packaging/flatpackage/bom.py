"""The bill of materials of a package: every path with its mode, owner, size and checksum, in the
block store ("BOMStore") that the Mac's installer and lsbom read. All numbers are big-endian."""

from __future__ import annotations

import struct
import zlib
from typing import Iterable

from .tree import Entry

_HEADER_SIZE = 512
_NODE_SIZE = 4096
_LEAF_ENTRIES = 256
_FILE, _FOLDER, _LINK = 1, 2, 3


def bill_of_materials(entries: Iterable[Entry], time: int) -> bytes:
    store = _Store()
    places = [store.add(b"") for _ in range(5)]
    info, paths, hard_links, index, large_sizes = places
    pairs = _path_blocks(store, list(entries), time)
    store.blocks[info] = struct.pack(">7I", 1, len(pairs) + 1, 1, 0, 0, 0, 0)
    store.blocks[paths] = _tree(_paths_tree(store, pairs), len(pairs))
    store.blocks[hard_links] = _empty_tree(store)
    store.blocks[index] = struct.pack(">3IB", 1, store.add(_empty_tree(store, 128)), 0, 0)
    store.blocks[large_sizes] = _empty_tree(store)
    names = (b"BomInfo", b"Paths", b"HLIndex", b"VIndex", b"Size64")
    return store.serialised(list(zip(names, places)))


class _Store:
    """Numbered blocks; the first is none."""

    def __init__(self) -> None:
        self.blocks = [b""]

    def add(self, content: bytes) -> int:
        self.blocks.append(content)
        return len(self.blocks) - 1

    def serialised(self, variables: list[tuple[bytes, int]]) -> bytes:
        names = struct.pack(">I", len(variables)) + b"".join(
            struct.pack(">IB", block, len(name)) + name for name, block in variables)
        place = _HEADER_SIZE + len(names)
        table = [(0, 0)]
        for block in self.blocks[1:]:
            table.append((place, len(block)))
            place += len(block)
        index = struct.pack(">I", len(table)) + b"".join(struct.pack(">2I", *row) for row in table)
        index += struct.pack(">I", 2) + bytes(16)  # no free blocks
        header = struct.pack(">8s6I", b"BOMStore", 1, len(self.blocks) - 1, place, len(index),
                             _HEADER_SIZE, len(names))
        return header.ljust(_HEADER_SIZE, b"\0") + names + b"".join(self.blocks) + index


def _path_blocks(store: _Store, entries: list[Entry], time: int) -> list[tuple[int, int]]:
    """A value and a key block for every path, in the order of their keys: the parent's number, then
    the name. So the paths are numbered level by level."""
    below: dict[str, list[Entry]] = {}
    for entry in entries:
        below.setdefault(entry.path.rpartition("/")[0], []).append(entry)
    numbers = {"": 0}
    rows, level = [], below[""]
    while level:
        for entry in level:
            parent, _, name = entry.path.rpartition("/")
            numbers[entry.path] = len(numbers)
            rows.append((numbers[parent], name.encode(), entry))
        level = [child for entry in level for child in below.get(entry.path, ())]
    pairs = []
    for parent, name, entry in rows:
        details = store.add(_details(entry, time))
        value = store.add(struct.pack(">2I", numbers[entry.path], details))
        pairs.append((value, store.add(struct.pack(">I", parent) + name + b"\0")))
    return pairs


def _details(entry: Entry, time: int) -> bytes:
    kind = _FOLDER if entry.is_folder else _LINK if entry.is_link else _FILE
    checksum = 0 if entry.is_folder else posix_checksum(entry.content)
    target = entry.content + b"\0" if entry.is_link else b""
    return struct.pack(">2B2H4IB2I", kind, 1, 3, entry.mode & 0xFFFF, 0, entry.group, time,
                       len(entry.content), 1, checksum, len(target)) + target


def _paths_tree(store: _Store, pairs: list[tuple[int, int]]) -> int:
    """The tree's topmost node: a leaf, or one node above up to 256 leaves."""
    chunks = [pairs[start:start + _LEAF_ENTRIES] for start in range(0, len(pairs), _LEAF_ENTRIES)]
    leaves = [store.add(b"") for _ in chunks]
    for number, chunk in enumerate(chunks):
        following = leaves[number + 1] if number + 1 < len(leaves) else 0
        preceding = leaves[number - 1] if number else 0
        store.blocks[leaves[number]] = _node(chunk, following, preceding)
    if len(leaves) == 1:
        return leaves[0]
    ends = [(leaf, chunk[-1][1]) for leaf, chunk in zip(leaves, chunks)]
    return store.add(_node(ends, is_leaf=False))


def _node(pairs: list[tuple[int, int]], following: int = 0, preceding: int = 0, *,
          is_leaf: bool = True, size: int = _NODE_SIZE) -> bytes:
    head = struct.pack(">2H2I", is_leaf, len(pairs), following, preceding)
    return (head + b"".join(struct.pack(">2I", *pair) for pair in pairs)).ljust(size, b"\0")


def _tree(top: int, count: int, node_size: int = _NODE_SIZE) -> bytes:
    return struct.pack(">4s4IB", b"tree", 1, top, node_size, count, 0)


def _empty_tree(store: _Store, node_size: int = _NODE_SIZE) -> bytes:
    return _tree(store.add(_node([], size=node_size)), 0, node_size)


_BITS_REVERSED = bytes(int(f"{byte:08b}"[::-1], 2) for byte in range(256))


def posix_checksum(content: bytes) -> int:
    """As cksum prints it: the content's bytes, then those of its length. The same polynomial as zlib's,
    from the other end of each byte and of the result, and beginning with 0, which zlib inverts."""
    length = len(content)
    tail = length.to_bytes((length.bit_length() + 7) // 8, "little")
    value = zlib.crc32((content + tail).translate(_BITS_REVERSED), 0xFFFFFFFF)
    return int(f"{value:032b}"[::-1], 2)
