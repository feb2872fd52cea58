"""Files on volumes that take different spellings of a name for one, as a Mac's do."""

from __future__ import annotations

import base64
import hashlib
import unicodedata
from pathlib import Path
from typing import Iterator

import pytest

from samplemac import volume

pytestmark = pytest.mark.skipif(volume.why_impossible() is not None,
                                reason=str(volume.why_impossible()))

PATH = "/Volumes/Firma"


@pytest.fixture(params=["apfs", "hfs+"])
def stored(device, request, tmp_path) -> Iterator[Path]:
    """A volume of each kind; where its content lies."""
    place = device.mac.place(PATH)
    place.mkdir(parents=True, exist_ok=True)
    backing = tmp_path / "backing"
    backing.mkdir()
    with volume.mounted(request.param, backing, place):
        yield backing


def upload(device, admin, name: str, text: str, **options: bool) -> dict:
    return device.run(admin, "file_upload", content_of(name, text, **options))


def content_of(name: str, text: str, **options: bool) -> dict:
    return {"target_path": f"{PATH}/{name}", "content_base64": base64.b64encode(text.encode()).decode(),
            **options}


def download(device, admin, path: str) -> str:
    return base64.b64decode(device.run(admin, "file_download", {"path": path})["content_base64"]).decode()


def items(device, admin, path: str = PATH) -> list[dict]:
    return device.run(admin, "file_list", {"path": path})["items"]


def test_a_file_opens_by_any_spelling_and_by_the_listed_one(device, admin, stored):
    upload(device, admin, "Zażółć.txt", "żółw")
    entry, = items(device, admin)
    assert unicodedata.normalize("NFC", entry["name"]) == "Zażółć.txt"
    assert entry["name"] == stored.joinpath(entry["name"]).name and stored.joinpath(entry["name"]).exists()
    for path in (entry["path"], f"{PATH}/ZAŻÓŁĆ.TXT", f"{PATH}/" + unicodedata.normalize("NFD", "zażółć.txt")):
        assert download(device, admin, path) == "żółw"


def test_another_spelling_is_no_way_past_an_existing_file(device, admin, stored):
    upload(device, admin, "umowa.txt", "old")
    for name in ("UMOWA.TXT", "Umowa.txt"):
        assert "File already exists" in device.refuse(admin, "file_upload", content_of(name, "new"))
    assert [item["name"] for item in items(device, admin)] == ["umowa.txt"]
    assert download(device, admin, f"{PATH}/umowa.txt") == "old"


def test_overwriting_by_another_spelling_leaves_one_file(device, admin, stored):
    upload(device, admin, "umowa.txt", "old")
    upload(device, admin, "Umowa.TXT", "new", overwrite=True)
    entry, = items(device, admin)
    assert download(device, admin, entry["path"]) == "new"
    assert len(list(stored.iterdir())) == 1  # and no temporary file


def test_a_folder_is_found_by_another_spelling(device, admin, stored):
    (stored / unicodedata.normalize("NFD", "Ściąga")).mkdir()
    upload(device, admin, "ŚCIĄGA/Nowa/x.txt", "x", create_directories=True)
    folder, = items(device, admin)
    inner, = items(device, admin, folder["path"])
    assert inner["name"] == "Nowa"
    assert download(device, admin, f"{PATH}/ściąga/nowa/X.TXT") == "x"
