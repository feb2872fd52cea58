"""The built agent, running under the sample Mac's launchd at its real paths, replaced by a newer
build of itself: from the order to the new version's heartbeat, and back when that does not come."""

from __future__ import annotations

import json
import os
import plistlib
from pathlib import Path
from typing import Any, Callable, Iterator

import pytest

from companion import Companion, Running, started
from helpdesk.client import HelpdeskClient
from helpdesk.process import HelpdeskProcess
from update_agent import NEW, AgentMac, agent_program, expect_installed, wait_for_heartbeat_of
from update_mac import (APP, BACKUPS, DAEMON_TARGET, DAILY_CHECK, JOB, LOG, OLD, REQUEST, RUNTIME,
                        STATUS, SUPPORT, UPDATES, package, program)
from update_outcomes import NOT_HEALTHY, WRONG_HASH, WRONG_SIZE

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="needs root to enter the sample Mac")

SLOW = {"mode": "slow", "bytes_per_second": 1000}
UNDER_WAY = "Aktualizacja jest już w toku."


@pytest.fixture
def mac(tmp_path: Path, desk, admin, request) -> Iterator[AgentMac]:
    """The old version runs, and its runtime folder is there."""
    with AgentMac(tmp_path / "mac", desk, request.node.nodeid) as sample:
        sample.start()
        admin.wait_until_connected(sample.uid)
        sample.wait_until(lambda: sample.place(RUNTIME).is_dir() or sample.place(RUNTIME).mkdir(
            mode=0o777), "runtime folder")
        yield sample


@pytest.fixture
def publish(admin, tmp_path) -> Iterator[Callable[..., int]]:
    """publish(**parts) offers a package of the new version, until the test ends."""
    published = []

    def offer(version: str = NEW, **parts: Any) -> int:
        content = package(tmp_path, version, **{"daemon": agent_program(version), **parts})
        published.append(admin.publish_package(content, version))
        return published[-1]

    yield offer
    for number in published:
        admin.withdraw_package(number)


def expect_old_version(mac: AgentMac, admin, message: str, before: dict) -> str:
    """The old version is back at work as the device it was; the update log."""
    status = mac.wait_for_phase("failed", 60)
    assert status["message"] == message
    assert (status["currentVersion"], status["availableVersion"]) == (OLD, NEW)
    mac.assert_works(OLD)
    mac.assert_tidy()
    device = wait_for_heartbeat_of(admin, mac, OLD)
    assert (device["uid"], device["registered_at"]) == (before["uid"], before["registered_at"])
    assert admin.run_command(mac.uid, "shell", {"command": "echo alive"})["result"]["stdout"] \
        .strip() == "alive"
    return mac.read_log(LOG)


def test_what_a_user_asks_for_ends_with_the_new_version(mac, admin, publish):
    publish()
    before = admin.device(mac.uid)
    mac.ask_for_update()
    expect_installed(mac, admin, "manual")
    assert not mac.place(REQUEST).exists()
    assert "Manual macOS update check requested from menu bar." in mac.read_log()
    after = admin.device(mac.uid)
    assert after["registered_at"] == before["registered_at"], "it is the same device"
    assert after["inventory_count"] == before["inventory_count"]


def test_what_a_consultant_asks_for_is_answered_before_the_agent_is_replaced(mac, admin, publish):
    publish()
    command = admin.run_command(mac.uid, "client_update")
    assert command["status"] == "completed"
    result = command["result"]
    assert result["update_started"] is True
    assert (result["current_version"], result["available_version"]) == (OLD, NEW)
    assert result["log_path"] == f"/Library/Logs/Wsparo Brenvox/{LOG}"
    expect_installed(mac, admin, result["reason"])
    assert admin.command(command["id"])["deliveries"] == 1, "the new version does not begin again"


def test_an_application_older_than_the_agent_gets_the_agents_version(mac, admin, publish):
    publish(OLD, daemon=agent_program(OLD))
    mac.ask_for_update("0.2.54")
    assert mac.wait_for_phase("installed")["availableVersion"] == OLD
    mac.assert_works(OLD)
    mac.ask_for_update(OLD)
    assert mac.wait_for_phase("no_update")["message"] == "Nie znaleziono nowszej wersji oprogramowania."
    assert mac.updates() == 1


