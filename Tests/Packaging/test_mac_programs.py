"""The programs of a package that was cross-built before (Packaging/macos/build), as far as a Linux
machine can judge them. Skipped where there is none."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

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
    present = package.payload()
    return {name: package.content(name) for name in names if name in present}


def test_the_package_has_the_twins_layout(package: Package, twin: Package) -> None:
    """What end-to-end tests install is what a Mac gets."""
    def layout(one: Package) -> dict:
        return {path: (listed.kind, listed.mode, listed.owner, listed.group)
                for path, listed in one.payload().items()}

    assert layout(package) == layout(twin)
    assert package.member("Scripts") == twin.member("Scripts")


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


def test_the_check_finds_what_is_wrong(programs: dict[str, bytes], tmp_path: Path) -> None:
    agent = programs[f"{SUPPORT}/WsparoAgent"]
    place = tmp_path / "program"
    place.write_bytes(agent)
    assert check(place).returncode == 0
    assert "holds the text 0.2." in check("--foreign", "0.2.", place).stderr

    changed = bytearray(agent)
    changed[len(agent) // 2] ^= 1
    place.write_bytes(changed)
    assert "differs from its signature in page" in check(place).stderr

    place.write_bytes(agent[:4096])
    assert check(place).returncode == 1
    place.write_bytes(b"#!/bin/sh\n" + bytes(100))
    assert "not a thin arm64 executable" in check(place).stderr
