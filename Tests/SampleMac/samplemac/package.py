"""Writes flat installer packages as a Mac's installer takes them: a xar archive that holds the
description, and the files and the scripts as compressed cpio archives."""

import pathlib
import subprocess
import tempfile

_INFORMATION = """\
<?xml version="1.0" encoding="utf-8"?>
<pkg-info format-version="2" identifier="{identifier}" version="{version}" auth="root" \
relocatable="false" overwrite-permissions="true" postinstall-action="none">
  <payload numberOfFiles="{count}" installKBytes="{size}"/>
  <scripts>
{scripts}  </scripts>
</pkg-info>
"""


def write_package(file: pathlib.Path, identifier: str, version: str, payload: pathlib.Path,
                  scripts: dict[str, str] | None = None) -> pathlib.Path:
    """A package that puts the content of `payload` below "/"; `scripts` are the texts of its
    "preinstall" and "postinstall"."""
    scripts = scripts or {}
    entries = list(payload.rglob("*"))
    with tempfile.TemporaryDirectory() as folder:
        work = pathlib.Path(folder)
        _pack(payload, work / "Payload")
        (work / "Bom").write_bytes(b"BOMStore")
        if scripts:
            (work / "scripts").mkdir()
            for name, text in scripts.items():
                script = work / "scripts" / name
                script.write_text(text)
                script.chmod(0o755)
            _pack(work / "scripts", work / "Scripts.packed")
            for script in (work / "scripts").iterdir():
                script.unlink()
            (work / "scripts").rmdir()
            (work / "Scripts.packed").rename(work / "Scripts")
        (work / "PackageInfo").write_text(_INFORMATION.format(
            identifier=identifier, version=version, count=len(entries) + 1,
            size=sum(one.lstat().st_size for one in entries) // 1024 + 1,
            scripts="".join(f'    <{name} file="./{name}"/>\n' for name in scripts)))
        members = ["Bom", "Payload", *(["Scripts"] if scripts else []), "PackageInfo"]
        subprocess.run(["bsdtar", "--format", "xar", "--options", "xar:compression=none",
                        "-cf", file.absolute(), *members], cwd=work, check=True)
    return file


def _pack(folder: pathlib.Path, archive: pathlib.Path) -> None:
    # A sanitizer build's program has tens of megabytes: packed quickly rather than small.
    subprocess.run(["bsdtar", "--format", "odc", "--uid", "0", "--gid", "0", "-z",
                    "--options", "gzip:compression-level=1", "-cf", archive.absolute(), "."],
                   cwd=folder, check=True)