def test_of_two_updates_ordered_at_once_one_happens(mac, admin, publish):
    number = publish()
    admin.change_package(number, serving=SLOW)
    mac.ask_for_update()
    # By then the script, too, has written its status.
    mac.wait_until(mac.place(f"{UPDATES}/Wsparo-Brenvox-macOS-{NEW}.pkg").exists, "download")
    written = mac.wait_for_phase("downloading")["updatedAt"]
    result = admin.run_command(mac.uid, "client_update")["result"]
    assert result["update_started"] is False
    assert (result["reason"], result["available_version"]) == ("update already in progress", NEW)
    status = mac.status()
    assert (status["phase"], status["message"], status["updatedAt"]) \
        == ("downloading", UNDER_WAY, written)
    admin.change_package(number, serving={"mode": "normal"})
    expect_installed(mac, admin, "manual")


def test_a_leftover_job_of_an_earlier_update_is_no_obstacle(mac, admin, publish):
    mac.write_job(JOB, {"Label": Path(JOB).stem, "ProgramArguments": ["/usr/bin/false"]})
    assert mac.launchctl("bootstrap", "system", JOB).returncode == 0
    publish()
    admin.run_command(mac.uid, "client_update")
    expect_installed(mac, admin, "command")


def test_nobody_is_logged_in(mac, admin, publish):
    mac.log_out()
    publish()
    admin.run_command(mac.uid, "client_update")
    mac.wait_for_phase("installed")
    wait_for_heartbeat_of(admin, mac, NEW)
    mac.assert_works(NEW)
    mac.assert_tidy()


@pytest.mark.parametrize(("daemon", "line"), [
    (lambda: program(NEW, "exit 1\n"), "New daemon did not reach running state."),
    (lambda: agent_program(OLD),
     f"Installed daemon binary version mismatch: expected {NEW} got {OLD}"),
    (lambda: program(NEW, answer="exec /.sample/real/sleep 1000"),
     f"Installed daemon binary version mismatch: expected {NEW} got empty"),
], ids=["crashes", "other version", "hangs"])
def test_a_new_version_that_does_not_run_gives_way_to_the_old_one(mac, admin, publish, daemon, line):
    publish(daemon=daemon())
    before = admin.device(mac.uid)
    admin.run_command(mac.uid, "client_update")
    log = expect_old_version(mac, admin, NOT_HEALTHY, before)
    assert f"{line}\nNew installation healthcheck failed.\n" in log
    assert f"Restoring previous Wsparo Brenvox installation from {BACKUPS}/{OLD}-" in log


@pytest.mark.parametrize(("manifest", "message"), [
    ({"sha256": "0" * 64}, WRONG_HASH), ({"size_bytes": 5}, WRONG_SIZE),
])
def test_a_package_that_is_not_the_announced_one(mac, admin, publish, manifest, message):
    admin.change_package(publish(), manifest=manifest)
    before = admin.device(mac.uid)
    admin.run_command(mac.uid, "client_update")
    log = expect_old_version(mac, admin, message, before)
    assert "No previous installation backup to restore.\n" in log
    assert admin.device(mac.uid)["heartbeat_count"] == before["heartbeat_count"], \
        "the agent was left alone"


def test_a_package_of_another_host_is_not_even_asked_for(mac, admin, publish):
    admin.change_package(publish(), manifest={"url": "https://other.example/new.pkg"})
    mac.ask_for_update()
    status = mac.wait_for_phase("failed")
    mac.wait_for_log("Update package host is not trusted.")
    assert "availableVersion" not in status
    assert mac.updates() == 0 and not mac.place(JOB).exists()


def test_a_server_without_a_package(mac, admin):
    mac.ask_for_update()
    assert mac.wait_for_phase("no_update")["message"] \
        == "Serwer nie wystawił paczki aktualizacji dla macOS."


def test_launchd_refuses_the_updater_five_times(mac, admin, publish):
    refused = mac.sample / "refused"
    mac.fault("launchctl", f'if [ "$1 $3" = "bootstrap {JOB}" ]; then\n'
              '    echo x >> "$sample/refused"\n    exit 5\nfi\n')
    publish()
    mac.ask_for_update()
    mac.wait_for_phase("failed")
    assert refused.read_text() == "x\n" * 5
    mac.wait_for_log("The independent macOS updater service could not be started.")

    # It had only been asked too early.
    mac.mend_tool("launchctl")
    mac.ask_for_update()
    expect_installed(mac, admin, "manual")


