"""The built agent as a process, on a sample Mac, against the local helpdesk."""

from __future__ import annotations

import os
import signal
import subprocess
import time
from pathlib import Path
from typing import Callable, Optional

from samplemac import SampleMac

REPOSITORY = Path(__file__).resolve().parents[2]
BUILD = Path(os.environ.get("ORV_BUILD_DIR", REPOSITORY / "build/release"))
AGENT = BUILD / "wsparo-agent-dev"
SHUTDOWN_SECONDS = 1.0
# Sanitizers slow the program's end down (they look for leaks); what a test measures does not
# change its meaning by that.
SHUTDOWN_MARGIN_SECONDS = 4.0 if BUILD.name == "asan" else 0.5


class AgentProcess:
    """Runs until stop(); the log of the agent is the sample Mac's."""

    def __init__(self, mac: SampleMac, ca_file: Optional[str], *arguments: str,
                 environment: Optional[dict[str, str]] = None,
                 cwd: Optional[Path] = None) -> None:
        self.mac = mac
        variables = {**os.environ, **(environment or {})}
        variables.pop("ORV_VIEWER_SETTINGS_PATH", None)
        if environment and "ORV_VIEWER_SETTINGS_PATH" in environment:
            variables["ORV_VIEWER_SETTINGS_PATH"] = environment["ORV_VIEWER_SETTINGS_PATH"]
        if ca_file is not None:
            variables["SSL_CERT_FILE"] = ca_file
            variables["SSL_CERT_DIR"] = "/nonexistent"
        self._process = subprocess.Popen(
            [AGENT, "--root", mac.root, *arguments], env=variables, cwd=cwd or mac.root,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    @property
    def pid(self) -> int:
        return self._process.pid

    @property
    def is_running(self) -> bool:
        return self._process.poll() is None

    def resident_bytes(self) -> int:
        """Memory that is in use right now."""
        pages = int(Path(f"/proc/{self.pid}/statm").read_text().split()[1])
        return pages * os.sysconf("SC_PAGESIZE")

    def wait(self, timeout: float = 20.0) -> tuple[int, str, str]:
        """The exit status and what the program printed."""
        output, error = self._process.communicate(timeout=timeout)
        return self._process.returncode, output, error

    def stop(self, how: signal.Signals = signal.SIGTERM) -> float:
        """Ends it properly; returns how many seconds it took."""
        begin = time.monotonic()
        self._process.send_signal(how)
        status, _, error = self.wait()
        took = time.monotonic() - begin
        assert status == 0, f"the agent ended with {status}: {error}"
        assert took < SHUTDOWN_SECONDS + SHUTDOWN_MARGIN_SECONDS, f"it took {took:.2f} s to end"
        return took

    def kill(self) -> None:
        if self.is_running:
            self._process.kill()
        self._process.communicate()

    def wait_for_log(self, text: str, count: int = 1, timeout: float = 15.0) -> str:
        """The whole log, once the text stands in it so many times."""
        return self.wait_until(
            lambda: log if (log := self.mac.read_log()).count(text) >= count else None,
            f"{text!r} in the log", timeout)

    def wait_for_issue(self, issue: str) -> None:
        """Until the state tells the user of this problem, which follows its line in the log."""
        self.wait_until(lambda: (self.mac.read_state() or {}).get("connectionIssue") == issue,
                        f"{issue} in the state")

    def wait_until(self, look: Callable, what: str, timeout: float = 15.0):
        deadline = time.monotonic() + timeout
        while True:
            if found := look():
                return found
            assert self.is_running, f"the agent ended while a test waited for {what}"
            assert time.monotonic() < deadline, f"no {what}; the log:\n{self.mac.read_log()[-4000:]}"
            time.sleep(0.01)
