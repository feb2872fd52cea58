"""Listings, downloads and uploads, to the byte and to the refusal."""

from __future__ import annotations

import base64
import hashlib
import os
import subprocess

import pytest

DEFAULT_LIMIT = 10 << 20
LARGEST = 25 << 20

root_only = pytest.mark.skipif(os.geteuid() != 0, reason="needs root")


def encoded(content: bytes) -> str:
    return base64.b64encode(content).decode()


def names(listing: dict) -> list[str]:
    return [item["name"] for item in listing["items"]]


@pytest.fixture
def folder(device, request):
    """A folder of this test on the Mac: its path there, and where it lies."""
    name = hashlib.sha256(request.node.nodeid.encode()).hexdigest()[:12]
    path = f"/Users/Shared/{name}"
    place = device.mac.place(path)
    place.mkdir()
    return path, place


@pytest.fixture
def upload(device, admin):
    """upload(path, content, **payload) gives the error text, or None when it succeeded."""

    def send(path: object, content: object, **payload: object):
        text = encoded(content) if isinstance(content, bytes) else content
        order = {"target_path": path, "content_base64": text, **payload}
        command = admin.run_command(device.uid, "file_upload", order)
        return command["result"].get("error")

    return send


def test_folders_come_first_and_marks_sort_beside_their_letter(device, admin, folder):
    path, place = folder
    (place / "A").mkdir()
    (place / "ą").mkdir()
    for name in ("b", "a.txt", "łąka", "lato", "mak", ".hidden", "Zebra"):
        (place / name).write_text("12345")
    (place / "to A").symlink_to("A")
    (place / "to nowhere").symlink_to("nowhere")
    listing = device.run(admin, "file_list", {"path": f"  {path}\n"})
    assert names(listing) == ["A", "ą", ".hidden", "a.txt", "b", "łąka", "lato", "mak",
                              "to A", "to nowhere", "Zebra"]
    assert (listing["path"], listing["parent_path"]) == (path, "/Users/Shared")
    assert (listing["item_count"], listing["max_items"]) == (11, 500)
    by_name = {item["name"]: item for item in listing["items"]}
    kept = by_name["A"]
    assert kept.pop("modified_at").endswith("Z")
    assert kept == {"name": "A", "path": f"{path}/A", "kind": "folder", "is_directory": True,
                    "is_symlink": False}
    assert by_name["a.txt"]["size_bytes"] == 5
    link = by_name["to A"]
    assert (link["kind"], link["is_symlink"], link["size_bytes"]) == ("file", True, 1)


def test_the_root_has_no_parent(device, admin):
    listing = device.run(admin, "file_list", None)
    assert (listing["path"], listing["parent_path"]) == ("/", None)
    assert {"Applications", "Users", "Library"} <= set(names(listing))


@pytest.mark.parametrize("wanted, limit", [(5, 10), ("12", 12), (5000, 2000), ("many", 500)])
def test_the_number_of_items_is_clamped(device, admin, folder, wanted, limit):
    path, place = folder
    for number in range(limit + 1):
        (place / f"{number:04}").touch()
    listing = device.run(admin, "file_list", {"path": path, "max_items": wanted})
    assert (listing["item_count"], listing["max_items"]) == (limit, limit)
    assert names(listing) == [f"{number:04}" for number in range(limit)]


