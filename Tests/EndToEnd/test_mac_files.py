"""Files as a Mac's volumes have them: names in any Unicode normal form, and folders that are links."""

from __future__ import annotations

import base64
import hashlib
import unicodedata
from pathlib import Path

import pytest


@pytest.fixture
def folder(device, request) -> tuple[str, Path]:
    """A folder of this test on the Mac: its path there, and where it lies."""
    name = hashlib.sha256(request.node.nodeid.encode()).hexdigest()[:12]
    path = f"/Users/Shared/{name}"
    place = device.mac.place(path)
    place.mkdir()
    return path, place


def download(device, admin, path: str) -> bytes:
    result = device.run(admin, "file_download", {"path": path})
    return base64.b64decode(result["content_base64"], validate=True)


def test_a_listed_name_opens_again_in_whatever_form_it_is_stored(device, admin, folder):
    """A volume may decompose letters (HFS+), keep them (APFS), or hold both spellings (network)."""
    path, place = folder
    composed = "Zażółć gęślą jaźń.txt"
    for form in ("NFC", "NFD"):
        (place / unicodedata.normalize(form, composed)).write_text(form)
    listing = device.run(admin, "file_list", {"path": path})
    assert sorted(item["name"] for item in listing["items"]) == sorted(
        unicodedata.normalize(form, composed) for form in ("NFC", "NFD"))
    for item in listing["items"]:
        form = "NFC" if unicodedata.is_normalized("NFC", item["name"]) else "NFD"
        assert item["path"] == f"{path}/{item['name']}"
        assert download(device, admin, item["path"]) == form.encode()


def test_a_folder_with_a_decomposed_name_can_be_entered(device, admin, folder):
    path, place = folder
    inner = place / unicodedata.normalize("NFD", "Ściąga")
    inner.mkdir()
    (inner / "x").write_text("x")
    entry, = device.run(admin, "file_list", {"path": path})["items"]
    listing = device.run(admin, "file_list", {"path": entry["path"]})
    assert [item["name"] for item in listing["items"]] == ["x"]
    assert listing["parent_path"] == path


def test_names_that_differ_in_case_only_are_two_files(device, admin, folder):
    """On a volume that keeps them apart; the agent leaves the question to the volume."""
    path, place = folder
    for name in ("Umowa.TXT", "umowa.txt"):
        (place / name).write_text(name)
    listing = device.run(admin, "file_list", {"path": path})
    assert {item["name"] for item in listing["items"]} == {"Umowa.TXT", "umowa.txt"}
    for item in listing["items"]:
        assert download(device, admin, item["path"]) == item["name"].encode()


@pytest.mark.parametrize("short, real", [("/tmp", "/private/tmp"), ("/etc", "/private/etc"),
                                         ("/var/tmp", "/private/var/tmp")])
def test_folders_that_are_links_are_used_by_the_name_that_was_asked_for(device, admin, short, real):
    name = "wsparo-mac-files.txt"
    device.run(admin, "file_upload", {
        "target_path": f"{short}/{name}", "overwrite": True,
        "content_base64": base64.b64encode(b"abc").decode()})
    assert device.mac.place(f"{real}/{name}").read_bytes() == b"abc"
    assert device.mac.place(f"/{short.split('/')[1]}").is_symlink()
    listing = device.run(admin, "file_list", {"path": short, "max_items": 2000})
    assert listing["path"] == short
    assert f"{short}/{name}" in {item["path"] for item in listing["items"]}
    assert download(device, admin, f"{short}/{name}") == b"abc"
