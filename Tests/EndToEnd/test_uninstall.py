"""The uninstall job on a sample Mac: everything of the product goes, nothing else does."""

from __future__ import annotations

import os
import shlex
import sys
import time
from pathlib import Path
from typing import Callable, Iterator

import pytest

_TESTS = Path(__file__).resolve().parents[1]
sys.path.insert(0, str(_TESTS / "SampleMac"))

from samplemac import SampleMac  # noqa: E402

# A unit test compares the agent's own text with it.
JOB = (_TESTS / "Golden/uninstall-job.sh").read_text()
LOG = "/private/tmp/wsparo-brenvox-uninstall.log"

DAEMONS = ("pl.brenvox.wsparo.daemon", "pl.dalvenor.orvdesk.viewer.daemon")
AGENTS = ("pl.brenvox.wsparo.menubar", "pl.dalvenor.orvdesk.viewer.menubar")
JOB_FILES = (*(f"/Library/LaunchDaemons/{label}.plist" for label in DAEMONS),
             *(f"/Library/LaunchAgents/{label}.plist" for label in AGENTS))
FOLDERS = ("/Applications/Wsparo Brenvox.app", "/Applications/Wsparo Brenvox.localized",
           "/Applications/Wsparbox.app", "/Applications/Orv-Viewer.app",
           "/Applications/Centrum Wsparo Brenvox.app",
           "/Library/Application Support/Wsparo Brenvox",
           "/Library/Application Support/Orv-Desk Viewer", "/Library/Logs/Wsparo Brenvox")
RECEIPTS = ("pl.dalvenor.orvdesk.viewer", "pl.brenvox.wsparo")

# So alike that a careless pattern would take them, too.
NEIGHBOURS = ("/Applications/Wsparo Brenvox 2.app/x", "/Applications/Wsparo Brenvox.app.old/x",
              "/Applications/Wsparo/x", "/Library/Logs/Wsparo Brenvox 2/x",
              "/Applications/Brenvox.app/x", "/Library/Application Support/Wsparo/x",
              "/Library/Application Support/Brenvox/x", "/Library/Logs/Wsparo/x",
              "/Library/LaunchDaemons/pl.brenvox.wsparo.daemon2.plist",
              "/Library/LaunchDaemons/pl.brenvox.wsparo.updater.plist",
              "/Library/LaunchAgents/pl.brenvox.plist",
              "/private/var/db/receipts/pl.brenvox.wsparo2.plist",
              "/Users/Shared/Wsparo Brenvox/remote-chat/a.1.b.outgoing.json",
              "/Users/anna/Library/Application Support/Wsparo Brenvox/x")

inside = pytest.mark.skipif(os.geteuid() != 0, reason="needs root to enter the sample Mac")


def until(condition: Callable[[], object], seconds: float = 10.0) -> None:
    end = time.monotonic() + seconds
    while not condition():
        assert time.monotonic() < end, "it never came true"
        time.sleep(0.01)


@pytest.fixture
def installed(tmp_path: Path) -> Iterator[SampleMac]:
    """A Mac with everything that the product ever put on one, and its neighbours."""
    with SampleMac(tmp_path / "it's a Mac", entered=os.geteuid() == 0) as mac:
        for folder in FOLDERS:
            write(mac, f"{folder}/Contents/deep/file")
            mac.place(f"{folder}/link").symlink_to("/Applications")
        for path in NEIGHBOURS:
            write(mac, path)
        for receipt in RECEIPTS:
            write(mac, f"/private/var/db/receipts/{receipt}.plist")
            write(mac, f"/private/var/db/receipts/{receipt}.bom")
        for path in JOB_FILES:
            mac.write_job(path, {"Label": Path(path).stem, "RunAtLoad": True, "KeepAlive": True,
                                 "ProgramArguments": ["/bin/sleep", "1000"]})
        mac.replace_tool("/bin/sleep", 'case $1 in 2) exit 0;; esac\nexec "$real/sleep" "$@"\n')
        yield mac