@pytest.mark.parametrize("word", ["", " \n", "roots", "Drives", "VOLUMES"])
def test_the_places_to_start_from(device, admin, word):
    volumes = device.mac.place("/Volumes")
    for name in ("Kopie", "archiwum", ".hidden"):
        (volumes / name).mkdir(exist_ok=True)
    if not (volumes / "Macintosh HD").is_symlink():
        (volumes / "Macintosh HD").symlink_to("/")
    listing = device.run(admin, "file_list", {"path": word})
    assert (listing["root_kind"], listing["path"], listing["parent_path"]) == ("volumes", "", None)
    assert [(item["path"], item["name"], item["kind"], item["label"])
            for item in listing["items"]] == [
        ("/", "Macintosh HD", "drive", "System"),
        ("/Users", "Uzytkownicy", "folder", "Katalogi domowe"),
        ("/Applications", "Aplikacje", "folder", "Programy"),
        ("/Volumes", "Woluminy", "folder", "Dyski i udzialy"),
        ("/tmp", "Tymczasowe", "folder", "Folder tymczasowy"),
        ("/Volumes/archiwum", "archiwum", "drive", "Wolumin"),
        ("/Volumes/Kopie", "Kopie", "drive", "Wolumin"),
        ("/Volumes/Macintosh HD", "Macintosh HD", "drive", "Wolumin"),
    ]
    assert all(item["is_ready"] for item in listing["items"])
    assert listing["items"][5]["size_bytes"] >= listing["items"][5]["free_bytes"] > 0


def test_what_is_no_folder_is_not_found(device, admin, folder):
    path, place = folder
    (place / "file").touch()
    assert device.refuse(admin, "file_list", {"path": f" {path}/file "}) == (
        f"Directory not found: {path}/file")
    assert device.refuse(admin, "file_list", {"path": f"{path}/none"}) == (
        f"Directory not found: {path}/none")


@pytest.mark.parametrize("size, payload", [
    (0, {}), (1, {}), (DEFAULT_LIMIT, {}), (1024, {"max_bytes": 3}),
    (LARGEST, {"max_bytes": 10 ** 9}),
], ids=["empty", "one byte", "10 MiB", "1 KiB", "25 MiB"])
def test_a_file_arrives_as_it_is(device, admin, folder, size, payload):
    path, place = folder
    content = os.urandom(size)
    (place / "Żółw 1.bin").write_bytes(content)
    result = device.run(admin, "file_download", {"path": f"{path}/Żółw 1.bin ", **payload},
                        timeout=60)
    assert base64.b64decode(result["content_base64"], validate=True) == content
    assert (result["file_name"], result["size_bytes"]) == ("Żółw 1.bin", size)
    assert result["path"] == f"{path}/Żółw 1.bin"


@pytest.mark.parametrize("size, payload, limit", [
    (DEFAULT_LIMIT + 1, {}, DEFAULT_LIMIT),
    (1025, {"max_bytes": "-5"}, 1024),
    (LARGEST + 1, {"max_bytes": LARGEST + 1}, LARGEST),
    (10 ** 12, {"max_bytes": LARGEST}, LARGEST),
])
def test_a_file_over_the_limit_is_refused_with_both_numbers(device, admin, folder, size, payload,
                                                            limit):
    path, place = folder
    with (place / "large").open("wb") as file:
        file.truncate(size)
    before = device.agent.resident_bytes()
    error = device.refuse(admin, "file_download", {"path": f"{path}/large", **payload})
    assert error == f"File is too large: {size} bytes, limit {limit} bytes."
    assert device.agent.resident_bytes() - before < 8 << 20, "it need not be read for that"


def test_what_cannot_be_downloaded_is_an_error_and_no_hang(device, admin, folder):
    path, place = folder
    os.mkfifo(place / "fifo")
    (place / "zero").symlink_to("/dev/zero")
    (place / "loop").symlink_to("loop")
    assert device.refuse(admin, "file_download", {"path": " \n"}) == "Path cannot be empty."
    assert device.refuse(admin, "file_download", {"path": 5}) == "Path cannot be empty."
    for name in ("none", "fifo", "zero", "loop", "."):
        error = device.refuse(admin, "file_download", {"path": f"{path}/{name}"})
        assert error != "" and str(device.mac.root) not in error, error


