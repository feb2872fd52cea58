"""A Mac registers, proves that it is alive, and ends properly."""

from __future__ import annotations

import json
import os
import signal
import socket
import subprocess

import pytest
from agent_process import AGENT
from samplemac.machine import LOG_FOLDER


def test_registers_and_sends_a_heartbeat_as_the_device(agent, admin, mac, device_uid):
    device = admin.wait_for_device(device_uid, lambda device: device["heartbeat"] is not None)
    agent.wait_for_log("Heartbeat sent successfully. reason=startup")

    state = mac.read_state()
    assert state["deviceUid"] == device_uid
    assert state["supportId"] == device["support_id"]
    assert state["lastInventoryAt"].endswith("Z")
    assert "connectionIssue" not in state
    register, heartbeat = [entry for entry in admin.requests() if entry["method"] == "POST"][:2]
    assert register["authorization_scheme"] == "Bearer"
    assert heartbeat["authorization"] == f"Device {state['deviceToken']}"
    assert register["connection"] == heartbeat["connection"], "one connection serves both"


def test_settings_of_the_working_folder_serve_and_move_to_their_place(start_agent, mac, tmp_path):
    place = mac.place("/Library/Application Support/Wsparo Brenvox/wsparo.settings.json")
    folder = tmp_path / "working"
    folder.mkdir()
    place.rename(folder / place.name)

    assert start_agent("--once", cwd=folder).wait() == (0, "", "")

    assert "Heartbeat sent successfully." in mac.read_log()
    assert json.loads(place.read_text()) == json.loads((folder / place.name).read_text())


def test_the_log_tells_the_story(agent, admin, device_uid, mac):
    log = agent.wait_for_log("Heartbeat sent successfully.")
    support_id = mac.read_state()["supportId"]
    lines = [line.split(" ", 1)[1] for line in log.splitlines()]
    assert lines[:3] == [
        "[INFO] Wsparo Brenvox macOS daemon started.",
        "[INFO] Inventory sent successfully. reason=initial_registration "
        f"device_uid={device_uid} support_id={support_id}",
        "[INFO] Heartbeat sent successfully. reason=startup "
        f"device_uid={device_uid} support_id={support_id}",
    ]


def test_a_registered_device_sends_only_the_heartbeat_at_its_start(start_agent, admin, mac):
    first = start_agent()
    first.wait_for_log("Heartbeat sent successfully.")
    first.stop()
    admin.clear_requests()
    second = start_agent()
    second.wait_for_log("Heartbeat sent successfully.", count=2)
    assert admin.requests("register") == []


@pytest.mark.parametrize("how", [signal.SIGTERM, signal.SIGINT])
def test_ends_within_a_second_and_leaves_whole_files(agent, admin, mac, device_uid, how):
    agent.wait_for_log("Heartbeat sent successfully.")
    admin.wait_until_connected(device_uid)
    agent.stop(how)
    assert mac.read_state()["deviceUid"] == device_uid
    folder = mac.place("/Library/Application Support/Wsparo Brenvox")
    assert [path.name for path in folder.iterdir() if path.name.endswith(".tmp")] == []


def test_ends_within_a_second_while_the_server_stays_silent(start_agent, admin, mac):
    listener = admin.open_listener("silent")
    mac.write_settings(serverBaseUrl=listener["url"], viewerToken="x")
    agent = start_agent()
    agent.wait_until(
        lambda: [entry for entry in admin.listeners()
                 if entry["id"] == listener["id"] and entry["connections"] > 0],
        "connection to the silent server")
    agent.stop()
    admin.close_listener(listener["id"])


def test_once_sends_one_inventory_and_one_heartbeat(start_agent, admin, mac):
    status, output, error = start_agent("--once").wait()
    assert (status, output, error) == (0, "", "")
    log = mac.read_log()
    assert log.count("reason=manual_once") == 2
    assert "daemon started" not in log
    assert [entry["endpoint"] for entry in admin.requests()] == ["register", "heartbeat"]


def test_once_sends_the_heartbeat_even_if_the_inventory_failed(start_agent, admin, mac):
    admin.fail("register", "status", status=422)
    status, _, _ = start_agent("--once").wait()
    assert status == 0
    assert "Inventory send failed: HTTP 422" in mac.read_log()
    assert [entry["endpoint"] for entry in admin.requests()] == ["register", "heartbeat"]


def test_once_is_found_among_other_arguments(start_agent, admin):
    assert start_agent("extra", "--once").wait() == (0, "", "")
    assert [entry["endpoint"] for entry in admin.requests()] == ["register", "heartbeat"]


def test_what_only_begins_like_once_starts_the_daemon(start_agent):
    agent = start_agent("--onces")
    log = agent.wait_for_log("Heartbeat sent successfully. reason=startup")
    assert "daemon started." in log
    assert agent.is_running
    agent.stop()


