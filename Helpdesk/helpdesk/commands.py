"""Commands that consultants queue, from the queue to the report."""

from __future__ import annotations

import asyncio
import json
from typing import Any, Optional, Sequence

from .clock import seconds
from .storage import Database, Row, to_json

QUEUED = "queued"
FINAL = ("completed", "failed", "uninstall_started")


class Commands:
    """Commands with their history. A command is delivered until a first report about it comes."""

    def __init__(self, database: Database) -> None:
        self._database = database
        self._waiting: dict[int, list[asyncio.Future[None]]] = {}

    def queue(self, device_uid: str, commands: Sequence[tuple[str, Any]]) -> list[int]:
        """Queues (type, payload) pairs in order and returns their ids."""
        now = seconds()
        identifiers = []
        with self._database.transaction():
            for command_type, payload in commands:
                identifier = self._database.run(
                    "INSERT INTO commands (device_uid, command_type, payload) VALUES (?, ?, ?)",
                    device_uid,
                    command_type,
                    to_json(payload),
                )
                self._enter(identifier, QUEUED, now)
                identifiers.append(identifier)
        return identifiers

    def deliver(self, device_uid: str, command_type: Optional[str]) -> bytes:
        """The pending commands as the device reads them; counts the delivery."""
        chosen = "device_uid = ? AND status = 'queued' AND (? IS NULL OR command_type = ?)"
        values = (device_uid, command_type, command_type)
        rows = self._database.all(
            f"SELECT id, command_type, payload FROM commands WHERE {chosen} ORDER BY id", *values
        )
        if not rows:
            return b"[]"
        self._database.run(
            "UPDATE commands SET deliveries = deliveries + 1,"
            f" first_delivered_at = coalesce(first_delivered_at, ?) WHERE {chosen}",
            seconds(),
            *values,
        )
        elements = (
            f'{{"id":{row["id"]},"command_type":{to_json(row["command_type"])},'
            f'"payload":{row["payload"]}}}'
            for row in rows
        )
        return f"[{','.join(elements)}]".encode("utf-8")

    def report(self, command_id: int, status: str, body: bytes) -> None:
        """`body` is the report as it came: results of many megabytes are not taken apart here."""
        with self._database.transaction():
            self._enter(command_id, status, seconds(), body)
            self._database.run("UPDATE commands SET status = ? WHERE id = ?", status, command_id)
        if status in FINAL:
            for future in self._waiting.pop(command_id, []):
                if not future.done():
                    future.set_result(None)

    async def wait_until_final(self, identifiers: Sequence[int], timeout: float) -> bool:
        """Whether every one of the commands came to its end within `timeout` seconds."""
        futures = []
        for identifier in identifiers:
            row = self.find(identifier)
            if row is not None and row["status"] not in FINAL:
                futures.append(asyncio.get_running_loop().create_future())
                self._waiting.setdefault(identifier, []).append(futures[-1])
        if not futures:
            return True
        _, unfinished = await asyncio.wait(futures, timeout=timeout)
        for future in unfinished:
            future.cancel()
        return not unfinished

    def find(self, command_id: int) -> Optional[Row]:
        # SQLite's integers end at 64 bits; no command has a number beyond them.
        if not -(2**63) <= command_id < 2**63:
            return None
        return self._database.one("SELECT * FROM commands WHERE id = ?", command_id)

    def describe(self, command_id: int) -> Optional[dict[str, Any]]:
        """The command with its history and the result of its last report."""
        row = self.find(command_id)
        if row is None:
            return None
        history = [
            _history_entry(entry)
            for entry in self._database.each(
                "SELECT * FROM command_history WHERE command_id = ? ORDER BY id", command_id
            )
        ]
        return {
            "id": row["id"],
            "device_uid": row["device_uid"],
            "command_type": row["command_type"],
            "payload": json.loads(row["payload"]),
            "status": row["status"],
            "final": row["status"] in FINAL,
            "deliveries": row["deliveries"],
            "first_delivered_at": row["first_delivered_at"],
            "history": history,
            "result": history[-1].get("result"),
        }

    def of_device(self, device_uid: str, limit: int) -> list[dict[str, Any]]:
        """The latest `limit` commands, oldest first."""
        rows = self._database.all(
            "SELECT id FROM commands WHERE device_uid = ? ORDER BY id DESC LIMIT ?",
            device_uid,
            limit,
        )
        return [described for row in rows[::-1] if (described := self.describe(row["id"]))]

    def counts(self, device_uid: str) -> dict[str, int]:
        return {
            row["status"]: row["number"]
            for row in self._database.each(
                "SELECT status, count(*) AS number FROM commands WHERE device_uid = ?"
                " GROUP BY status",
                device_uid,
            )
        }

    def note_wake_up(self, command_id: int) -> None:
        self._enter(command_id, "woken", seconds())

    def _enter(self, command_id: int, status: str, at: float, report: bytes = b"") -> None:
        self._database.run(
            "INSERT INTO command_history (command_id, status, at, report) VALUES (?, ?, ?, ?)",
            command_id,
            status,
            at,
            report or None,
        )


def _history_entry(row: Row) -> dict[str, Any]:
    entry: dict[str, Any] = {"status": row["status"], "at": row["at"]}
    if row["report"] is not None:
        entry["result"] = json.loads(row["report"]).get("result")
    return entry
