"""What every part of the helpdesk shares: built once at start, passed to all."""

from __future__ import annotations

import asyncio
import json
from dataclasses import dataclass, field
from typing import Any, Optional

from aiohttp import web

from .authentication import Authentication, Caller
from .changes import Changes
from .clock import timestamp
from .commands import Commands
from .events import EventLog
from .faults import Faults
from .protocol_check import Protocol
from .recorder import Recorder
from .sockets import Sockets
from .storage import Database, Row, to_json

EXCERPT_CHARACTERS = 2000


@dataclass
class Helpdesk:
    """The parts, each the owner of its own story."""

    database: Database
    authentication: Authentication
    protocol: Protocol
    events: EventLog
    stopping: asyncio.Event
    changes: Changes = field(default_factory=Changes)
    recorder: Recorder = field(default_factory=Recorder)
    sockets: Sockets = field(default_factory=Sockets)
    listener_names: dict[int, str] = field(default_factory=dict)
    commands: Commands = field(init=False)
    faults: Faults = field(init=False)

    def __post_init__(self) -> None:
        self.commands = Commands(self.database)
        self.faults = Faults(self.stopping)

    def violation(
        self, source: str, device_uid: Optional[str], problems: list[str], excerpt: str
    ) -> None:
        """Keeps what an agent sent against the protocol; the agent is answered all the same."""
        self.database.run(
            "INSERT INTO violations (at, source, device_uid, problems, excerpt)"
            " VALUES (?, ?, ?, ?, ?)",
            timestamp(),
            source,
            device_uid,
            to_json(problems),
            excerpt[:EXCERPT_CHARACTERS],
        )
        self.events.write("protocol violation", source=source, problem=problems[0])
        self.changes.announce()

    def violations(self, after: int) -> list[dict[str, Any]]:
        rows = self.database.all("SELECT * FROM violations WHERE id > ? ORDER BY id", after)
        return [{**row, "problems": json.loads(row["problems"])} for row in map(dict, rows)]


def helpdesk_of(request: web.Request) -> Helpdesk:
    return request.config_dict["helpdesk"]


def caller_of(request: web.Request) -> Caller:
    authorization = request.headers.get("Authorization")
    return helpdesk_of(request).authentication.caller(authorization)


def device_named_in_path(request: web.Request) -> Row:
    """The device of "{device_uid}" for the caller of this request; raises a Refusal."""
    authentication = helpdesk_of(request).authentication
    return authentication.admit_known(caller_of(request), request.match_info["device_uid"])
