"""The package on a sample Mac: its own scripts run, launchd starts what it installs, and what users and
the agent have written survives upgrades."""

from __future__ import annotations

import json
import os
import plistlib
import shutil
import subprocess
import time
from pathlib import Path
from typing import Callable, Iterator

import pytest

from samplemac import SampleMac
from test_content import APP, DAEMON_JOB, MENU_BAR_JOB, SUPPORT, version

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="needs root to enter the sample Mac")

SETTINGS = f"{SUPPORT}/wsparo.settings.json"
STATE = f"{SUPPORT}/wsparo.state.json"
PROFILE = "/Library/Managed Preferences/pl.brenvox.wsparo.plist"
DAEMON = "system/pl.brenvox.wsparo.daemon"
MENU_BAR = "gui/501/pl.brenvox.wsparo.menubar"
STARTED = "Wsparo Brenvox macOS daemon started."

# Nobody listens there: the agent goes on trying.
GIVEN = {"serverBaseUrl": "https://localhost:9", "viewerToken": "żeton", "auditIntervalMinutes": 60,
         "heartbeatIntervalSeconds": 300, "commandPollIntervalSeconds": 30,
         "chatPollIntervalSeconds": 2, "controlReconnectMaxSeconds": 60,
         "notificationsEnabled": True}


@pytest.fixture
def mac(tmp_path: Path) -> Iterator[SampleMac]:
    with SampleMac(tmp_path / "mac", entered=True) as own:
        own.set_throttle(0.2)
        yield own


@pytest.fixture
def package(mac: SampleMac, twin_file: Path) -> Path:
    """The package where somebody has downloaded it to, on the Mac."""
    place = mac.place("/Users/anna/Downloads") / twin_file.name
    place.parent.mkdir()
    shutil.copy(twin_file, place)
    return place


def until(look: Callable[[], object], what: str, seconds: float = 20.0) -> None:
    end = time.monotonic() + seconds
    while not look():
        assert time.monotonic() < end, f"no {what}"
        time.sleep(0.02)


def install(mac: SampleMac, package: Path) -> subprocess.CompletedProcess:
    return mac.run("/usr/sbin/installer", "-pkg", str(package), "-target", "/")


def installed(mac: SampleMac, package: Path) -> None:
    done = install(mac, package)
    assert done.returncode == 0, done.stdout + done.stderr


def give_settings_beside(package: Path, **values: object) -> None:
    (package.parent / "wsparo.settings.json").write_text(json.dumps({**GIVEN, **values}))


def is_running(mac: SampleMac, target: str) -> bool:
    return "\n\tstate = running\n" in mac.launchctl("print", target).stdout


def starts(mac: SampleMac) -> int:
    return mac.read_log().count(STARTED)


def works(mac: SampleMac, count: int = 1) -> None:
    """The agent has been started so often, and runs."""
    until(lambda: starts(mac) >= count, f"start number {count}")
    assert starts(mac) == count
    assert is_running(mac, DAEMON)


def mode_and_owner(mac: SampleMac, path: str) -> tuple[int, int, int]:
    status = mac.place(path).lstat()
    return status.st_mode & 0o7777, status.st_uid, status.st_gid


def asked_of_launchd(mac: SampleMac) -> list[tuple[str, ...]]:
    """About our own services: the agent's inventory asks about those of others at any time."""
    return [call.arguments for call in mac.tool_calls("launchctl")
            if "pl.brenvox.wsparo" in call.arguments[-1]]


def read_settings(mac: SampleMac) -> dict:
    return json.loads(mac.place(SETTINGS).read_text())


def test_a_fresh_mac_has_a_running_agent_afterwards(mac: SampleMac, package: Path) -> None:
    give_settings_beside(package)
    installed(mac, package)
    works(mac)
    assert is_running(mac, MENU_BAR) or mac.launchctl("print", MENU_BAR).returncode == 0
    for path, mode in {SUPPORT: 0o755, f"{SUPPORT}/runtime": 0o1777, f"{SUPPORT}/updates": 0o755,
                       "/Library/Logs/Wsparo Brenvox": 0o755, "/Users/Shared/Wsparo Brenvox": 0o755,
                       "/Users/Shared/Wsparo Brenvox/remote-chat": 0o777, SETTINGS: 0o644,
                       f"{SUPPORT}/WsparoAgent": 0o755, DAEMON_JOB: 0o644,
                       MENU_BAR_JOB: 0o644}.items():
        assert mode_and_owner(mac, path) == (mode, 0, 0), path
    assert read_settings(mac) == GIVEN
    for program in (f"{SUPPORT}/WsparoAgent", f"{APP}/Contents/MacOS/Wsparo Brenvox"):
        assert mac.enter(program, "--version").stdout == f"{version()}\n"
    assert "pl.brenvox.wsparo" in mac.run("/usr/sbin/pkgutil", "--pkgs").stdout
    assert not [name for name in os.listdir(mac.place(SUPPORT)) if name.startswith(".")]


