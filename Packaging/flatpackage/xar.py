"""The container of a flat package: a compressed table of contents, then the files as they are."""

from __future__ import annotations

import datetime
import hashlib
import struct
import zlib
from xml.etree import ElementTree

_SHA1 = 1


def container(files: dict[str, bytes], time: int) -> bytes:
    stamp = datetime.datetime.fromtimestamp(time, datetime.timezone.utc).strftime("%Y-%m-%dT%H:%M:%S")
    root = ElementTree.Element("xar")
    contents = ElementTree.SubElement(root, "toc")
    _add(contents, "creation-time", stamp)
    checksum = ElementTree.SubElement(contents, "checksum", style="sha1")
    offset = hashlib.sha1().digest_size  # the table's own digest comes first
    _add(checksum, "offset", 0)
    _add(checksum, "size", offset)
    for number, (name, content) in enumerate(files.items(), 1):
        file = ElementTree.SubElement(contents, "file", id=str(number))
        for key, value in (("name", name), ("type", "file"), ("mode", "0644"), ("uid", 0),
                           ("user", "root"), ("gid", 0), ("group", "wheel"), ("mtime", f"{stamp}Z")):
            _add(file, key, value)
        _describe(ElementTree.SubElement(file, "data"), content, offset)
        offset += len(content)
    text = ElementTree.tostring(root, encoding="UTF-8", xml_declaration=True)
    packed = zlib.compress(text, 9)
    header = struct.pack(">4s2H2QI", b"xar!", 28, 1, len(packed), len(text), _SHA1)
    return b"".join((header, packed, hashlib.sha1(packed).digest(), *files.values()))


def _describe(data: ElementTree.Element, content: bytes, offset: int) -> None:
    _add(data, "length", len(content))
    _add(data, "offset", offset)
    _add(data, "size", len(content))
    ElementTree.SubElement(data, "encoding", style="application/octet-stream")
    digest = hashlib.sha1(content).hexdigest()
    for key in ("extracted-checksum", "archived-checksum"):
        _add(data, key, digest, style="sha1")


def _add(parent: ElementTree.Element, key: str, value: object, **attributes: str) -> None:
    ElementTree.SubElement(parent, key, **attributes).text = str(value)
