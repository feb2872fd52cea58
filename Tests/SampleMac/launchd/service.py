"""One loaded job: its process, its end, its next start, and the text that describes it."""

from __future__ import annotations

import asyncio
import json
import os
import pathlib
import pwd
import signal
import subprocess

from .jobfile import JobFile
from .text import Description

_CONFIGURATION_FAULT = "78: EX_CONFIG"  # what launchd notes when it cannot even start a program


class Surroundings:
    """Where the sample Mac is: `root` is empty when it has been entered."""

    def __init__(self, sample: pathlib.Path) -> None:
        self.folder = sample / "launchd"
        self.root = str(sample.parent).rstrip("/")

    def locate(self, path: str) -> str:
        return self.root + path

    def mac_path(self, path: str) -> str:
        return path.removeprefix(self.root) if path.startswith(self.root + "/") else path

    def located_arguments(self, arguments: tuple[str, ...]) -> list[str]:
        """From outside, arguments that name something on the Mac are given their real place."""
        program, *others = arguments
        return [self.locate(program), *(
            self.locate(other) if other.startswith("/") and os.path.lexists(self.locate(other))
            else other for other in others)]

    def environment(self, job: JobFile, home: str) -> dict[str, str]:
        """What a job sees; tests add what they need (certificates) to environment.json."""
        folders = ("/usr/bin", "/bin", "/usr/sbin", "/sbin")
        added = self.folder / "environment.json"
        return {
            "PATH": ":".join(self.locate(folder) for folder in folders),
            "XPC_SERVICE_NAME": job.label, "HOME": home,
            **(json.loads(added.read_text()) if added.exists() else {}), **job.environment}

    def throttle_seconds(self, job: JobFile) -> float:
        shorter = self.folder / "throttle"
        return float(shorter.read_text()) if shorter.exists() else job.throttle_seconds


class Service:
    def __init__(self, domain: str, job: JobFile, around: Surroundings) -> None:
        self.domain = domain
        self.job = job
        self.around = around
        self.process: subprocess.Popen | None = None
        self.leaving = False  # booted out, only waiting for its process to end
        self.ended = asyncio.Event()
        self.ended.set()
        self._being_stopped = False
        self._runs = 0
        self._started = 0.0
        self._last_exit = "(never exited)"
        self._timer: asyncio.TimerHandle | None = None
        self._killer: asyncio.TimerHandle | None = None
        self.describe("not running")

    @property
    def pid(self) -> int | None:
        return self.process.pid if self.process else None

    def start(self) -> None:
        """Starts the process unless it runs; a start that fails is noted like an exit."""
        if self.process:
            return
        self._cancel_timers()
        self._runs += 1
        self._started = asyncio.get_running_loop().time()
        try:
            self.process = self._spawn()
        except OSError:
            self._last_exit = _CONFIGURATION_FAULT
            self._after_end(exit_code=78)
            return
        self.ended.clear()
        self.describe("running")

    def _spawn(self) -> subprocess.Popen:
        uid, group, home = self._identity()
        arguments = self.around.located_arguments(self.job.arguments)
        directory = self.around.locate(self.job.working_directory or "/")
        with open(self._output(self.job.standard_output), "ab") as output, \
                open(self._output(self.job.standard_error), "ab") as error:
            return subprocess.Popen(
                arguments, cwd=directory, env=self.around.environment(self.job, home),
                stdin=subprocess.DEVNULL, stdout=output, stderr=error, start_new_session=True,
                user=uid, group=group, extra_groups=None if uid is None else [])

    def _output(self, path: str | None) -> str:
        return self.around.locate(path) if path else os.devnull

    def _identity(self) -> tuple[int | None, int | None, str]:
        """Agents run as their user, but only inside: from outside the user may not even reach the
        sample Mac's folder."""
        if self.domain == "system" or self.around.root or os.geteuid() != 0:
            return None, None, self.around.locate("/var/root")
        account = pwd.getpwuid(int(self.domain.split("/")[1]))
        return account.pw_uid, account.pw_gid, account.pw_dir

    def about_to_end(self) -> None:
        """Called while the ended process still waits to be collected, so that its group's number
        cannot have been given to anybody else."""
        if self.process and not self.job.abandon_process_group:
            try:
                os.killpg(self.process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass

    def process_ended(self, status: int) -> None:
        code = os.waitstatus_to_exitcode(status)
        self.process.returncode = code
        self.process = None
        self._last_exit = str(code) if code >= 0 else f"(terminated by signal {-code})"
        self._after_end(exit_code=code if code >= 0 else None)
        self.ended.set()

    def _after_end(self, exit_code: int | None) -> None:
        self._cancel_timers()
        if self._being_stopped or not self.job.restarts_after(exit_code):
            self.describe("not running")
            return
        loop = asyncio.get_running_loop()
        ran = loop.time() - self._started
        pause = max(0.0, self.around.throttle_seconds(self.job) - ran)
        self._timer = loop.call_later(pause, self.start)
        self.describe("spawn scheduled")

    async def stop(self) -> None:
        """Asks the process to end, makes it end when it does not, and waits for the end."""
        self._cancel_timers()
        if not self.process:
            return
        self._being_stopped = True
        self.describe("SIGTERMed")
        self.signal(signal.SIGTERM)
        loop = asyncio.get_running_loop()
        self._killer = loop.call_later(self.job.exit_timeout_seconds, self.signal, signal.SIGKILL)
        await self.ended.wait()
        self._being_stopped = False

    def signal(self, number: int) -> None:
        """Not by Popen's own operation: that one would collect the process behind our back."""
        if self.process:
            os.kill(self.process.pid, number)

    def _cancel_timers(self) -> None:
        for timer in (self._timer, self._killer):
            if timer:
                timer.cancel()
        self._timer = self._killer = None

    def describe(self, state: str) -> None:
        """Rewrites the file from which `launchctl print` answers."""
        file = self._description_file()
        file.parent.mkdir(parents=True, exist_ok=True)
        new = file.with_name(f".{file.name}.new")
        new.write_text(Description(
            domain=self.domain, label=self.job.label, path=self.job.path, state=state,
            arguments=list(self.job.arguments),
            environment={**self.job.environment, "XPC_SERVICE_NAME": self.job.label},
            standard_output=self.job.standard_output, standard_error=self.job.standard_error,
            pid=self.pid, runs=self._runs, last_exit=self._last_exit,
            minimum_runtime=self.job.throttle_seconds,
            exit_timeout=self.job.exit_timeout_seconds,
            properties=self.job.properties()).render())
        new.rename(file)

    def forget(self) -> None:
        self._cancel_timers()
        self._description_file().unlink(missing_ok=True)

    def list_line(self) -> str:
        return f"{self.pid or '-'}\t{self._last_exit.split(':')[0]}\t{self.job.label}\n"

    def _description_file(self) -> pathlib.Path:
        return self.around.folder / "loaded" / self.domain / self.job.label