def test_an_upgrade_keeps_settings_and_state_and_restarts_once(
        mac: SampleMac, package: Path) -> None:
    give_settings_beside(package)
    mac.place(SUPPORT).mkdir(parents=True, exist_ok=True)
    mac.place(STATE).write_text('{"supportId": "WB-1"}')
    installed(mac, package)
    works(mac)
    own = {**GIVEN, "serverBaseUrl": "https://localhost:8"}
    mac.place(SETTINGS).write_text(json.dumps(own))
    job = plistlib.loads(mac.place(DAEMON_JOB).read_bytes())
    mac.write_job(DAEMON_JOB, {**job, "ProcessType": "Interactive"})
    mac.forget_calls()

    installed(mac, package)
    works(mac, 2)
    assert read_settings(mac)["serverBaseUrl"] == own["serverBaseUrl"]
    assert mac.read_state()["supportId"] == "WB-1"
    assert plistlib.loads(mac.place(DAEMON_JOB).read_bytes()) == job
    asked = [arguments for arguments in asked_of_launchd(mac)
             if "pl.brenvox.wsparo.daemon" in arguments[-1] and arguments[0] != "print"]
    assert asked == [("bootout", DAEMON), ("enable", DAEMON), ("bootstrap", "system", DAEMON_JOB)]


def test_during_an_update_the_update_restarts(mac: SampleMac, package: Path) -> None:
    give_settings_beside(package)
    installed(mac, package)
    works(mac)
    mac.show_service("system", "pl.brenvox.wsparo.updater")
    downloaded = mac.place(f"{SUPPORT}/updates/{package.name}")
    shutil.copy(package, downloaded)
    mac.forget_calls()
    installed(mac, downloaded)
    assert asked_of_launchd(mac) == [("print", "system/pl.brenvox.wsparo.updater")]
    works(mac, 1)


@pytest.mark.parametrize("where, state", [("updates", "not running"), ("elsewhere", "running")])
def test_an_update_that_does_not_install_this_package_does_not_restart_it(
        mac: SampleMac, package: Path, where: str, state: str) -> None:
    give_settings_beside(package)
    installed(mac, package)
    works(mac)
    mac.show_service("system", "pl.brenvox.wsparo.updater", state)
    if where == "updates":
        package = Path(shutil.copy(package, mac.place(f"{SUPPORT}/updates")))
    installed(mac, package)
    works(mac, 2)


def test_a_profile_gives_the_first_settings(mac: SampleMac, package: Path) -> None:
    mac.place(PROFILE).parent.mkdir(exist_ok=True)
    mac.place(PROFILE).write_bytes(plistlib.dumps(GIVEN, fmt=plistlib.FMT_BINARY))
    installed(mac, package)
    works(mac)
    assert read_settings(mac) == GIVEN


def test_a_file_beside_the_package_comes_before_a_profile(mac: SampleMac, package: Path) -> None:
    mac.place(PROFILE).parent.mkdir(exist_ok=True)
    mac.place(PROFILE).write_bytes(plistlib.dumps({**GIVEN, "viewerToken": "profile"}))
    give_settings_beside(package)
    installed(mac, package)
    assert read_settings(mac)["viewerToken"] == GIVEN["viewerToken"]


def test_what_the_predecessor_left_is_the_agents_to_take_over(mac: SampleMac, package: Path) -> None:
    legacy = mac.place("/Library/Application Support/Orv-Desk Viewer/viewer.settings.json")
    legacy.parent.mkdir()
    legacy.write_text(json.dumps({**GIVEN, "viewerToken": "legacy"}))
    give_settings_beside(package)
    installed(mac, package)
    works(mac)
    until(lambda: mac.place(SETTINGS).exists(), "settings")
    assert read_settings(mac)["viewerToken"] == "legacy"


def test_without_settings_the_files_are_there_and_the_job_waits(mac: SampleMac, package: Path) -> None:
    installed(mac, package)
    assert not mac.place(SETTINGS).exists()
    assert mac.launchctl("print", DAEMON).returncode == 0
    mac.write_settings(**GIVEN)
    works(mac)
    errors = mac.read_log("wsparo-daemon.err.log")
    assert errors.startswith("Wsparo Brenvox daemon failed: ")


def test_a_damaged_profile_fails_and_leaves_no_settings(mac: SampleMac, package: Path) -> None:
    mac.place(PROFILE).parent.mkdir(exist_ok=True)
    mac.place(PROFILE).write_text("no list")
    assert install(mac, package).returncode == 1
    assert not mac.place(SETTINGS).exists()
    assert not [name for name in os.listdir(mac.place(SUPPORT)) if name.startswith(".settings")]


