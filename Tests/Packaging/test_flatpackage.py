"""The writer of packages: the same tree gives the same bytes, and foreign readers understand them."""

from __future__ import annotations

import os
import subprocess
import sys
from pathlib import Path

import pytest

from conftest import make_twin
from package_reader import Package, read_bill_of_materials
from test_content import SUPPORT

from flatpackage.bom import bill_of_materials, posix_checksum
from flatpackage.tree import entries

_REPOSITORY = Path(__file__).resolve().parents[2]


@pytest.fixture
def tree(tmp_path: Path) -> Path:
    root = tmp_path / "tree"
    (root / "Library/Zażółć gęślą").mkdir(parents=True)
    (root / "Library/Zażółć gęślą/jaźń").write_text("jaźń")
    (root / "Library/empty").touch()
    (root / "Library/link").symlink_to("Zażółć gęślą/jaźń")
    return root


def pack(root: Path, package: Path, **environment: str) -> Package:
    subprocess.run(
        [sys.executable, "-m", "flatpackage", root, _REPOSITORY / "Packaging/scripts", "a.b", "1",
         package], check=True, env={**os.environ, "PYTHONPATH": str(_REPOSITORY / "Packaging"),
                                    "SOURCE_DATE_EPOCH": "1767225600", **environment})
    return Package(package)


def test_two_packages_of_one_build_are_the_same(twin_file: Path, tmp_path: Path) -> None:
    assert make_twin(tmp_path / "another").read_bytes() == twin_file.read_bytes()


def test_age_order_and_rights_of_the_building_machine_leave_no_trace(tree: Path,
                                                                      tmp_path: Path) -> None:
    first = pack(tree, tmp_path / "first.pkg")
    again = tmp_path / "again"
    for path in ("Library/link", "Library/empty", "Library/Zażółć gęślą/jaźń"):
        place = again / path
        place.parent.mkdir(parents=True, exist_ok=True)
        if path.endswith("link"):
            place.symlink_to("Zażółć gęślą/jaźń")
        else:
            place.write_text((tree / path).read_text())
            os.utime(place, (1, 1))
    second = pack(again, tmp_path / "second.pkg", TZ="Pacific/Auckland", LC_ALL="C")
    assert first.file.read_bytes() == second.file.read_bytes()


def test_a_foreign_reader_finds_everything(tree: Path, tmp_path: Path) -> None:
    package = pack(tree, tmp_path / "p.pkg")
    target = tmp_path / "unpacked"
    target.mkdir()
    subprocess.run(["bsdtar", "-xpf", "-", "-C", target], input=package.member("Payload"),
                   check=True)
    assert (target / "Library/link").read_text() == "jaźń"
    assert (target / "Library/empty").stat().st_size == 0
    assert set(package.bill_of_materials()) == {
        "/", "/Library", "/Library/Zażółć gęślą", "/Library/Zażółć gęślą/jaźń", "/Library/empty",
        "/Library/link"}


def test_what_is_neither_file_nor_folder_nor_link_is_refused(tree: Path) -> None:
    os.mkfifo(tree / "pipe")
    with pytest.raises(ValueError, match="pipe is neither"):
        list(entries(tree))


def test_a_bill_of_many_materials_has_several_leaves(tmp_path: Path) -> None:
    for number in range(600):
        (tmp_path / f"file-{number}").write_text(str(number))
    found = read_bill_of_materials(bill_of_materials(entries(tmp_path), 0))
    assert len(found) == 601
    assert found["/file-599"].size == 3


@pytest.mark.parametrize("length", [0, 1, 255, 256, 70_000])
def test_checksums_are_those_of_cksum(length: int) -> None:
    content = bytes(number * number % 251 for number in range(length))
    printed = subprocess.run(["cksum"], input=content, stdout=subprocess.PIPE, check=True).stdout
    assert posix_checksum(content) == int(printed.split()[0])


def test_programs_are_stripped(twin: Package, tmp_path: Path) -> None:
    program = tmp_path / "WsparoAgent"
    program.write_bytes(twin.content(f"{SUPPORT}/WsparoAgent"))
    printed = subprocess.run(["nm", program], capture_output=True, text=True, check=False)
    assert "no symbols" in printed.stderr