def write(mac: SampleMac, path: str) -> None:
    mac.place(path).parent.mkdir(parents=True, exist_ok=True)
    mac.place(path).write_text(path)


def content(mac: SampleMac) -> dict[str, str]:
    """Every file and folder of the Mac, but not what its launchd and the log keep."""
    found = {}
    for folder, folders, files in os.walk(mac.root):
        folders[:] = [name for name in folders if os.path.join(folder, name) != str(mac.sample)]
        for name in (*folders, *files):
            place = os.path.join(folder, name)
            found["/" + os.path.relpath(place, mac.root)] = (
                Path(place).read_text(errors="replace")
                if os.path.isfile(place) and not os.path.islink(place) else "")
    found.pop(LOG, None)
    return found


def is_listed(path: str) -> bool:
    receipts = [f"/private/var/db/receipts/{name}.{kind}"
                for name in RECEIPTS for kind in ("plist", "bom")]
    return path in (*JOB_FILES, *receipts) or any(
        path == folder or path.startswith(f"{folder}/") for folder in FOLDERS)


def uninstall(mac: SampleMac) -> None:
    """Runs the job and waits for its last step: the shell itself returns at once."""
    if mac.entered:
        done = mac.enter("/bin/bash", "-c", JOB)
    else:
        there = JOB.replace("mac=''", f"mac={shlex.quote(str(mac.root))}", 1)
        done = mac.run("/bin/bash", "-c", there)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    wait_for_the_end(mac)


def wait_for_the_end(mac: SampleMac) -> None:
    until(lambda: any(call.arguments == ("--forget", "pl.brenvox.wsparo")
                      for call in mac.tool_calls("pkgutil")))


def load_everything(mac: SampleMac) -> None:
    for path in JOB_FILES:
        domain = "system" if "Daemons" in path else "gui/501"
        loaded = mac.launchctl("bootstrap", domain, path)
        assert loaded.returncode == 0, loaded.stderr
    mac.forget_calls()


def steps(mac: SampleMac) -> list[tuple[str, ...]]:
    return [(call.tool, *call.arguments) for call in mac.tool_calls()
            if call.tool in ("sleep", "launchctl", "pkgutil") and call.arguments != ("1000",)]


STEPS = [
    ("sleep", "2"),
    *(("launchctl", "bootout", "system", path) for path in JOB_FILES[:2]),
    *(("launchctl", "bootout", "gui/501", path) for path in JOB_FILES[2:]),
    *(("pkgutil", "--forget", receipt) for receipt in RECEIPTS),
]


@inside
def test_everything_listed_goes_and_nothing_else(installed: SampleMac) -> None:
    load_everything(installed)
    before = content(installed)
    uninstall(installed)
    until(lambda: not any(is_listed(path) for path in content(installed)))
    assert content(installed) == {
        path: text for path, text in before.items() if not is_listed(path)}
    assert steps(installed) == STEPS
    for domain, labels in (("system", DAEMONS), ("gui/501", AGENTS)):
        for label in labels:
            assert installed.launchctl("print", f"{domain}/{label}").returncode == 113
    assert "Forgot package 'pl.brenvox.wsparo'" in installed.place(LOG).read_text()
    assert installed.place(LOG).stat().st_mode & 0o777 == 0o600


@inside
def test_the_job_outlives_the_daemon_that_started_it(installed: SampleMac) -> None:
    """launchd kills what is left of a job's process group: only another session escapes."""
    daemon = installed.place("/Library/Application Support/Wsparo Brenvox/agent")
    daemon.write_text("#!/usr/bin/python3\nimport subprocess, time\nsubprocess.run(\n"
                      f"    ['/bin/bash', '-c', {JOB!r}], start_new_session=True)\n"
                      "time.sleep(1000)\n")
    daemon.chmod(0o755)
    installed.write_job(JOB_FILES[0], {
        "Label": DAEMONS[0], "RunAtLoad": True, "KeepAlive": True,
        "ProgramArguments": ["/Library/Application Support/Wsparo Brenvox/agent"]})
    installed.launchctl("bootstrap", "system", JOB_FILES[0])
    wait_for_the_end(installed)
    until(lambda: not any(is_listed(path) for path in content(installed)))


