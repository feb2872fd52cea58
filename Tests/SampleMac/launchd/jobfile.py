"""What a job's property list asks for."""

from __future__ import annotations

import dataclasses
import os
import plistlib
import stat


class JobFileError(Exception):
    """launchd refuses the file; `code` is the number it refuses it with."""

    def __init__(self, code: int, text: str) -> None:
        super().__init__(text)
        self.code = code


@dataclasses.dataclass(frozen=True)
class JobFile:
    path: str  # on the Mac
    label: str
    arguments: tuple[str, ...]
    run_at_load: bool
    keep_alive: bool | dict
    abandon_process_group: bool
    throttle_seconds: float
    exit_timeout_seconds: float
    standard_output: str | None
    standard_error: str | None
    working_directory: str | None
    environment: dict[str, str]

    def restarts_after(self, exit_code: int | None) -> bool:
        """Whether launchd starts it again after this end; None is an end by a signal."""
        if isinstance(self.keep_alive, bool):
            return self.keep_alive
        if "SuccessfulExit" in self.keep_alive:
            return (exit_code == 0) == bool(self.keep_alive["SuccessfulExit"])
        return bool(self.keep_alive.get("Crashed")) and exit_code is None

    def properties(self) -> list[str]:
        return [word for word, holds in (("keepalive", self.keep_alive),
                                         ("runatload", self.run_at_load)) if holds]


def read(place: str, path: str) -> JobFile:
    """Reads the job file at `place`, which the Mac calls `path`; throws JobFileError."""
    try:
        with open(place, "rb") as file:
            values = plistlib.load(file)
            facts = os.fstat(file.fileno())
    except Exception as error:  # whatever is wrong with it, launchd says the same
        raise JobFileError(5, "Input/output error") from error
    # As root, launchd only trusts files that nobody else could have written.
    if os.geteuid() == 0 and (facts.st_uid != 0 or facts.st_mode & (stat.S_IWGRP | stat.S_IWOTH)):
        raise JobFileError(122, "Path had bad ownership/permissions")
    if not isinstance(values, dict):
        raise JobFileError(5, "Input/output error")
    label = values.get("Label")
    arguments = values.get("ProgramArguments") or [values.get("Program")]
    if not isinstance(label, str) or not label or "/" in label \
            or not all(isinstance(argument, str) for argument in arguments):
        raise JobFileError(5, "Input/output error")
    program = values.get("Program", arguments[0])
    return JobFile(
        path=path, label=label, arguments=(program, *arguments[1:]),
        run_at_load=bool(values.get("RunAtLoad")),
        keep_alive=values.get("KeepAlive", False),
        abandon_process_group=bool(values.get("AbandonProcessGroup")),
        throttle_seconds=float(values.get("ThrottleInterval", 10)),
        exit_timeout_seconds=float(values.get("ExitTimeOut", 5)),
        standard_output=values.get("StandardOutPath"),
        standard_error=values.get("StandardErrorPath"),
        working_directory=values.get("WorkingDirectory"),
        environment={str(key): str(value) for key, value
                     in values.get("EnvironmentVariables", {}).items()})