def test_an_upload_makes_the_folders_that_are_missing(device, admin, folder, upload):
    path, place = folder
    content = os.urandom(100_000)
    target = f"{path}/nowy folder/ścieżka/plik.bin"
    result = device.run(admin, "file_upload", {
        "target_path": f" {target} ", "content_base64": encoded(content)})
    assert (place / "nowy folder/ścieżka/plik.bin").read_bytes() == content
    assert (result["target_path"], result["size_bytes"]) == (target, 100_000)


@pytest.mark.parametrize("target, content", [
    ("", b"x"), (" \t\n", b"x"), (None, b"x"), (17, b"x"),
    ("/tmp/x", None), ("/tmp/x", 17), ("/tmp/x", "QUJD\nREVG"), ("/tmp/x", "QUJD\r\n"),
    ("/tmp/x", " QUJD"), ("/tmp/x", "-_-_"), ("/tmp/x", "QUI"), ("/tmp/x", "QUI=="),
    ("/tmp/x", "QUJ="), ("/tmp/x", "===="), ("/tmp/x", "QUJDRA"), ("/tmp/x", "QU=JD"),
])
def test_an_upload_without_target_or_content_is_refused(device, upload, target, content):
    assert upload(target, content, overwrite=True) == "Target path and content are required."


def test_a_file_that_exists_is_replaced_only_on_request(device, folder, upload):
    path, place = folder
    file = place / "file"
    file.write_text("old")
    file.chmod(0o640)
    assert upload(f"{path}/file", b"new") == f"File already exists: {path}/file"
    assert upload(f"{path}/file", b"new", overwrite="no") == f"File already exists: {path}/file"
    assert file.read_text() == "old"
    with file.open() as reader:
        assert upload(f"{path}/file", b"newer", overwrite="YES") is None
        assert reader.read() == "old", "who was reading goes on reading what was there"
    assert file.read_text() == "newer"
    assert file.stat().st_mode & 0o7777 == 0o640
    assert [entry.name for entry in place.iterdir()] == ["file"]


def test_an_empty_upload_makes_an_empty_file(folder, upload):
    path, place = folder
    assert upload(f"{path}/empty", "") is None
    assert (place / "empty").read_bytes() == b""


@pytest.mark.parametrize("target, payload", [
    ("folder", {"overwrite": True}),
    ("file/below", {}),
    ("missing/file", {"create_directories": False}),
    ("n" * 300, {}),
], ids=["folder", "below a file", "no folder", "long name"])
def test_an_upload_that_fails_leaves_nothing_behind(device, folder, upload, target, payload):
    path, place = folder
    (place / "folder").mkdir()
    (place / "file").write_text("kept")
    before = sorted(str(entry) for entry in place.rglob("*"))
    error = upload(f"{path}/{target}", b"content", **payload)
    assert error and str(device.mac.root) not in error, error
    assert sorted(str(entry) for entry in place.rglob("*")) == before
    assert (place / "file").read_text() == "kept"


@root_only
def test_a_full_disk_keeps_the_old_file_and_nothing_else(device, folder, upload):
    path, place = folder
    mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=64k", "tmpfs", place],
                             capture_output=True, check=False)
    if mounted.returncode != 0:
        pytest.skip(f"no right to mount here: {mounted.stderr.decode()}")
    try:
        (place / "file").write_text("old")
        error = upload(f"{path}/file", os.urandom(200_000), overwrite=True)
        assert "No space left on device" in error and str(device.mac.root) not in error
        assert [entry.name for entry in place.iterdir()] == ["file"]
        assert (place / "file").read_text() == "old"
        assert upload(f"{path}/small", b"x" * 1000) is None
    finally:
        subprocess.run(["umount", "-l", place], check=True)


def test_what_was_uploaded_comes_back_the_same(device, admin, folder, upload):
    path, _ = folder
    content = os.urandom(3_000_001)
    assert upload(f"{path}/both ways", content) is None
    result = device.run(admin, "file_download", {"path": f"{path}/both ways"})
    assert base64.b64decode(result["content_base64"]) == content
