"""Runs a helpdesk, a sample Mac and the agent on it, and tells what happens. Called by ./run."""

from __future__ import annotations

import calendar
import os
import pathlib
import signal
import subprocess
import sys
import threading
import time
from typing import Any, Callable, Iterator

REPOSITORY = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(REPOSITORY / "Helpdesk"), str(REPOSITORY / "Tests/SampleMac")]

from helpdesk.client import HelpdeskClient  # noqa: E402
from helpdesk.process import HelpdeskProcess  # noqa: E402
from samplemac import SampleMac  # noqa: E402

AGENT = REPOSITORY / "build/release/wsparo-agent-dev"
LOCAL = REPOSITORY / ".local"
CHECK_SECONDS = 30.0
STOP_SECONDS = 3.0


class Stopped(Exception):
    """Somebody pressed Ctrl-C or told us to end."""


def say(text: str) -> None:
    print(f"run: {text}", flush=True)


def fail(reason: str) -> None:
    raise SystemExit(f"run: {reason}")


def follow(path: pathlib.Path, begin: int, source: str, ended: threading.Event) -> None:
    """Shows what is appended to a file, line by line, until told to end."""
    while not path.exists() and not ended.wait(0.1):
        pass
    if not path.exists():
        return
    with path.open(encoding="utf-8", errors="replace") as lines:
        lines.seek(begin)
        while True:
            if line := lines.readline():
                print(f"{source:>8} | {line.rstrip()}", flush=True)
            elif ended.wait(0.1):
                return


class LocalRun:
    """The three together. Use as a context manager: leaving it stops both processes."""

    def __init__(self) -> None:
        LOCAL.mkdir(exist_ok=True)
        self.events = LOCAL / "helpdesk-events.log"
        # Its own session: Ctrl-C goes to us alone, and we stop both in their order.
        self.desk = HelpdeskProcess(LOCAL / "helpdesk", events=self.events, python=sys.executable,
                                    new_session=True)
        self.mac = SampleMac(LOCAL / "mac")
        self.mac.write_settings(serverBaseUrl=self.desk.url, viewerToken=self.desk.viewer_token,
                                heartbeatIntervalSeconds=60)
        self.log = self.mac.place("/Library/Logs/Wsparo Brenvox/wsparo.log")
        self._log_begin = self.log.stat().st_size if self.log.exists() else 0
        self._events_begin = self.events.stat().st_size if self.events.exists() else 0
        variables = {**os.environ, "SSL_CERT_FILE": self.desk.ca_file,
                     "SSL_CERT_DIR": str(LOCAL / "no-certificates")}
        variables.pop("ORV_VIEWER_SETTINGS_PATH", None)
        self.agent = subprocess.Popen([AGENT, "--root", self.mac.root], env=variables,
                                      stdin=subprocess.DEVNULL, start_new_session=True)

    def __enter__(self) -> LocalRun:
        return self

    def __exit__(self, *_: object) -> None:
        self.agent.terminate()
        try:
            self.agent.wait(STOP_SECONDS)
        except subprocess.TimeoutExpired:
            self.agent.kill()
            self.agent.wait()
        self.mac.close()
        self.desk.stop()

    def introduce(self) -> None:
        say(f"the helpdesk listens on {self.desk.url} (CA: {self.desk.ca_file})")
        say(f"its admin interface on {self.desk.ready['admin_url']} "
            f"(token: {self.desk.ready['admin_token_file']})")
        say(f"the sample Mac is {self.mac.root}, the agent's log {self.log}")

    def followers(self, ended: threading.Event) -> Iterator[threading.Thread]:
        for path, begin, source in ((self.events, self._events_begin, "helpdesk"),
                                    (self.log, self._log_begin, "agent")):
            thread = threading.Thread(target=follow, args=(path, begin, source, ended))
            thread.start()
            yield thread


def run_until_stopped(local: LocalRun) -> int:
    ended = threading.Event()
    threads = list(local.followers(ended))
    try:
        say("Ctrl-C stops both.")
        status = local.agent.wait()
        say(f"the agent ended by itself with exit code {status}")
        return 1
    except Stopped:
        say("stopping")
        return 0
    finally:
        ended.set()
        for thread in threads:
            thread.join()


class Check:
    """Lets the agent show what it can, within one deadline for everything."""

    def __init__(self, local: LocalRun, admin: HelpdeskClient) -> None:
        self._local = local
        self._admin = admin
        self._deadline = time.monotonic() + CHECK_SECONDS
        self._uid = ""

    def run(self) -> None:
        self._registration()
        self._control_connection()
        self._shell_command()
        self._listing()
        if violations := self._admin.violations():
            fail(f"the agent broke the protocol: {violations}")

    def _left(self) -> float:
        return max(self._deadline - time.monotonic(), 0.1)

    def _registration(self) -> None:
        started = time.time()

        def is_fresh(device: dict[str, Any]) -> bool:
            return device["heartbeat_at"] is not None and _seconds(device["heartbeat_at"]) >= started - 2

        device = self._wait("registration and heartbeat",
                            lambda: self._admin.wait_for_device(until=is_fresh, timeout=self._left()))
        self._uid = device["uid"]
        say(f"registered: {device['display_name'] or device['hostname']} uid={self._uid} support id={device['support_id']}")
        say(f"heartbeat: {device['heartbeat_at']}")

    def _control_connection(self) -> None:
        self._wait("control connection",
                   lambda: self._admin.wait_until_connected(self._uid, timeout=self._left()))
        say("the control connection is open")

    def _shell_command(self) -> None:
        begin = time.monotonic()
        result = self._command("shell", {"command": "echo Hello from $(uname -m)"})
        milliseconds = (time.monotonic() - begin) * 1000
        say(f"shell over the control connection in {milliseconds:.0f} ms: "
            f"exit code {result['exit_code']}, {result['stdout'].strip()!r}")

    def _listing(self) -> None:
        result = self._command("file_list", {"path": "/Applications", "max_items": 10})
        names = ", ".join(item["name"] for item in result["items"])
        say(f"listing of {result['path']}: {names}")

    def _command(self, command_type: str, payload: dict[str, Any]) -> dict[str, Any]:
        command = self._wait(f"result of {command_type}", lambda: self._admin.run_command(
            self._uid, command_type, payload, timeout=self._left()))
        if command["status"] != "completed":
            fail(f"{command_type} ended as {command['status']}: {command['result']}")
        return command["result"]

    def _wait(self, what: str, wait: Callable[[], Any]) -> Any:
        try:
            return wait()
        except TimeoutError:
            state = self._local.agent.poll()
            ended = "" if state is None else f" (the agent ended with exit code {state})"
            fail(f"no {what} within {CHECK_SECONDS:.0f} s{ended}; see {self._local.log}")


def _seconds(text: str) -> float:
    return calendar.timegm(time.strptime(text, "%Y-%m-%dT%H:%M:%SZ"))


def main() -> int:
    def stop(*_: object) -> None:
        raise Stopped

    signal.signal(signal.SIGTERM, stop)
    signal.signal(signal.SIGINT, stop)
    try:
        with LocalRun() as local:
            local.introduce()
            if sys.argv[1:] != ["--check"]:
                return run_until_stopped(local)
            with local.desk.client() as admin:
                Check(local, admin).run()
            say("all is well")
            return 0
    except Stopped:
        return 130


if __name__ == "__main__":
    sys.exit(main())
