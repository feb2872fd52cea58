"""Lets a running agent show what it can, and tells what was seen. Part of ./run --check."""

from __future__ import annotations

import calendar
import json
import os
import pathlib
import subprocess
import time
from typing import Any, Callable, Optional

from helpdesk.client import HelpdeskClient
from samplemac import SampleMac

REPOSITORY = pathlib.Path(__file__).resolve().parents[1]
COMPANION = pathlib.Path(os.environ.get("ORV_BUILD_DIR", REPOSITORY / "build/release")) / "wsparo-dev"
SECONDS_FOR_EVERYTHING = 30.0
CHAT_FOLDER = "/Users/Shared/Wsparo Brenvox/remote-chat"
GIB = 1 << 30


class CheckFailed(Exception):
    """Says what did not come, or came wrong."""


class LocalCheck:
    """One deadline for everything. `say` shows a line to the person who looks on."""

    def __init__(self, admin: HelpdeskClient, mac: SampleMac, say: Callable[[str], None]) -> None:
        self._admin = admin
        self._mac = mac
        self._say = say
        self._deadline = time.monotonic() + SECONDS_FOR_EVERYTHING
        self._uid = ""

    def run(self) -> None:
        """Throws CheckFailed."""
        self._registration()
        self._inventory()
        self._control_connection()
        self._shell_command()
        self._listing()
        self._chat_both_ways()
        self._network_scan()
        if violations := self._admin.violations():
            raise CheckFailed(f"the agent broke the protocol: {violations}")

    def _registration(self) -> None:
        started = time.time()

        def is_fresh(device: dict[str, Any]) -> bool:
            heartbeat = device["heartbeat_at"]
            return heartbeat is not None and _since_1970(heartbeat) >= started - 2

        device = self._wait("registration and heartbeat", lambda: self._admin.wait_for_device(
            until=is_fresh, timeout=self._left()))
        self._uid = device["uid"]
        self._say(f"registered: {device['display_name'] or device['hostname']} uid={self._uid} "
                  f"support id={device['support_id']}")
        self._say(f"heartbeat: {device['heartbeat_at']}")

    def _inventory(self) -> None:
        found = self._admin.device(self._uid)["inventory"]
        self._say(f"inventory: {found['model']}, {found['os_name']} {found['os_version']} "
                  f"({found['os_build']}), {found['cpu']} with {found['cpu_cores']} cores, "
                  f"{found['ram_bytes'] / GIB:.0f} GiB")
        for disk in found["disks"]:
            self._say(f"inventory: disk {disk['name']} on {disk['mount_point']}, "
                      f"{disk['free_bytes'] / GIB:.1f} of {disk['total_bytes'] / GIB:.1f} GiB free")
        security = ", ".join(f"{name} {value!r}" for name, value in found["security"].items())
        self._say(f"inventory: {len(found['software'])} programs, "
                  f"{len(found['peripherals'])} peripherals; security: {security}")
        for tool, state in found["remote"].items():
            self._say(f"inventory: {tool} {json.dumps(state, ensure_ascii=False)}")

    def _control_connection(self) -> None:
        self._wait("control connection", lambda: self._admin.wait_until_connected(
            self._uid, timeout=self._left()))
        self._say("the control connection is open")

    def _shell_command(self) -> None:
        begin = time.monotonic()
        result = self._command("shell", {"command": "echo Hello from $(uname -m)"})
        milliseconds = (time.monotonic() - begin) * 1000
        self._say(f"shell over the control connection in {milliseconds:.0f} ms: "
                  f"exit code {result['exit_code']}, {result['stdout'].strip()!r}")

    def _listing(self) -> None:
        result = self._command("file_list", {"path": "/Applications", "max_items": 10})
        names = ", ".join(item["name"] for item in result["items"])
        self._say(f"listing of {result['path']}: {names}")

    def _chat_both_ways(self) -> None:
        text = f"Dzień dobry! Jest godzina {time.strftime('%H:%M:%S')}."
        conversation = self._admin.send_chat(self._uid, text)["conversation"]
        incoming = self._wait("consultant's message in the chat folder",
                              lambda: self._until(lambda: self._incoming(text)))
        self._say(f"chat to the Mac: {incoming['sender']}: {incoming['text']}")
        before = len(_replies(self._admin.conversation(conversation)))
        self._answer(conversation, "Dzień dobry, słucham.")
        replies = self._wait("reply at the helpdesk", lambda: self._admin.wait_for_chat_replies(
            conversation, before + 1, self._left()))
        self._say(f"chat from the Mac: {replies[-1]['sender']}: {replies[-1]['text']}")

    def _incoming(self, text: str) -> Optional[dict[str, Any]]:
        for file in self._mac.place(CHAT_FOLDER).glob("*.incoming.json"):
            message = json.loads(file.read_text())
            if message["text"] == text:
                file.unlink()  # as the application at the Mac does with what it has shown
                return message
        return None

    def _answer(self, conversation: str, text: str) -> None:
        command = [COMPANION, "--root", self._mac.root, "chat", "send", "--conversation",
                   conversation, "--sender", "Anna Nowak", text]
        answered = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True,
                                  encoding="utf-8", check=False)
        if answered.returncode != 0:
            raise CheckFailed(f"wsparo did not take the reply: {answered.stderr.strip()}")

    def _network_scan(self) -> None:
        result = self._command("ip_scan", {"timeout_ms": 100})
        self._say(f"network scan in {result['duration_ms']} ms: {result['network_count']} networks, "
                  f"{result['host_count']} hosts")
        for network in result["networks"]:
            hosts = ", ".join(host["ip"] for host in network["hosts"]) or "nobody answers"
            self._say(f"network scan: {network['interface']} {network['cidr']}: {hosts}")

    def _command(self, command_type: str, payload: dict[str, Any]) -> dict[str, Any]:
        command = self._wait(f"result of {command_type}", lambda: self._admin.run_command(
            self._uid, command_type, payload, timeout=self._left()))
        if command["status"] != "completed":
            raise CheckFailed(f"{command_type} ended as {command['status']}: {command['result']}")
        return command["result"]

    def _left(self) -> float:
        return max(self._deadline - time.monotonic(), 0.1)

    def _until(self, look: Callable[[], Any]) -> Any:
        while time.monotonic() < self._deadline:
            if found := look():
                return found
            time.sleep(0.02)
        raise TimeoutError

    def _wait(self, what: str, wait: Callable[[], Any]) -> Any:
        try:
            return wait()
        except TimeoutError:
            raise CheckFailed(f"no {what} within {SECONDS_FOR_EVERYTHING:.0f} s") from None


def _replies(messages: list[dict[str, Any]]) -> list[dict[str, Any]]:
    return [message for message in messages if message["direction"] == "from_user"]


def _since_1970(text: str) -> float:
    return calendar.timegm(time.strptime(text, "%Y-%m-%dT%H:%M:%SZ"))
