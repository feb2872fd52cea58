"""A helpdesk that is gone without a word: its packets are lost, or it stands still."""

from __future__ import annotations

import os
import shutil
import signal
import subprocess
import time
from dataclasses import dataclass
from typing import Iterator
from urllib.parse import urlsplit

import pytest
from device import Device
from helpdesk.client import HelpdeskClient
from helpdesk.process import HelpdeskProcess
from own_network import own_network

NEEDED = [tool for tool in ("ip", "nft", "ss") if shutil.which(tool) is None]
pytestmark = [
    pytest.mark.long,
    pytest.mark.skipif(os.geteuid() != 0, reason="a network of its own needs root"),
    pytest.mark.skipif(bool(NEEDED), reason=f"needs {', '.join(NEEDED)}"),
]

NOTICED_WITHIN_SECONDS = 90.0
# A connection that is closed for a lost answer or two would be opened anew in every bad minute.
NOT_BEFORE_SECONDS = 40.0


def lose_all_open_connections(desk_url: str) -> None:
    """As when a router forgets them: new ones work, of the old ones nothing arrives any more."""
    port = urlsplit(desk_url).port
    listed = subprocess.run(["ss", "-tnH", "state", "established", f"dport = :{port}"], check=True,
                            capture_output=True, text=True).stdout
    ports = ", ".join({line.split()[2].rpartition(":")[2] for line in listed.splitlines()})
    rules = f"""
        table inet lost {{
            chain input {{
                type filter hook input priority 0;
                tcp sport {{ {ports} }} drop
                tcp dport {{ {ports} }} drop
            }}
        }}"""
    subprocess.run(["nft", "-f", "-"], input=rules, check=True, text=True)


@dataclass
class Struck:
    device: Device
    socket: dict  # that was open then
    at: float
    command: int = 0

    def wait_for_reconnect(self) -> float:
        """How long it took until the agent began to connect again."""
        left = self.at + NOTICED_WITHIN_SECONDS - time.monotonic()
        self.device.agent.wait_for_log("[INFO] Control WSS connecting: ", 2, timeout=left)
        return time.monotonic() - self.at

    def reason(self) -> str:
        told = self.device.mac.read_log().partition("[ERROR] Control WSS disconnected: ")[2]
        return told.partition("\n")[0]


@dataclass
class Scene:
    admin: HelpdeskClient
    idle: Struck
    busy: Struck
    stopped_desk: HelpdeskProcess
    stopped: Struck


@pytest.fixture(scope="module")
def scene(tmp_path_factory) -> Iterator[Scene]:
    """Everything is struck at once, so that the minutes pass side by side."""
    folder = tmp_path_factory.mktemp("vanished")
    with own_network(), HelpdeskProcess(folder / "desk") as desk, \
            HelpdeskProcess(folder / "stopped-desk") as stopped_desk:
        devices = {name: Device(folder / name, name, where) for name, where in
                   (("idle", desk), ("busy", desk), ("stopped", stopped_desk))}
        try:
            with desk.client() as admin:
                with stopped_desk.client() as other:
                    sockets = {name: device.open_socket(other if name == "stopped" else admin)
                               for name, device in devices.items()}
                begun = devices["busy"].mac.place("/tmp/begun")
                command = admin.queue_command(devices["busy"].uid, "shell", {
                    "shell": "sh", "timeout_seconds": 120,
                    "command": f"touch {begun}; sleep 100; echo done"})
                devices["busy"].agent.wait_until(begun.exists, "running command")
                lose_all_open_connections(desk.url)
                os.kill(stopped_desk.pid, signal.SIGSTOP)
                now = time.monotonic()
                struck = {name: Struck(device, sockets[name], now)
                          for name, device in devices.items()}
                struck["busy"].command = command
                yield Scene(admin, struck["idle"], struck["busy"], stopped_desk, struck["stopped"])
        finally:
            os.kill(stopped_desk.pid, signal.SIGCONT)
            for device in devices.values():
                device.stop()


def test_a_connection_whose_packets_are_lost_is_given_up_and_opened_again(scene):
    took = scene.idle.wait_for_reconnect()
    assert took > NOT_BEFORE_SECONDS
    assert "(timedOut)" in scene.idle.reason()
    again = scene.idle.device.open_socket(scene.admin, after=scene.idle.socket["id"])
    assert again["open"]
    assert scene.idle.device.run(scene.admin, "shell", {"command": "echo hi"})["stdout"] == "hi\n"


def test_it_is_given_up_while_a_command_runs_and_the_command_is_not_broken_off(scene):
    busy = scene.busy
    busy.wait_for_reconnect()
    busy.device.open_socket(scene.admin, after=busy.socket["id"])
    assert not scene.admin.command(busy.command)["final"]
    ended = scene.admin.wait_for_command(busy.command, timeout=60)
    assert ended["result"]["stdout"] == "done\n"
    assert [entry["status"] for entry in ended["history"]].count("completed") == 1


def test_a_server_that_stands_still_is_given_up_and_found_again(scene):
    stopped = scene.stopped
    stopped.device.agent.wait_for_log(
        "[ERROR] Control WSS disconnected: Nothing arrived from the server for 75 s (timedOut)\n",
        timeout=stopped.at + NOTICED_WITHIN_SECONDS - time.monotonic())
    os.kill(scene.stopped_desk.pid, signal.SIGCONT)
    with scene.stopped_desk.client() as admin:
        assert stopped.device.open_socket(admin, after=stopped.socket["id"])["open"]
