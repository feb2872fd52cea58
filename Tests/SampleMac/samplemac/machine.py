"""One sample Mac in the hands of a test or of a developer."""

from __future__ import annotations

import dataclasses
import json
import os
import pathlib
import plistlib
import shlex
import shutil
import subprocess

from launchd import outside
from launchd.text import Description

from . import applications, layout, remote_tools, variants

CONFIG_FOLDER = "/Library/Application Support/Wsparo Brenvox"
LOG_FOLDER = "/Library/Logs/Wsparo Brenvox"

_SETTINGS = {
    "serverBaseUrl": "https://localhost",
    "viewerToken": "",
    "auditIntervalMinutes": 60,
    "heartbeatIntervalSeconds": 300,
    "commandPollIntervalSeconds": 30,
    "chatPollIntervalSeconds": 2,
    "controlReconnectMaxSeconds": 60,
    "notificationsEnabled": True,
}


@dataclasses.dataclass(frozen=True)
class ToolCall:
    """One run of a tool: its name and its arguments."""
    tool: str
    arguments: tuple[str, ...]


class SampleMac:
    """A sample Mac below `path`; built there unless one is there already.

    Tools are named by their path on the Mac ("/usr/bin/vm_stat") or by their name alone. Use it as
    a context manager, or call close(): launchd's jobs end with it. The folder itself stays. They
    also end with the process `owner`, by default this one; 0 is nobody. With `entered`, launchd
    and its jobs live where the sample Mac is "/" (root only); otherwise they are started from
    outside, with every path below the root.
    """

    def __init__(self, path: str | os.PathLike, variant: str = "laptop", *,
                 owner: int | None = None, entered: bool = False) -> None:
        self.root = pathlib.Path(path).absolute()
        self.entered = entered
        self.sample = self.root / ".sample"
        variant_file = self.sample / "variant"
        if variant_file.exists():
            variant = variant_file.read_text()
        self.variant = variants.VARIANTS[variant]
        if not variant_file.exists():
            layout.build(self.root, self.variant)
            variant_file.write_text(variant)
        if owner != 0:
            (self.sample / "owner").write_text(str(owner or os.getpid()))

    def __enter__(self) -> SampleMac:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def close(self) -> None:
        """Ends launchd with all its jobs; nothing happens when it was never started."""
        if (self.sample / "launchd/socket").exists():
            self.launchctl("teardown")

    def place(self, path: str) -> pathlib.Path:
        """Where an absolute path of the Mac lies."""
        return self.root / path.lstrip("/")

    # The agent's files

    def write_settings(self, **values: object) -> pathlib.Path:
        """The agent's settings file; keys as in the file, those not given have usual values."""
        file = self.place(f"{CONFIG_FOLDER}/wsparo.settings.json")
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(json.dumps({**_SETTINGS, **values}, indent=2, sort_keys=True))
        return file

    def read_state(self) -> dict | None:
        """The agent's state, or None before it has saved one."""
        file = self.place(f"{CONFIG_FOLDER}/wsparo.state.json")
        return json.loads(file.read_text()) if file.exists() else None

    def read_log(self, name: str = "wsparo.log") -> str:
        """The agent's log so far; empty before its first line."""
        file = self.place(f"{LOG_FOLDER}/{name}")
        return file.read_text(errors="replace") if file.exists() else ""

    # Tools

    def run(self, tool: str, *arguments: str, **options: object) -> subprocess.CompletedProcess:
        """Runs a tool of this Mac from outside and captures its output as text."""
        settings = {"capture_output": True, "text": True, "errors": "replace", **options}
        return subprocess.run([self._tool(tool), *arguments], check=False, **settings)

    def enter(self, *command: str, keep: tuple[str, ...] = (),
              **options: object) -> subprocess.CompletedProcess:
        """Runs a command where this Mac is "/"; `keep` are paths of the machine below /tmp or /var
        that it needs. Ends with 77 where the right to mount is missing."""
        settings = {"capture_output": True, "text": True, "errors": "replace", **options}
        return subprocess.run(self.enter_command(*command, keep=keep), check=False, **settings)

    def enter_command(self, *command: str, keep: tuple[str, ...] = ()) -> list[str]:
        """The command line that enter() runs, for those who start it themselves."""
        kept = [word for path in keep for word in ("--keep", str(path))]
        return [str(self.sample / "real/python3"), "-ES", str(self.sample / "lib/enter.py"),
                str(self.root), *kept, *command]

    def replace_tool(self, tool: str, script: str | None = None, *, output: str | bytes = "",
                     error: str = "", code: int = 0) -> None:
        """Lets a tool do something else: a script of its own or one fixed answer.

        A script that brings no interpreter line is sh; its calls are still recorded and delayed,
        and the machine's own programs are at "$real/NAME".
        """
        file = self._tool(tool)
        if script is None:
            answers = self.sample / "answers" / file.name
            answers.mkdir(parents=True, exist_ok=True)
            (answers / "fixed-output").write_bytes(
                output.encode() if isinstance(output, str) else output)
            (answers / "fixed-error").write_text(error)
            script = ('"$real/cat" "$answers/fixed-output"\n'
                      '"$real/cat" "$answers/fixed-error" >&2\n' f"exit {code}\n")
        if not script.startswith("#!"):
            script = self._prologue(file) + script
        self._put(file, script)

    def remove_tool(self, tool: str) -> None:
        self._tool(tool).unlink(missing_ok=True)

    def delay_tool(self, tool: str, seconds: float) -> None:
        """Every later run of the tool waits first."""
        self._fault(tool, f'"$real/sleep" {seconds}\n')

    def hang_tool(self, tool: str, *, ignores_termination: bool = False) -> None:
        """Every later run of the tool stays until it is killed."""
        self._fault(tool, ("trap '' TERM INT\n" if ignores_termination else "")
                    + 'exec "$real/sleep" 86400\n')

    def break_tool(self, tool: str, code: int = 1, error: str = "") -> None:
        """Every later run of the tool fails at once."""
        self._fault(tool, f"printf '%s' {shlex.quote(error)} >&2\nexit {code}\n")

    def mend_tool(self, tool: str) -> None:
        """Takes back a delay, a hang or a break."""
        (self.sample / "faults" / pathlib.PurePath(tool).name).unlink(missing_ok=True)

    def tool_calls(self, tool: str | None = None) -> list[ToolCall]:
        """What has been run so far, oldest first; of one tool (its bare name) or of all."""
        text = (self.sample / "calls.log").read_text(errors="surrogateescape")
        calls = [ToolCall(fields[0], tuple(fields[1:])) for fields in
                 (record.split("\x1f") for record in text.split("\x1f\n\x1f") if record)]
        return [call for call in calls if tool in (None, call.tool)]

    def forget_calls(self) -> None:
        os.truncate(self.sample / "calls.log", 0)

    def answer_file(self, tool: str, name: str) -> pathlib.Path:
        """The file from which a tool answers, to be rewritten by a test."""
        return self.sample / "answers" / tool / name

    def use_real_network(self) -> None:
        """ping and arp stop answering from the table of neighbours and ask the machine."""
        (self.sample / "real-network").touch()

    # What is on the Mac

    def add_application(self, name: str, **fields: object) -> pathlib.Path:
        """One more application bundle; fields as in `applications.Bundle`."""
        return applications.write_bundle(self.root, applications.Bundle(name, **fields))

    def remove_application(self, name: str, folder: str = "/Applications") -> None:
        shutil.rmtree(self.place(f"{folder}/{name}.app"))

    def write_preferences(self, path: str, values: dict, binary: bool = True) -> None:
        """A preference list at a path of the Mac, as the preferences tool then shows it."""
        remote_tools.write_preferences(self.root, path, values, binary)

    def show_service(self, domain: str, label: str, state: str = "running") -> None:
        """A service that launchd describes but does not run ("not running" has no process)."""
        layout.write_resident_service(self.root, Description(
            domain=domain, label=label, path=f"/Library/LaunchDaemons/{label}.plist", state=state,
            arguments=["/usr/bin/true"], pid=613 if state == "running" else None, runs=1))

    def hide_service(self, domain: str, label: str) -> None:
        (self.sample / "launchd/resident" / domain / label).unlink(missing_ok=True)

    # launchd and who is logged in

    def launchctl(self, *arguments: str) -> subprocess.CompletedProcess:
        # Without a process of its own, where the tool would only pass it on.
        passed_on = arguments and arguments[0] not in ("print", "asuser")
        reply = self._ask_launchd(list(arguments)) if passed_on else None
        if reply is None:
            start = self.enter if self.entered else self.run
            return start("/bin/launchctl", *arguments)
        code, output, error = reply
        return subprocess.CompletedProcess(["launchctl", *arguments], code, output, error)

    def _ask_launchd(self, arguments: list[str]) -> tuple[int, str, str] | None:
        """None where launchctl itself has to see to it."""
        reply = outside.ask_running(str(self.sample), arguments)
        if reply is None and arguments[0] != "teardown":
            outside.start(str(self.root), self.entered)
            reply = outside.ask_running(str(self.sample), arguments)
        return reply

    def description_of(self, target: str) -> str:
        """What `launchctl print` shows of a service, without a process for each look of a test that
        waits; empty when launchd has no such service."""
        for kind in ("loaded", "resident"):
            try:
                return (self.sample / "launchd" / kind / target).read_text()
            except FileNotFoundError:
                pass
        return ""

    def write_job(self, path: str, values: dict) -> pathlib.Path:
        """A job file as an installer leaves it: of root, and nobody else may write it."""
        file = self.place(path)
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(plistlib.dumps(values))
        file.chmod(0o644)
        return file

    def set_throttle(self, seconds: float) -> None:
        """How soon launchd starts a job again that ended early, whatever the job's file says."""
        (self.sample / "launchd/throttle").write_text(str(seconds))

    def set_job_environment(self, **values: str) -> None:
        """Variables that every job started from now on sees, such as the test's certificates."""
        (self.sample / "launchd/environment.json").write_text(json.dumps(values))

    def log_in(self, name: str) -> str:
        """Somebody sits down at the screen; the name of the launchd domain."""
        uid = layout.account_uid(self.root, name)
        layout.own(self.place("/dev/console"), uid)
        domain = f"gui/{uid}"
        (self.sample / "launchd/resident" / domain).mkdir(parents=True, exist_ok=True)
        return domain

    def log_out(self) -> None:
        """Everybody leaves; their jobs end."""
        gui = self.sample / "launchd/resident/gui"
        for domain in sorted(gui.iterdir()) if gui.exists() else ():
            self.launchctl("bootout", f"gui/{domain.name}")
        layout.own(self.place("/dev/console"), 0)

    def restart(self) -> None:
        """The machine goes down with all its jobs and comes up again; users stay logged in."""
        self.launchctl("teardown")
        self.launchctl("bootstrap", "system", "/Library/LaunchDaemons")
        gui = self.sample / "launchd/resident/gui"
        for domain in sorted(gui.iterdir()) if gui.exists() else ():
            self.launchctl("bootstrap", f"gui/{domain.name}", "/Library/LaunchAgents")

    # Inside

    def _tool(self, tool: str) -> pathlib.Path:
        if "/" in tool:
            return self.place(tool)
        folders = ("usr/bin", "usr/sbin", "bin", "sbin", "usr/libexec/ApplicationFirewall",
                   "usr/libexec", "usr/local/bin")
        places = [self.root / folder / tool for folder in folders]
        return next((place for place in places if os.path.lexists(place)), places[0])

    def _prologue(self, file: pathlib.Path) -> str:
        path = file.relative_to(self.root)
        return f'#!/bin/sh\nroot=${{0%/{path}}}\n. "$root/.sample/lib/tool.sh"\n\n'

    def _fault(self, tool: str, script: str) -> None:
        file = self._tool(tool)
        if file.is_symlink():
            # The machine's own program knows no faults: put a script in front of it.
            self._put(file, self._prologue(file) + f'exec "$real/{file.name}" "$@"\n')
        (self.sample / "faults" / file.name).write_text(script)

    @staticmethod
    def _put(file: pathlib.Path, text: str) -> None:
        """Renamed into place: a tool that is being run right now keeps its old text."""
        new = file.with_name(file.name + ".new")
        new.write_text(text)
        new.chmod(0o755)
        new.rename(file)
