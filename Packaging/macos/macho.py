"""Reads what a thin arm64 Mach-O says about itself, without a Mac."""

from __future__ import annotations

import dataclasses
import hashlib
import struct
from typing import Iterator

_MAGIC, _ARM64, _EXECUTABLE = 0xFEEDFACF, 0x0100000C, 2
_PIE = 0x200000
_SEGMENT, _SYMBOLS, _SIGNATURE, _BUILD_VERSION, _SOURCE = 0x19, 0x2, 0x1D, 0x32, 0x2A
_LIBRARIES = (0xC, 0x80000018, 0x8000001F, 0x80000023)
_RUN_PATH = 0x8000001C
_MACOS = 1
_SUPER_BLOB, _CODE_DIRECTORY = 0xFADE0CC0, 0xFADE0C02
_AD_HOC = 0x2


class NotAMachO(Exception):
    """The file is no 64-bit program for Apple silicon."""


@dataclasses.dataclass
class Program:
    content: bytes
    is_position_independent: bool
    libraries: list[str] = dataclasses.field(default_factory=list)
    run_paths: list[str] = dataclasses.field(default_factory=list)
    platform: int = 0
    minimum_system: str = ""
    undefined_symbols: set[str] = dataclasses.field(default_factory=set)
    signature: tuple[int, int] = (0, 0)  # place and size
    end_of_link_information: int = 0

    @property
    def is_for_macos(self) -> bool:
        return self.platform == _MACOS


def read(content: bytes) -> Program:
    if len(content) < 32:
        raise NotAMachO("too short")
    magic, cpu, _, kind, count, _, flags, _ = struct.unpack_from("<8I", content)
    if (magic, cpu, kind) != (_MAGIC, _ARM64, _EXECUTABLE):
        raise NotAMachO("not a thin arm64 executable")
    program = Program(content, is_position_independent=bool(flags & _PIE))
    for command, place, size in _commands(content, count):
        if command in _LIBRARIES:
            program.libraries.append(_text(content, place, size))
        elif command == _RUN_PATH:
            program.run_paths.append(_text(content, place, size))
        elif command == _BUILD_VERSION:
            program.platform, oldest = struct.unpack_from("<2I", content, place + 8)
            program.minimum_system = f"{oldest >> 16}.{oldest >> 8 & 255}"
        elif command == _SIGNATURE:
            program.signature = struct.unpack_from("<2I", content, place + 8)
        elif command == _SYMBOLS:
            program.undefined_symbols = _undefined(content, *struct.unpack_from("<4I", content, place + 8))
        elif command == _SEGMENT and content[place + 8:place + 24].rstrip(b"\0") == b"__LINKEDIT":
            program.end_of_link_information = sum(struct.unpack_from("<2Q", content, place + 40))
    return program


def _commands(content: bytes, count: int) -> Iterator[tuple[int, int, int]]:
    place = 32
    for _ in range(count):
        command, size = struct.unpack_from("<2I", content, place)
        yield command, place, size
        place += size


def _text(content: bytes, place: int, size: int) -> str:
    start = place + struct.unpack_from("<I", content, place + 8)[0]
    return content[start:place + size].split(b"\0")[0].decode()


def _undefined(content: bytes, symbols: int, count: int, names: int, _: int) -> set[str]:
    found = set()
    for number in range(count):
        name, kind = struct.unpack_from("<IB", content, symbols + 16 * number)
        if kind & 0x0F == 1:  # external and in no section of this file
            start = names + name
            found.add(content[start:content.index(b"\0", start)].decode())
    return found


def signature_faults(program: Program) -> list[str]:
    """Apple silicon ends a program whose signature is missing or does not match its pages."""
    content = program.content
    place, _ = program.signature
    if not place:
        return ["is not signed"]
    magic, _, count = struct.unpack_from(">3I", content, place)
    blobs = dict(struct.unpack_from(">2I", content, place + 12 + 8 * number) for number in range(count))
    directory = place + blobs[0]
    (kind, _, _, flags, hashes, _, _, pages, limit, digest_size, _, _, page_bits, _) = \
        struct.unpack_from(">9I4BI", content, directory)
    faults = []
    if magic != _SUPER_BLOB or kind != _CODE_DIRECTORY:
        return ["has a damaged signature"]
    if not flags & _AD_HOC:
        faults.append("is not signed ad hoc")
    if limit != place or program.end_of_link_information != len(content):
        faults.append("has a signature at the wrong place")
    page = 1 << page_bits
    for number in range(pages):
        digest = hashlib.sha256(content[number * page:min((number + 1) * page, limit)]).digest()
        start = directory + hashes + number * digest_size
        if digest[:digest_size] != content[start:start + digest_size]:
            faults.append(f"differs from its signature in page {number}")
            break
    return faults
