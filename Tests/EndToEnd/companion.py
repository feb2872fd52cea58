"""The companion command line as a process, on a sample Mac."""

from __future__ import annotations

import os
import pty
import select
import signal
import subprocess
import tempfile
import time
from pathlib import Path
from typing import Any, Iterator, Optional

from agent_process import BUILD

PROGRAM = BUILD / "wsparo-dev"
HOME = "/Users/anna"
SESSION = f"{HOME}/Library/Application Support/Wsparo Brenvox/session.json"
PATIENCE_SECONDS = 20.0
NOBODY = 65534


class Companion:
    """Runs commands as the person at the Mac, in Polish unless `environment` says otherwise."""

    def __init__(self, root: Path, ca_file: Optional[str] = None) -> None:
        self.root = root
        self._ca_file = ca_file

    def environment(self, **more: str) -> dict[str, str]:
        variables = {"PATH": os.environ["PATH"], "HOME": HOME, "TZ": "UTC", **more}
        if self._ca_file is not None:
            variables |= {"SSL_CERT_FILE": self._ca_file, "SSL_CERT_DIR": "/nonexistent"}
        variables |= {name: value for name, value in os.environ.items()
                      if name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "ASAN_SYMBOLIZER_PATH")}
        return variables

    def command(self, *arguments: str) -> list[str]:
        return [str(PROGRAM), "--root", str(self.root), *arguments]

    def run(self, *arguments: str, environment: Optional[dict[str, str]] = None,
            input: str = "", **options: Any) -> subprocess.CompletedProcess:
        settings = {"capture_output": True, "encoding": "utf-8", "cwd": "/", **options}
        return subprocess.run(self.command(*arguments), env=self.environment(**environment or {}),
                              input=input, timeout=PATIENCE_SECONDS, check=False, **settings)

    def start(self, *arguments: str) -> "Running":
        return Running(self.command(*arguments), self.environment())

    def at_terminal(self, *arguments: str, **environment: str) -> "AtTerminal":
        return AtTerminal(self.command(*arguments), self.environment(TERM="xterm", **environment))

    def session_file(self) -> Path:
        return self.root / SESSION.lstrip("/")


class Running:
    """A command that goes on until it is told to end; its output goes to a file."""

    def __init__(self, command: list[str], environment: dict[str, str]) -> None:
        self._out = tempfile.TemporaryFile()
        self._err = tempfile.TemporaryFile()
        self._process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL,
                                         stdout=self._out, stderr=self._err, cwd="/")

    def printed(self) -> str:
        return _content(self._out)

    def complained(self) -> str:
        return _content(self._err)

    def wait_for(self, text: str) -> str:
        deadline = time.monotonic() + PATIENCE_SECONDS
        while text not in (printed := self.printed()):
            assert self._process.poll() is None, f"it ended: {printed} {self.complained()}"
            assert time.monotonic() < deadline, f"no {text!r} in {printed!r}"
            time.sleep(0.01)
        return printed

    def interrupt(self) -> int:
        self._process.send_signal(signal.SIGINT)
        return self._process.wait(PATIENCE_SECONDS)

    def wait(self) -> int:
        return self._process.wait(PATIENCE_SECONDS)

    def kill(self) -> None:
        self._process.kill()
        self._process.wait()
        self._out.close()
        self._err.close()


def _content(file) -> str:
    return os.pread(file.fileno(), 1 << 20, 0).decode()


class AtTerminal:
    """A command at a terminal of its own, with somebody who types."""

    def __init__(self, command: list[str], environment: dict[str, str]) -> None:
        self._person, program = pty.openpty()
        self._process = subprocess.Popen(command, env=environment, stdin=program, stdout=program,
                                         stderr=program, start_new_session=True, cwd="/")
        os.close(program)
        self.shown = ""

    def wait_for(self, text: str) -> str:
        """Everything that was shown so far, once the text is among it."""
        deadline = time.monotonic() + PATIENCE_SECONDS
        while text not in self.shown:
            assert time.monotonic() < deadline, f"no {text!r} in {self.shown!r}"
            assert self._take(), f"it ended: {self.shown!r}"
        return self.shown

    def type(self, text: str) -> None:
        os.write(self._person, text.encode())

    def end(self) -> int:
        while self._take():
            pass
        os.close(self._person)
        return self._process.wait(PATIENCE_SECONDS)

    def _take(self) -> bool:
        if not select.select([self._person], [], [], PATIENCE_SECONDS)[0]:
            return False
        try:
            piece = os.read(self._person, 4096)
        except OSError:  # that is how a terminal without programs ends
            return False
        self.shown += piece.decode(errors="replace")
        return bool(piece)


def started(companion: Companion) -> Iterator:
    """For fixtures: starts commands, and kills what still runs at the end."""
    running: list[Running] = []

    def start(*arguments: str) -> Running:
        running.append(companion.start(*arguments))
        return running[-1]

    yield start
    for process in running:
        process.kill()
