"""What the package holds and what it says of it; the same whatever machine its programs are for."""

from __future__ import annotations

import plistlib
import re
import stat
import subprocess
from pathlib import Path

from package_reader import Listed, Package

_REPOSITORY = Path(__file__).resolve().parents[2]

SUPPORT = "/Library/Application Support/Wsparo Brenvox"
APP = "/Applications/Wsparo Brenvox.app"
DAEMON_JOB = "/Library/LaunchDaemons/pl.brenvox.wsparo.daemon.plist"
MENU_BAR_JOB = "/Library/LaunchAgents/pl.brenvox.wsparo.menubar.plist"

COMPANION = f"{APP}/Contents/MacOS/wsparo"
MANUAL = f"{APP}/Contents/Resources/man/man1/wsparo.1"

FOLDERS = ("/", "/Applications", APP, f"{APP}/Contents", f"{APP}/Contents/MacOS", f"{APP}/Contents/Resources",
           f"{APP}/Contents/Resources/man", f"{APP}/Contents/Resources/man/man1", "/Library",
           "/Library/Application Support", SUPPORT, "/Library/LaunchAgents", "/Library/LaunchDaemons",
           "/usr", "/usr/local", "/usr/local/bin", "/usr/local/share", "/usr/local/share/man",
           "/usr/local/share/man/man1")
PROGRAMS = (f"{APP}/Contents/MacOS/Wsparo Brenvox", COMPANION, f"{SUPPORT}/WsparoAgent", f"{SUPPORT}/uninstall")
FILES = (f"{APP}/Contents/Info.plist", DAEMON_JOB, MENU_BAR_JOB, MANUAL)
LINKS = {"/usr/local/bin/wsparo": COMPANION, "/usr/local/share/man/man1/wsparo.1": MANUAL}

OF_ADMINISTRATORS = {"/Applications": 0o775, "/Library/Application Support": 0o755}


def version() -> str:
    found = re.search(r"project\(Wsparo VERSION (\S+)", (_REPOSITORY / "CMakeLists.txt").read_text())
    assert found
    return found[1]


def test_the_package_is_named_by_the_build(twin: Package) -> None:
    assert twin.file.name == f"Wsparo-Brenvox-macOS-{version()}.pkg"
    information = twin.information()
    assert information.get("identifier") == "pl.brenvox.wsparo"
    assert information.get("version") == version()
    assert information.get("auth") == "root" and information.get("relocatable") == "false"
    assert [one.tag for one in information.find("scripts")] == ["preinstall", "postinstall"]
    assert twin.members() == ["Bom", "Payload", "Scripts", "PackageInfo"]
    assert int(information.find("payload").get("numberOfFiles")) == len(twin.payload())


def test_exactly_these_files_are_installed(twin: Package) -> None:
    assert set(twin.payload()) == {*FOLDERS, *PROGRAMS, *FILES, *LINKS}


def test_everything_belongs_to_root_and_only_root_writes_it(twin: Package) -> None:
    for path, listed in twin.payload().items():
        group = 80 if path in OF_ADMINISTRATORS else 0
        assert (listed.owner, listed.group) == (0, group), path
        if listed.kind == "folder":
            assert listed.mode == OF_ADMINISTRATORS.get(path, 0o755), path
        elif listed.kind == "file":
            assert listed.mode == (0o755 if path in PROGRAMS else 0o644), path


def test_the_companion_follows_the_application(twin: Package) -> None:
    """What an update backs up and an uninstallation removes; the shell's folders only point at it."""
    links = {path for path, listed in twin.payload().items() if listed.kind == "link"}
    assert links == set(LINKS)
    billed = twin.bill_of_materials()
    for link in links:
        assert billed[link].target == LINKS[link]
        assert LINKS[link] in twin.payload()


def test_the_bill_of_materials_agrees_with_the_payload(twin: Package) -> None:
    billed = twin.bill_of_materials()
    payload = twin.payload()
    assert set(billed) == set(payload)
    for path, entry in billed.items():
        listed = payload[path]
        assert (entry.kind, entry.owner, entry.group) == (listed.kind, listed.owner, listed.group)
        assert entry.kind == "link" or entry.mode == listed.mode, path
        if entry.kind != "file":
            continue
        content = twin.content(path)
        assert entry.size == len(content), path
        checked = subprocess.run(["cksum"], input=content, stdout=subprocess.PIPE, check=True)
        assert entry.checksum == int(checked.stdout.split()[0]), path


def test_the_scripts_can_be_run(twin: Package) -> None:
    scripts = {path: one for path, one in twin.scripts().items() if one.kind == "file"}
    assert scripts.keys() == {"/preinstall", "/postinstall"}
    for name, listed in scripts.items():
        assert isinstance(listed, Listed) and listed.mode & stat.S_IXUSR, name
        assert twin.content(name, "Scripts").startswith(b"#!/bin/bash\n")


def test_the_daemons_job(twin: Package) -> None:
    assert plistlib.loads(twin.content(DAEMON_JOB)) == {
        "Label": "pl.brenvox.wsparo.daemon",
        "ProgramArguments": [f"{SUPPORT}/WsparoAgent"],
        "RunAtLoad": True,
        "KeepAlive": True,
        "ThrottleInterval": 10,
        "ProcessType": "Background",
        "StandardOutPath": "/Library/Logs/Wsparo Brenvox/wsparo-daemon.out.log",
        "StandardErrorPath": "/Library/Logs/Wsparo Brenvox/wsparo-daemon.err.log",
    }


def test_the_menu_bars_job_runs_for_users_at_the_screen(twin: Package) -> None:
    job = plistlib.loads(twin.content(MENU_BAR_JOB))
    assert job["Label"] == "pl.brenvox.wsparo.menubar"
    assert job["ProgramArguments"] == [f"{APP}/Contents/MacOS/Wsparo Brenvox", "--menubar"]
    assert job["LimitLoadToSessionType"] == "Aqua" and job["RunAtLoad"] is True
    # An application that ends well has been told to.
    assert job["KeepAlive"] == {"SuccessfulExit": False}


def test_the_application_says_which_version_it_is(twin: Package) -> None:
    bundle = plistlib.loads(twin.content(f"{APP}/Contents/Info.plist"))
    assert bundle["CFBundleShortVersionString"] == version()
    assert bundle["CFBundleIdentifier"] == "pl.brenvox.wsparo"
    assert bundle["CFBundleExecutable"] == "Wsparo Brenvox"
    assert bundle["LSUIElement"] is True and bundle["LSMinimumSystemVersion"] == "13.0"


def test_the_uninstaller_speaks_the_agents_words(twin: Package) -> None:
    job = (_REPOSITORY / "Tests/Golden/uninstall-job.sh").read_text()
    _, words = job.split("mac=''\n", 1)
    assert words in twin.content(f"{SUPPORT}/uninstall").decode()
