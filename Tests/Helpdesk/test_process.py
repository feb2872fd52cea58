"""The program: its start, its files, its stop, and what survives a restart."""

from __future__ import annotations

import asyncio
import os
import signal
import stat
import subprocess
import sys
import time

import pytest

from helpdesk.process import PROGRAM, HelpdeskProcess
from pretend_device import beside, play

UID = "mac-" + "e" * 32


def port_of(url):
    return int(url.rsplit(":", 1)[1])


async def registered(device):
    await device.register()
    return device.authorization


def test_everything_stored_survives_a_restart(tmp_path):
    data, events = tmp_path / "data", tmp_path / "events.log"
    with HelpdeskProcess(data, events=events) as first, first.client() as admin:
        authority = (data / "tls" / "ca.pem").read_bytes()
        viewer_token = first.viewer_token
        token = play(first.url, first.ca_file, UID, f"Bearer {viewer_token}", registered)
        before = admin.device(UID)
        command_id = admin.queue_command(UID, "shell", {"command": "echo hi"})
        admin.send_chat(UID, "Dzień dobry")
        admin.publish_package(b"package", "0.2.56")
        admin.create_customer("ewa@firma.example", "Ewa", "x")
        port = port_of(first.url)

    with HelpdeskProcess(data, port=port, events=events) as second, second.client() as admin:
        assert (data / "tls" / "ca.pem").read_bytes() == authority
        assert second.viewer_token == viewer_token
        assert admin.device(UID) == {**before, "commands": {"queued": 2}}

        async def story(device):
            heartbeat = await device.heartbeat()
            pending = await device.pending()
            login = {"email": "ewa@firma.example", "password": "x"}
            device.authorization = None
            return heartbeat, pending, await device.post("/api/customer/session", login)

        heartbeat, pending, session = play(second.url, second.ca_file, UID, token, story)
        assert heartbeat.status == 200
        assert pending.json[0]["id"] == command_id
        assert session.status == 200
        assert admin.conversation(f"device-{UID}")[0]["text"] == "Dzień dobry"
        assert admin.packages()[0]["version"] == "0.2.56"

    text = events.read_text(encoding="utf-8")
    assert "device registered name=makieta.local uid=" + UID in text
    for secret in (viewer_token, token.removeprefix("Device ")):
        assert secret not in text


def test_secrets_are_for_the_owner_only(tmp_path):
    with HelpdeskProcess(tmp_path / "data", events=tmp_path / "events.log"):
        pass

    private = {
        path.relative_to(tmp_path / "data").as_posix()
        for path in (tmp_path / "data").rglob("*")
        if path.is_file() and stat.S_IMODE(path.stat().st_mode) == 0o600
    }
    assert private >= {
        "admin-token", "viewer-token", "device-secret", "helpdesk.sqlite3", "tls/ca-key.pem",
        "tls/server-key.pem",
    }
    assert "tls/ca.pem" not in private


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGINT])
def test_a_signal_stops_it_at_once_whoever_is_connected(tmp_path, number):
    helpdesk = HelpdeskProcess(tmp_path / "data", events=tmp_path / "events.log")

    async def story(device):
        await device.register()
        async with device.control() as socket:
            with helpdesk.client() as admin:
                admin.fail("heartbeat", "silent")
                waiting = asyncio.ensure_future(device.heartbeat())
                await beside(admin.wait_for_requests, "heartbeat")
            os.kill(helpdesk.pid, number)
            farewell = await socket.receive(timeout=5)
            waiting.cancel()
            return farewell

    token = f"Bearer {helpdesk.viewer_token}"
    farewell = play(helpdesk.url, helpdesk.ca_file, UID, token, story)
    begin = time.monotonic()

    assert helpdesk.wait() == 0
    assert time.monotonic() - begin < 2
    assert farewell.data == 1001


def test_a_taken_port_is_said_and_ends_it(helpdesk, tmp_path):
    arguments = ["--data", str(tmp_path / "data"), "--port", str(port_of(helpdesk.url))]
    run = subprocess.run(
        [sys.executable, str(PROGRAM), *arguments], capture_output=True, text=True, timeout=10
    )

    assert run.returncode == 1
    assert "Address already in use" in run.stderr


def test_help_names_every_option():
    run = subprocess.run(
        [sys.executable, str(PROGRAM), "--help"], capture_output=True, text=True, timeout=10
    )

    assert run.returncode == 0
    for option in ("--data", "--port", "--admin-port", "--events", "--protocol"):
        assert option in run.stdout
