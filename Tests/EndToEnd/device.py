"""A Mac with the agent running on it, as one thing that tests hold in their hands."""

from __future__ import annotations

import hashlib
from pathlib import Path
from typing import Any, Callable, Optional

from agent_process import AgentProcess
from helpdesk.client import HelpdeskClient
from helpdesk.process import HelpdeskProcess
from samplemac import SampleMac

CONFIG_FOLDER = "/Library/Application Support/Wsparo Brenvox"


def give_identity(mac: SampleMac, name: str) -> None:
    """The same name makes the same hardware, another name another Mac."""
    digest = hashlib.sha256(name.encode()).hexdigest().upper()
    uuid = f"{digest[:8]}-{digest[8:12]}-{digest[12:16]}-{digest[16:20]}-{digest[20:32]}"
    mac.place("/sys/class/dmi/id/product_uuid").write_text(uuid + "\n")


def device_uid_of(mac: SampleMac) -> str:
    """What the agent calls this Mac."""
    uuid = mac.place("/sys/class/dmi/id/product_uuid").read_text().strip().lower()
    serial = mac.place("/sys/class/dmi/id/product_serial").read_text().strip()
    return "mac-" + hashlib.sha256(f"{uuid}\n{serial}".encode()).hexdigest()[:32]


class Device:
    """One sample Mac with its agent. `stop` ends both."""

    def __init__(self, folder: Path, name: str, desk: HelpdeskProcess, variant: str = "laptop",
                 prepare: Optional[Callable[[SampleMac], None]] = None, **settings: Any) -> None:
        self.mac = SampleMac(folder, variant)
        self._desk = desk
        give_identity(self.mac, name)
        self.uid = device_uid_of(self.mac)
        self.mac.write_settings(serverBaseUrl=desk.url, viewerToken=desk.viewer_token, **settings)
        if prepare is not None:
            prepare(self.mac)
        self.agent = self.start_agent()

    def start_agent(self) -> AgentProcess:
        """The agent, after it has ended."""
        self.agent = AgentProcess(self.mac, self._desk.ca_file)
        return self.agent

    def run(self, admin: HelpdeskClient, command_type: str, payload: Any = None,
            **options: Any) -> dict[str, Any]:
        """The result of a command that must succeed."""
        command = admin.run_command(self.uid, command_type, payload, **options)
        assert command["status"] == "completed", command
        return command["result"]

    def refuse(self, admin: HelpdeskClient, command_type: str, payload: Any = None) -> str:
        """The error text of a command that must fail."""
        command = admin.run_command(self.uid, command_type, payload)
        assert command["status"] == "failed", command
        assert command["result"]["platform"] == "macos"
        return command["result"]["error"]

    def control_sockets(self, admin: HelpdeskClient) -> list[dict[str, Any]]:
        """All that the helpdesk remembers, oldest first."""
        return admin.sockets("control", self.uid)

    def open_socket(self, admin: HelpdeskClient, after: int = 0) -> dict[str, Any]:
        """The greeted control socket whose number is above `after`."""
        return admin.wait_until(
            lambda: next((socket for socket in self.control_sockets(admin)
                          if socket["ready"] and socket["id"] > after), None),
            20.0, "control socket")

    def wait_for_end(self, admin: HelpdeskClient, socket_id: int) -> dict[str, Any]:
        """The socket with its messages, once it has closed."""

        def look() -> Optional[dict[str, Any]]:
            found = admin.socket(socket_id)
            return None if found["open"] else found

        return admin.wait_until(look, 20.0, "end of the control socket")

    def stop(self) -> None:
        self.agent.kill()
        self.mac.close()
