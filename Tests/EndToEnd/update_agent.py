"""The built agent at its real paths on a sample Mac, and a newer build of it."""

from __future__ import annotations

import functools
import json
import os
import subprocess
import tempfile
from pathlib import Path
from typing import Any

from agent_process import BUILD
from device import device_uid_of, give_identity
from update_mac import (LOG, MENU_BAR_TARGET, OLD, REQUEST, STATUS, UPDATER_TARGET, UpdateMac)

NEW = "0.2.56"
ANNA = 501


@functools.cache
def _built_agent() -> bytes:
    """Without its symbols, which are half of what a sanitizer build's program has for packages to
    carry. A report's addresses are those of the built one."""
    with tempfile.TemporaryDirectory() as folder:
        stripped = Path(folder, "agent")
        subprocess.run(["strip", "-o", stripped, BUILD / "WsparoAgent"], check=True)
        return stripped.read_bytes()


def agent_program(version: str) -> bytes:
    """The built agent itself. Another version of it differs in nothing but the text of the version,
    which must be as long as the built one's."""
    built, old = _built_agent(), f"{OLD}\0".encode()
    assert old in built and len(version) == len(OLD)
    return built.replace(old, f"{version}\0".encode())


class AgentMac(UpdateMac):
    """With the built agent as its daemon."""

    def __init__(self, path: Path, desk: Any, name: str) -> None:
        super().__init__(path, desk.ca_file)
        give_identity(self, name)
        self.uid = device_uid_of(self)
        self.write_settings(serverBaseUrl=desk.url, viewerToken=desk.viewer_token)
        # To say goodbye to its server takes the agent longer than other programs.
        self.hurry(second=0.2)
        self.install_files(OLD, daemon=agent_program(OLD))

    def ask_for_update(self, version: str = OLD) -> None:
        """As the menu-bar application of a user does."""
        request = self.place(REQUEST)
        new = request.with_name(".request.new")
        new.write_text(json.dumps({"id": "7E57AB1E-0000-4000-8000-000000000001",
                                   "requestedAt": "2026-01-01T00:00:00Z",
                                   "currentVersion": version}))
        os.chown(new, ANNA, 20)
        new.rename(request)

    def updates(self) -> int:
        """How many scripts have begun."""
        return self.read_log(LOG).count("==== ")

    def wait_for_log(self, text: str) -> None:
        self.wait_until(lambda: text in self.read_log(), f"{text!r} in the agent's log")

    def wait_for_phase(self, phase: str, timeout: float = 30.0) -> dict:
        self.wait_until(lambda: self._phase() == phase, f"{phase} status", timeout)
        return self.status()

    def _phase(self) -> str:
        """Empty while there is no status, or something else in its place."""
        if not self.place(STATUS).is_file():
            return ""
        try:
            return self.status()["phase"]
        except json.JSONDecodeError:
            return ""


def wait_for_heartbeat_of(admin, mac: AgentMac, version: str) -> dict:
    return admin.wait_for_device(mac.uid, lambda device: device["connected"] and
                                 device["heartbeat"]["agent_version"] == version)


def expect_installed(mac: AgentMac, admin, reason: str) -> None:
    """The new version is at work, and nothing is left but what tells of it."""
    status = mac.wait_for_phase("installed")
    device = wait_for_heartbeat_of(admin, mac, NEW)
    assert device["agent_version"] == NEW
    assert status["message"] == (f"Aktualizacja do wersji {NEW} została zainstalowana. Aplikacja "
                                 "uruchamia się ponownie.")
    assert (status["currentVersion"], status["availableVersion"]) == (OLD, NEW)
    assert status["logPath"] == f"/Library/Logs/Wsparo Brenvox/{LOG}"
    mac.assert_works(NEW)
    mac.assert_tidy()
    assert mac.is_running(MENU_BAR_TARGET)
    mac.wait_until(lambda: not mac.is_running(UPDATER_TARGET), "end of the script")
    log = mac.read_log(LOG)
    assert mac.updates() == 1 and log.endswith("Update completed.\n"), log
    assert f"Wsparo Brenvox macOS update {OLD} -> {NEW}, reason={reason} ====\n" in log
    assert f"self-update scheduled. version={NEW} reason={reason}" in mac.read_log()