@pytest.mark.parametrize("arguments", [["--version"], ["--once", "--version"]])
def test_version_needs_no_settings(start_agent, mac, admin, arguments):
    mac.place("/Library/Application Support/Wsparo Brenvox/wsparo.settings.json").unlink()
    assert start_agent(*arguments).wait() == (0, "0.2.55\n", "")
    assert mac.read_log() == ""
    assert admin.requests() == []


@pytest.mark.parametrize("argument", ["--versions", "--version=1", "--VERSION"])
def test_what_only_resembles_version_is_not_answered(start_agent, mac, argument):
    mac.place("/Library/Application Support/Wsparo Brenvox/wsparo.settings.json").unlink()
    status, output, error = start_agent(argument).wait()
    assert (status, output) == (1, "")
    assert error.startswith("Wsparo Brenvox daemon failed: wsparo.settings.json was not found.")


def test_the_product_has_no_switch_for_another_root():
    product = AGENT.with_name("WsparoAgent")
    result = subprocess.run([product, "--root", "/nowhere", "--version"], capture_output=True,
                            text=True, check=True)
    assert result.stdout == "0.2.55\n"


@pytest.mark.parametrize("content, reason", [
    (None, "wsparo.settings.json was not found."),
    ("", "Not valid JSON at byte"),
    ("{}", 'The key "serverBaseUrl" is missing.'),
    (json.dumps({"serverBaseUrl": "http://desk.example", "viewerToken": "t0ken",
                 "auditIntervalMinutes": 5, "heartbeatIntervalSeconds": 60,
                 "commandPollIntervalSeconds": 30, "chatPollIntervalSeconds": 2,
                 "controlReconnectMaxSeconds": 60}),
     "serverBaseUrl must be a valid HTTPS URL."),
])
def test_settings_that_cannot_work_stop_it_with_the_reason(start_agent, mac, content, reason):
    settings = mac.place("/Library/Application Support/Wsparo Brenvox/wsparo.settings.json")
    settings.unlink()
    if content is not None:
        settings.write_text(content)
    status, output, error = start_agent().wait()
    assert status == 1
    assert output == ""
    assert error.startswith("Wsparo Brenvox daemon failed: " + reason)
    assert error.endswith("\n")
    assert "[ERROR] Wsparo Brenvox macOS daemon failed to start: " + reason in mac.read_log()
    assert "t0ken" not in mac.read_log() + error


def test_a_failed_start_is_told_in_one_piece(mac):
    mac.place("/Library/Application Support/Wsparo Brenvox/wsparo.settings.json").write_text("{}")
    # Every write is a message of its own.
    told, standard_error = socket.socketpair(socket.AF_UNIX, socket.SOCK_DGRAM)
    with told, standard_error:
        ended = subprocess.run([AGENT, "--root", mac.root], stderr=standard_error, check=False)
        message = told.recv(4096, socket.MSG_DONTWAIT).decode()
        with pytest.raises(BlockingIOError):
            told.recv(4096, socket.MSG_DONTWAIT)
    assert ended.returncode == 1
    assert message.startswith('Wsparo Brenvox daemon failed: The key "serverBaseUrl" is missing.')
    assert message.endswith("\n")


@pytest.mark.skipif(os.geteuid() != 0, reason="mounting needs root")
def test_a_log_folder_that_nobody_can_write_to_leaves_the_other_one(start_agent, mac):
    mac.place("/Library/Application Support/Wsparo Brenvox/wsparo.settings.json").unlink()
    place = mac.place(LOG_FOLDER)
    place.mkdir(parents=True, exist_ok=True)
    mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "ro", "tmpfs", place],
                             capture_output=True, text=True, check=False)
    if mounted.returncode != 0:
        pytest.skip(f"no right to mount here: {mounted.stderr}")
    try:
        status, _, _ = start_agent().wait()
    finally:
        subprocess.run(["umount", "-l", place], check=True)
    assert status == 1
    log = mac.place("/tmp/Wsparo Brenvox/wsparo.log").read_text()
    assert "[ERROR] Wsparo Brenvox macOS daemon failed to start: " in log


def test_the_environment_names_other_settings(start_agent, mac, admin, desk, tmp_path, device_uid):
    standard = mac.place("/Library/Application Support/Wsparo Brenvox/wsparo.settings.json")
    elsewhere = tmp_path / "elsewhere.json"
    standard.rename(elsewhere)
    start_agent("--once", environment={"ORV_VIEWER_SETTINGS_PATH": str(elsewhere)}).wait()
    assert admin.device(device_uid)["heartbeat"] is not None
    assert json.loads(standard.read_text())["serverBaseUrl"] == desk.url