@inside
def test_nobody_logged_in(installed: SampleMac) -> None:
    installed.log_out()
    installed.forget_calls()
    uninstall(installed)
    assert steps(installed) == [step for step in STEPS if "gui/501" not in step]
    until(lambda: not any(is_listed(path) for path in content(installed)))


def test_every_failure_is_ignored(installed: SampleMac) -> None:
    for tool in ("/bin/launchctl", "/usr/bin/stat", "/usr/sbin/pkgutil"):
        installed.break_tool(tool, error="nothing works today\n")
    for path in (JOB_FILES[0], JOB_FILES[3]):
        installed.place(path).unlink()
    before = content(installed)
    uninstall(installed)
    receipts = "/private/var/db/receipts/"
    assert content(installed) == {path: text for path, text in before.items()
                                  if not is_listed(path) or path.startswith(receipts)}
    assert installed.place(LOG).read_text().count("nothing works today") >= 4


def test_from_outside_it_stays_below_the_root(installed: SampleMac) -> None:
    if installed.entered:
        installed.entered = False
    before = content(installed)
    uninstall(installed)
    until(lambda: not any(is_listed(path) for path in content(installed)))
    assert content(installed) == {
        path: text for path, text in before.items() if not is_listed(path)}


def test_the_log_of_an_earlier_run_is_kept(installed: SampleMac) -> None:
    installed.place(LOG).write_text("an earlier run\n")
    uninstall(installed)
    assert installed.place(LOG).read_text().startswith("an earlier run\n")
    until(lambda: "Forgot package 'pl.brenvox.wsparo'" in installed.place(LOG).read_text())


@pytest.mark.parametrize("kind", ["link", "dangling link", "link to a folder", "hard link", "pipe",
                                  "folder"])
def test_what_somebody_planted_at_the_logs_place_is_not_written(
        installed: SampleMac, kind: str) -> None:
    secret = installed.place("/private/var/root/secret")
    secret.write_text("secret")
    folder = installed.place("/private/var/root/folder")
    folder.mkdir()
    log = installed.place(LOG)
    {"link": lambda: log.symlink_to("../var/root/secret"),
     "dangling link": lambda: log.symlink_to("../var/root/folder/new"),
     "link to a folder": lambda: log.symlink_to("../var/root/folder"),
     "hard link": lambda: os.link(secret, log),
     "pipe": lambda: os.mkfifo(log),
     "folder": lambda: (log / "deep").mkdir(parents=True)}[kind]()
    uninstall(installed)
    until(lambda: log.is_file() and "Forgot package 'pl.brenvox.wsparo'" in log.read_text())
    assert not log.is_symlink()
    assert secret.read_text() == "secret"
    assert list(folder.iterdir()) == []
    assert [place.name for place in log.parent.iterdir()] == [log.name]


def test_a_consultant_takes_the_agent_off_the_mac(agent, admin, mac, device_uid) -> None:
    """The agent's own text, below the agent's own root, which it reports before it ends."""
    agent.wait_for_log("Heartbeat sent successfully.")
    admin.wait_until_connected(device_uid)
    folder = mac.place("/Library/Application Support/Wsparo Brenvox")
    command = admin.run_command(device_uid, "client_uninstall")
    assert [step["status"] for step in command["history"]][-2:] == ["picked_up", "uninstall_started"]
    assert command["result"]["uninstall_started"] is True
    agent.wait_for_log("[INFO] Wsparo Brenvox macOS self-uninstall was scheduled.")
    agent.stop()
    wait_for_the_end(mac)
    assert not folder.exists()
    assert mac.place("/Applications/Firefox.app").exists()
    assert ("bootout", "system", str(mac.place(JOB_FILES[0]))) in [
        call.arguments for call in mac.tool_calls("launchctl")]
