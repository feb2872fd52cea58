"""The programs of a package that was cross-built before (Packaging/macos/build), as far as a Linux
machine can judge them. Skipped where there is none."""

from __future__ import annotations

import os
import struct
import subprocess
import sys
from pathlib import Path
from typing import Callable

import pytest

import macho
from package_reader import Package
from test_content import APP, COMPANION, SUPPORT, version

_REPOSITORY = Path(__file__).resolve().parents[2]
_BUILD = Path(os.environ.get("ORV_MACOS_BUILD_DIR", _REPOSITORY / "build/macos"))
_FILE = _BUILD / f"Wsparo-Brenvox-macOS-{version()}.pkg"
_MEGABYTE = 1_000_000

pytestmark = pytest.mark.skipif(not _FILE.exists(), reason="Packaging/macos/build has not been run")


@pytest.fixture(scope="module")
def package() -> Package:
    return Package(_FILE)


@pytest.fixture(scope="module")
def programs(package: Package) -> dict[str, bytes]:
    names = [f"{SUPPORT}/WsparoAgent", f"{APP}/Contents/MacOS/Wsparo Brenvox", COMPANION]
    return {name: package.content(name) for name in names}


def test_the_package_has_the_twins_layout(package: Package, twin: Package) -> None:
    """What end-to-end tests install is what a Mac gets."""
    def layout(one: Package) -> dict:
        return {path: (listed.kind, listed.mode, listed.owner, listed.group)
                for path, listed in one.payload().items()}

    assert layout(package) == layout(twin)
    for script in ("/preinstall", "/postinstall"):
        assert package.content(script, "Scripts") == twin.content(script, "Scripts")


def test_programs_are_small(package: Package, programs: dict[str, bytes]) -> None:
    for name, content in programs.items():
        assert len(content) <= 7 * _MEGABYTE, name
    assert package.file.stat().st_size <= 4 * _MEGABYTE


def test_programs_are_for_apple_silicon_and_hardened(programs: dict[str, bytes]) -> None:
    for name, content in programs.items():
        program = macho.read(content)
        assert program.is_for_macos and program.minimum_system == "13.0", name
        assert program.is_position_independent, name
        assert "___stack_chk_fail" in program.undefined_symbols, name
        assert macho.signature_faults(program) == [], name


def test_programs_need_the_systems_own_libraries_only(programs: dict[str, bytes]) -> None:
    for name, content in programs.items():
        program = macho.read(content)
        assert all(library.startswith(("/usr/lib/", "/System/Library/"))
                   for library in program.libraries), (name, program.libraries)
        assert program.run_paths == [], name


def test_nothing_of_the_building_machine_is_inside(programs: dict[str, bytes]) -> None:
    for name, content in programs.items():
        for text in (str(_REPOSITORY), "/usr/include", "/root/", "/home/", "/.cache/", "debian"):
            assert text.encode() not in content, (name, text)


def test_the_version_is_the_builds(programs: dict[str, bytes]) -> None:
    assert all(version().encode() in content for content in programs.values())


def check(*arguments: object) -> subprocess.CompletedProcess:
    return subprocess.run([sys.executable, _REPOSITORY / "Packaging/macos/check-macho", *arguments],
                          capture_output=True, text=True, check=False)


def command(program: bytes, wanted: int) -> int:
    """Where the load command of this kind begins."""
    place = 32
    while (found := struct.unpack_from("<2I", program, place))[0] != wanted:
        place += found[1]
    return place


def changed(program: bytes, place: int, **number: int) -> bytes:
    (form, value), = number.items()
    content = bytearray(program)
    struct.pack_into({"little": "<I", "big": ">I"}[form], content, place, value)
    return bytes(content)


def with_run_path(program: bytes) -> bytes:
    """In the place of its identity, which nothing looks at."""
    place = command(program, 0x1B)
    content = changed(changed(program, place, little=0x8000001C), place + 8, little=12)
    return content[:place + 12] + b"@loader_path" + content[place + 24:]


def signed_otherwise(program: bytes) -> bytes:
    """By somebody, as the code directory's flags say: it is the first of the signature's parts."""
    signature, = struct.unpack_from("<I", program, command(program, 0x1D) + 8)
    directory = signature + struct.unpack_from(">I", program, signature + 16)[0]
    return changed(program, directory + 12, big=0)


_WRONG: dict[str, Callable[[bytes], bytes]] = {
    "is not position-independent": lambda one: changed(one, 24, little=0x85),
    "is not for macOS 13.0 but 12.0": lambda one: changed(one, command(one, 0x32) + 12, little=12 << 16),
    "has no stack protector": lambda one: one.replace(b"___stack_chk_fail\0", b"___stack_chk_nope\0"),
    "needs /opt/lib/libSystem.B.dylib": lambda one: one.replace(b"/usr/lib/libSystem", b"/opt/lib/libSystem"),
    "looks for libraries in @loader_path": with_run_path,
    "is not signed\n": lambda one: changed(one, command(one, 0x1D), little=0),
    "is not signed ad hoc": signed_otherwise,
    "has a signature at the wrong place": lambda one: one + b"more",
    "differs from its signature in page": lambda one: one.replace(b"registered", b"restigered"),
    "not a thin arm64 executable": lambda one: b"#!/bin/sh\n" + bytes(100),
    "holds the text /home/": lambda one: one.replace(b"/Users/", b"/home//"),
}


@pytest.mark.parametrize("fault", _WRONG)
def test_the_check_finds_what_is_wrong(programs: dict[str, bytes], tmp_path: Path, fault: str) -> None:
    good, bad = programs[f"{SUPPORT}/WsparoAgent"], tmp_path / "program"
    bad.write_bytes(_WRONG[fault](good))
    done = check(bad)
    assert done.returncode == 1 and f"{bad}: {fault}" in done.stderr


def test_the_check_takes_more_texts(programs: dict[str, bytes], tmp_path: Path) -> None:
    place = tmp_path / "program"
    place.write_bytes(programs[f"{SUPPORT}/WsparoAgent"])
    assert check(place).returncode == 0
    assert "holds the text 0.2." in check("--foreign", "0.2.", place).stderr
