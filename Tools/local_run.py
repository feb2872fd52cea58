"""Runs a helpdesk, a sample Mac and the agent on it, and tells what happens. Called by ./run."""

from __future__ import annotations

import os
import pathlib
import signal
import subprocess
import sys
import threading
from typing import Iterator, Optional

REPOSITORY = pathlib.Path(__file__).resolve().parents[1]
sys.path[:0] = [str(REPOSITORY / "Helpdesk"), str(REPOSITORY / "Tests/SampleMac")]

from helpdesk.process import HelpdeskProcess  # noqa: E402
from local_check import CheckFailed, LocalCheck  # noqa: E402
from samplemac import SampleMac  # noqa: E402

AGENT = pathlib.Path(os.environ.get("ORV_BUILD_DIR", REPOSITORY / "build/release")) / "wsparo-agent-dev"
LOCAL = REPOSITORY / ".local"
STOP_SECONDS = 3.0


class Stopped(Exception):
    """Somebody pressed Ctrl-C or told us to end."""


def say(text: str) -> None:
    print(f"run: {text}", flush=True)


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
        self.ended_with: Optional[int] = None  # by itself, before we stopped it

    def __enter__(self) -> LocalRun:
        return self

    def __exit__(self, *_: object) -> None:
        self.ended_with = self.agent.poll()
        self.agent.terminate()
        try:
            self.agent.wait(STOP_SECONDS)
        except subprocess.TimeoutExpired:
            self.agent.kill()
            self.agent.wait()
        self.mac.close()
        self.desk.stop()

    def end_of_the_agent(self) -> str:
        return "" if self.ended_with is None else f" (the agent ended with exit code {self.ended_with})"

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
                LocalCheck(admin, local.mac, say).run()
            say("all is well")
            return 0
    except CheckFailed as failure:
        say(f"{failure}{local.end_of_the_agent()}; see {local.log}")
        return 1
    except Stopped:
        return 130


if __name__ == "__main__":
    sys.exit(main())
