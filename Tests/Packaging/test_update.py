"""An update by the updater script with a package of the real layout and scripts: from the agent itself
to stand-ins that answer with another version, and back when they do not run."""

from __future__ import annotations

import os
import plistlib
import shutil
import sys
from pathlib import Path
from typing import Iterator

import pytest

from package_reader import Package
from test_content import APP, DAEMON_JOB, SUPPORT, version
from test_installation import GIVEN, install, is_running, starts, until

_REPOSITORY = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(_REPOSITORY / "Tests/EndToEnd"), str(_REPOSITORY / "Helpdesk")]

from helpdesk.process import HelpdeskProcess  # noqa: E402
from update_agent import NEW as NEWER_BUILD, AgentMac, agent_program, expect_installed  # noqa: E402
from update_mac import DAEMON_TARGET, JOB, LOG, UPDATER_TARGET, UpdateMac, program  # noqa: E402

from flatpackage.__main__ import main as flatpackage  # noqa: E402

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="needs root to enter the sample Mac")

_SCRIPTS = _REPOSITORY / "Packaging/scripts"
NEW = "0.3.0"
OFFERED = "/private/var/tmp/offered.pkg"  # what a download gives


def repacked(twin: Path, folder: Path, offered: str, **programs: str | bytes) -> bytes:
    """The package with other programs, `daemon` and `app`, in the same places."""
    root = folder / "root"
    shutil.copytree(twin.parent / "package-root", root, symlinks=True)
    contents = {f"{SUPPORT}/WsparoAgent": programs.get("daemon"),
                f"{APP}/Contents/MacOS/Wsparo Brenvox": programs.get("app")}
    for path, content in contents.items():
        content = content or program(offered)
        (root / path.lstrip("/")).write_bytes(
            content if isinstance(content, bytes) else content.encode())
    bundle = root / f"{APP}/Contents/Info.plist".lstrip("/")
    bundle.write_bytes(plistlib.dumps({**plistlib.loads(bundle.read_bytes()),
                                       "CFBundleShortVersionString": offered}))
    package = folder / "new.pkg"
    assert flatpackage([str(root), str(_SCRIPTS), "pl.brenvox.wsparo", offered, str(package)]) == 0
    return package.read_bytes()


@pytest.fixture
def mac(tmp_path: Path, twin_file: Path, monkeypatch: pytest.MonkeyPatch) -> Iterator[UpdateMac]:
    """The agent of this build, installed by its package, and running."""
    monkeypatch.setenv("SOURCE_DATE_EPOCH", "1767225600")
    no_authorities = tmp_path / "ca.pem"
    no_authorities.touch()
    with UpdateMac(tmp_path / "mac", str(no_authorities)) as own:
        own.hurry()
        own.replace_tool("/usr/bin/curl", f'"$real/cp" "$root{OFFERED}" "$root{SUPPORT}/updates/'
                         f'Wsparo-Brenvox-macOS-{NEW}.pkg"\n')
        own.write_settings(**GIVEN)
        done = install(own, twin_file)
        assert done.returncode == 0, done.stderr
        until(lambda: starts(own) == 1, "start")
        own.forget_calls()
        yield own


def update(mac: UpdateMac, content: bytes) -> list[tuple[str, ...]]:
    """Runs the updater's job to its end; what it had launchd do with the daemon."""
    mac.place(OFFERED).write_bytes(content)
    mac.write_script(url="https://localhost/new.pkg", content=content)
    mac.launchctl("bootstrap", "system", JOB)
    mac.wait_until(lambda: not is_running(mac, UPDATER_TARGET), "end of the update")
    return [call.arguments for call in mac.tool_calls("launchctl")
            if "pl.brenvox.wsparo.daemon" in call.arguments[-1] and call.arguments[0] != "print"]


def test_an_update_with_the_real_package_restarts_the_agent_once(
        mac: UpdateMac, twin_file: Path, tmp_path: Path) -> None:
    asked = update(mac, repacked(twin_file, tmp_path, NEW))
    assert mac.status()["phase"] == "installed", mac.read_log(LOG)
    assert asked == [("kickstart", "-k", DAEMON_TARGET)]
    mac.assert_works(NEW)
    mac.assert_tidy()
    assert mac.place(f"{SUPPORT}/wsparo.settings.json").exists()


def test_an_update_that_does_not_run_brings_the_agent_back(
        mac: UpdateMac, twin_file: Path, tmp_path: Path) -> None:
    update(mac, repacked(twin_file, tmp_path, NEW, daemon=program(NEW, "exit 1\n")))
    status = mac.status()
    assert status["phase"] == "failed" and "Przywrócono poprzednią wersję" in status["message"]
    for path in (f"{SUPPORT}/WsparoAgent", f"{APP}/Contents/MacOS/Wsparo Brenvox"):
        assert mac.place(path).read_bytes() == Package(twin_file).content(path)
        assert mac.enter(path, "--version").stdout == f"{version()}\n"
    assert plistlib.loads(mac.place(DAEMON_JOB).read_bytes())["KeepAlive"] is True
    until(lambda: starts(mac) >= 2, "another start")
    assert is_running(mac, DAEMON_TARGET)


def test_the_helpdesk_sees_the_build_that_the_real_package_brought(
        twin_file: Path, tmp_path: Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("SOURCE_DATE_EPOCH", "1767225600")
    content = repacked(twin_file, tmp_path, NEWER_BUILD, daemon=agent_program(NEWER_BUILD))
    with HelpdeskProcess(tmp_path / "desk") as desk, desk.client() as admin, \
            AgentMac(tmp_path / "mac", desk, "packaged") as own:
        own.start()
        admin.wait_until_connected(own.uid)
        admin.publish_package(content, NEWER_BUILD)
        assert admin.run_command(own.uid, "client_update")["result"]["update_started"] is True
        expect_installed(own, admin, "command")
