"""flatpackage ROOT SCRIPTS IDENTIFIER VERSION PACKAGE: packs what lies below ROOT to be installed
below "/". SCRIPTS holds the package's "preinstall" and "postinstall"."""

from __future__ import annotations

import os
import sys
from pathlib import Path
from xml.etree import ElementTree

from .bom import bill_of_materials
from .cpio import archive
from .tree import Entry, entries
from .xar import container


def main(arguments: list[str]) -> int:
    if len(arguments) != 5:
        print(__doc__, file=sys.stderr)
        return 64
    root, scripts, identifier, version, package = arguments
    time = int(os.environ["SOURCE_DATE_EPOCH"])
    payload = list(entries(Path(root)))
    content = container({
        "Bom": bill_of_materials(payload, time),
        "Payload": archive(payload, time),
        "Scripts": archive(entries(Path(scripts)), time),
        "PackageInfo": _information(payload, Path(scripts), identifier, version),
    }, time)
    unfinished = Path(f"{package}.partial")
    unfinished.write_bytes(content)
    unfinished.replace(package)
    return 0


def _information(payload: list[Entry], scripts: Path, identifier: str, version: str) -> bytes:
    """Bundles are not looked for elsewhere ("relocatable"): everything has its place."""
    root = ElementTree.Element("pkg-info", {
        "format-version": "2", "identifier": identifier, "version": version, "auth": "root",
        "install-location": "/", "relocatable": "false", "overwrite-permissions": "true",
        "postinstall-action": "none"})
    size = sum(len(entry.content) for entry in payload)
    ElementTree.SubElement(root, "payload", numberOfFiles=str(len(payload)),
                           installKBytes=str((size + 1023) // 1024))
    listed = ElementTree.SubElement(root, "scripts")
    for name in ("preinstall", "postinstall"):
        if (scripts / name).exists():
            ElementTree.SubElement(listed, name, file=f"./{name}")
    ElementTree.indent(root)
    return ElementTree.tostring(root, encoding="utf-8", xml_declaration=True)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
