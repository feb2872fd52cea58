"""Starts and stops a helpdesk as a process of its own. Standard library only."""

from __future__ import annotations

import json
import subprocess
import sys
from pathlib import Path
from typing import Optional

from .client import HelpdeskClient

PROGRAM = Path(__file__).resolve().parents[1] / "helpdesk-server"
STOP_SECONDS = 5.0


class HelpdeskProcess:
    """A running helpdesk; ends with `stop` or the `with` block.

    `python` must have aiohttp, jsonschema, cryptography and yaml. In a session of its own it does
    not hear the terminal's Ctrl-C.
    """

    def __init__(
        self,
        data: Path,
        port: int = 0,
        admin_port: int = 0,
        events: Optional[Path] = None,
        python: str = sys.executable,
        new_session: bool = False,
    ) -> None:
        arguments = [python, str(PROGRAM), "--data", str(data)]
        arguments += ["--port", str(port), "--admin-port", str(admin_port)]
        if events is not None:
            arguments += ["--events", str(events)]
        self._process = subprocess.Popen(arguments, stdout=subprocess.PIPE, text=True,
                                         start_new_session=new_session)
        assert self._process.stdout is not None
        line = self._process.stdout.readline()
        if not line:
            raise RuntimeError(f"the helpdesk did not start: exit code {self._process.wait()}")
        self.ready: dict[str, str] = json.loads(line)

    @property
    def url(self) -> str:
        return self.ready["url"]

    @property
    def ca_file(self) -> str:
        return self.ready["ca_file"]

    @property
    def viewer_token(self) -> str:
        return Path(self.ready["viewer_token_file"]).read_text(encoding="ascii").strip()

    @property
    def pid(self) -> int:
        return self._process.pid

    def client(self) -> HelpdeskClient:
        return HelpdeskClient.from_ready_line(self.ready)

    def stop(self) -> int:
        """Returns the exit code."""
        self._process.terminate()
        return self.wait()

    def wait(self) -> int:
        """Waits for a process that has been told to stop; one that does not is killed."""
        try:
            return self._process.wait(STOP_SECONDS)
        except subprocess.TimeoutExpired:
            self._process.kill()
            return self._process.wait()
        finally:
            if self._process.stdout is not None:
                self._process.stdout.close()

    def __enter__(self) -> "HelpdeskProcess":
        return self

    def __exit__(self, *_: object) -> None:
        self.stop()