def test_the_application_becomes_the_companion(mac: SampleMac, package: Path) -> None:
    give_settings_beside(package)
    installed(mac, package)
    companion = mac.place(f"{APP}/Contents/MacOS/wsparo")
    companion.unlink()  # it runs, watching for messages
    companion.write_text('#!/bin/sh\necho "$@"\n')
    companion.chmod(0o755)
    application = f"{APP}/Contents/MacOS/Wsparo Brenvox"
    for arguments in (("--menubar",), ()):
        assert mac.enter(application, *arguments).stdout == "chat watch\n"
    companion.unlink()
    missing = mac.enter(application, "--menubar")
    assert missing.returncode == 1
    assert missing.stderr == f"{APP}/Contents/MacOS/wsparo: No such file or directory\n"


def test_nobody_logged_in(mac: SampleMac, package: Path) -> None:
    mac.log_out()
    mac.forget_calls()
    give_settings_beside(package)
    installed(mac, package)
    works(mac)
    assert not any("gui/" in word for call in mac.tool_calls("launchctl") for word in call.arguments)


def test_links_planted_in_shared_folders_are_not_followed(mac: SampleMac, package: Path) -> None:
    precious = mac.place("/Library/precious")
    precious.mkdir(0o700)
    shared = mac.place("/Users/Shared/Wsparo Brenvox")
    shared.mkdir()
    (shared / "remote-chat").symlink_to("/Library/precious")
    os.chown(shared, 501, 20)
    give_settings_beside(package)
    installed(mac, package)
    assert mode_and_owner(mac, "/Library/precious")[0] == 0o700
    assert mode_and_owner(mac, "/Users/Shared/Wsparo Brenvox/remote-chat") == (0o777, 0, 0)
    assert mode_and_owner(mac, "/Users/Shared/Wsparo Brenvox") == (0o755, 0, 0)


@pytest.mark.parametrize("tool, answer, reason", [
    ("/usr/bin/sw_vers", "12.7.6\n", "needs macOS 13 or newer, this is 12.7.6"),
    ("/usr/bin/uname", "x86_64\n", "needs a Mac with Apple silicon")])
def test_a_mac_that_cannot_run_it_is_refused_before_anything_changes(
        mac: SampleMac, package: Path, tool: str, answer: str, reason: str) -> None:
    mac.replace_tool(tool, output=answer)
    done = install(mac, package)
    assert done.returncode == 1 and reason in done.stdout + done.stderr
    assert not mac.place(SUPPORT).exists() and not mac.place(APP).exists()


def test_a_job_that_is_still_ending_is_waited_for(mac: SampleMac, package: Path) -> None:
    mac.replace_tool("/bin/sleep", 'case $1 in 1) exit 0;; esac\nexec "$real/sleep" "$@"\n')
    mac.break_tool("/bin/launchctl", 5, "Bootstrap failed: 5: Input/output error\n")
    give_settings_beside(package)
    assert install(mac, package).returncode == 1
    tried = [call for call in mac.tool_calls("launchctl")
             if call.arguments[:2] == ("bootstrap", "system")]
    assert len(tried) == 10
    mac.mend_tool("/bin/launchctl")
    installed(mac, package)
    works(mac)


def test_the_uninstaller_leaves_what_was_there_before(mac: SampleMac, package: Path) -> None:
    mac.place("/usr/local/bin").mkdir(parents=True, exist_ok=True)
    before = content(mac)
    give_settings_beside(package)
    installed(mac, package)
    works(mac)
    mac.replace_tool("/bin/sleep", 'case $1 in 2) exit 0;; esac\nexec "$real/sleep" "$@"\n')
    done = mac.enter(f"{SUPPORT}/uninstall")
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout.startswith("Wsparo Brenvox został odinstalowany.")
    for target in (DAEMON, MENU_BAR):
        assert mac.launchctl("print", target).returncode == 113
    left = content(mac) - before
    assert left <= {"/Users/Shared/Wsparo Brenvox", "/Users/Shared/Wsparo Brenvox/remote-chat",
                    "/private/tmp/wsparo-brenvox-uninstall.log", "/usr/local/share",
                    "/usr/local/share/man", "/usr/local/share/man/man1",
                    f"/Users/anna/Downloads/wsparo.settings.json"}
    assert before <= content(mac)


def test_only_root_uninstalls(mac: SampleMac, package: Path) -> None:
    give_settings_beside(package)
    installed(mac, package)
    done = mac.enter("/.sample/real/setpriv", "--reuid", "501", "--clear-groups",
                     f"{SUPPORT}/uninstall")
    assert done.returncode == 1
    assert "Odinstalowanie wymaga uprawnień administratora" in done.stderr
    works(mac)


def content(mac: SampleMac) -> set[str]:
    """Every path of the Mac, but not what its launchd keeps."""
    found = set()
    for folder, folders, files in os.walk(mac.root):
        folders[:] = [name for name in folders if os.path.join(folder, name) != str(mac.sample)]
        found |= {"/" + os.path.relpath(os.path.join(folder, name), mac.root)
                  for name in (*folders, *files)}
    return found