@pytest.mark.parametrize("plant", ["garbage", "folder", "link", "pipe"])
def test_what_lies_in_the_statuss_place_stops_no_update(mac, admin, publish, plant):
    precious = mac.place(f"{SUPPORT}/precious")
    precious.write_text("precious")
    for path in (STATUS, f"{STATUS}.tmp"):
        place = mac.place(path)
        {"garbage": lambda: place.write_text('{"phase": "downloading", "message": 5'),
         "folder": lambda: (place / "deeper").mkdir(parents=True),
         "link": lambda: place.symlink_to(f"{SUPPORT}/precious"),
         "pipe": lambda: os.mkfifo(place)}[plant]()
    publish()
    admin.run_command(mac.uid, "client_update")
    expect_installed(mac, admin, "command")
    assert precious.read_text() == "precious"


def test_a_hostile_version_runs_nothing(mac, admin, publish):
    """Newer than any, and a text that a shell must not come to read."""
    hostile = "9.0.0'\"$(touch /Library/canary)`touch /Library/canary`;/../x"
    admin.change_package(publish(), manifest={"version": hostile})
    admin.run_command(mac.uid, "client_update")
    status = mac.wait_for_phase("failed")
    assert (status["availableVersion"], status["message"]) == (hostile, NOT_HEALTHY)
    mac.assert_works(OLD)
    mac.assert_tidy()
    assert not mac.place("/Library/canary").exists()


def test_the_package_replaces_files_not_the_users_settings(mac, admin, publish):
    settings = mac.place(f"{SUPPORT}/wsparo.settings.json").read_bytes()
    publish()
    admin.run_command(mac.uid, "client_update")
    mac.wait_for_phase("installed")
    assert mac.place(f"{SUPPORT}/wsparo.settings.json").read_bytes() == settings
    bundle = plistlib.loads(mac.place(f"{APP}/Contents/Info.plist").read_bytes())
    assert bundle["CFBundleShortVersionString"] == NEW
    assert mac.is_running(DAEMON_TARGET)


# At the command line

@pytest.fixture
def follow(mac, desk) -> Iterator[Callable[..., Running]]:
    """follow(*arguments) runs the user's command line beside the agent."""
    yield from started(Companion(mac.root, desk.ca_file))


def test_the_user_follows_an_update_to_its_end(mac, admin, publish, follow):
    number = publish()
    admin.change_package(number, serving=SLOW)
    asking = follow("update", "check")
    asking.wait_for(f"Pobieram aktualizację do wersji {NEW}...")
    admin.change_package(number, serving={"mode": "normal"})
    assert asking.wait() == 0, asking.complained()
    shown = asking.printed()
    places = [shown.find(text) for text in (
        "Poproszono agenta o sprawdzenie aktualizacji.",
        f"Pobieram aktualizację do wersji {NEW}...",
        f"Aktualizacja do wersji {NEW} została zainstalowana.")]
    assert -1 not in places and places == sorted(places), shown
    expect_installed(mac, admin, "manual")


def test_the_user_is_told_that_the_old_version_is_back(mac, admin, publish, follow):
    publish(daemon=agent_program(OLD))
    before = admin.device(mac.uid)
    asking = follow("update", "check")
    assert asking.wait() == 1
    assert NOT_HEALTHY in asking.printed() + asking.complained()
    expect_old_version(mac, admin, NOT_HEALTHY, before)


# The automatic check

@pytest.fixture
def day_begun(tmp_path_factory) -> Iterator[tuple[AgentMac, HelpdeskClient]]:
    """A helpdesk of its own, because packages are for whoever asks: this one's is on offer from the
    start."""
    folder = tmp_path_factory.mktemp("day")
    content = package(folder, NEW, daemon=agent_program(NEW))
    with HelpdeskProcess(folder / "desk") as own_desk, own_desk.client() as own_admin:
        own_admin.publish_package(content, NEW)
        with AgentMac(folder / "mac", own_desk, "day") as sample:
            sample.start()
            yield sample, own_admin


@pytest.mark.long  # its first check comes two minutes after the start
def test_the_daily_check_ends_with_the_new_version(day_begun):
    own, own_admin = day_begun
    own.wait_until(own.place(DAILY_CHECK).exists, "daily check", 150)
    expect_installed(own, own_admin, "auto_daily")
    result = own.read_log().split("daily auto-update scheduled. result=", 1)[1].split("\n", 1)[0]
    assert json.loads(result)["update_started"] is True
    assert json.loads(own.place(DAILY_CHECK).read_text()).endswith("Z")
    assert own_admin.violations() == []
