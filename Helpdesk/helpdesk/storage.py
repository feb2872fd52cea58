"""The SQLite file behind the helpdesk."""

from __future__ import annotations

import json
import os
import sqlite3
from collections.abc import Iterable, Iterator
from contextlib import contextmanager
from pathlib import Path
from typing import Any, Optional

SCHEMA = """
CREATE TABLE IF NOT EXISTS organizations (
    id INTEGER PRIMARY KEY,
    name TEXT NOT NULL,
    viewer_token_hash TEXT NOT NULL UNIQUE
);
CREATE TABLE IF NOT EXISTS devices (
    uid TEXT PRIMARY KEY,
    organization_id INTEGER NOT NULL REFERENCES organizations (id),
    support_id TEXT NOT NULL UNIQUE,
    public_id TEXT NOT NULL UNIQUE,
    hostname TEXT,
    display_name TEXT,
    agent_version TEXT,
    active INTEGER NOT NULL DEFAULT 1,
    token_generation INTEGER NOT NULL DEFAULT 0,
    token_hash TEXT UNIQUE,
    token_organization_id INTEGER,
    registered_at TEXT NOT NULL,
    inventory TEXT,
    inventory_at TEXT,
    inventory_count INTEGER NOT NULL DEFAULT 0,
    heartbeat TEXT,
    heartbeat_at TEXT,
    heartbeat_count INTEGER NOT NULL DEFAULT 0
);
CREATE TABLE IF NOT EXISTS commands (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    device_uid TEXT NOT NULL REFERENCES devices (uid),
    command_type TEXT NOT NULL,
    payload TEXT NOT NULL,
    status TEXT NOT NULL DEFAULT 'queued',
    deliveries INTEGER NOT NULL DEFAULT 0,
    first_delivered_at REAL
);
CREATE INDEX IF NOT EXISTS commands_pending ON commands (device_uid, status);
CREATE TABLE IF NOT EXISTS command_history (
    id INTEGER PRIMARY KEY,
    command_id INTEGER NOT NULL REFERENCES commands (id),
    status TEXT NOT NULL,
    at REAL NOT NULL,
    report BLOB
);
CREATE INDEX IF NOT EXISTS history_of_command ON command_history (command_id);
CREATE TABLE IF NOT EXISTS conversations (
    public_id TEXT PRIMARY KEY,
    device_uid TEXT NOT NULL REFERENCES devices (uid)
);
CREATE TABLE IF NOT EXISTS chat_messages (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    conversation TEXT NOT NULL REFERENCES conversations (public_id),
    device_uid TEXT NOT NULL,
    direction TEXT NOT NULL,
    sender TEXT NOT NULL,
    text TEXT NOT NULL,
    client_message_id TEXT,
    command_id INTEGER,
    sent_at TEXT,
    stored_at REAL NOT NULL,
    deliveries INTEGER NOT NULL DEFAULT 1,
    UNIQUE (device_uid, client_message_id)
);
CREATE TABLE IF NOT EXISTS remote_sessions (
    public_id TEXT PRIMARY KEY,
    device_uid TEXT NOT NULL REFERENCES devices (uid),
    ticket TEXT NOT NULL,
    requested_at REAL NOT NULL
);
CREATE TABLE IF NOT EXISTS remote_session_reports (
    id INTEGER PRIMARY KEY,
    session TEXT NOT NULL REFERENCES remote_sessions (public_id),
    status TEXT NOT NULL,
    error_message TEXT,
    metadata TEXT NOT NULL,
    at REAL NOT NULL
);
CREATE TABLE IF NOT EXISTS customers (
    id INTEGER PRIMARY KEY,
    email TEXT NOT NULL UNIQUE COLLATE NOCASE,
    full_name TEXT NOT NULL,
    phone TEXT,
    organization_name TEXT,
    can_view_organization_tickets INTEGER NOT NULL DEFAULT 0,
    password_salt BLOB NOT NULL,
    password_hash BLOB NOT NULL
);
CREATE TABLE IF NOT EXISTS customer_sessions (
    token_hash TEXT PRIMARY KEY,
    customer_id INTEGER NOT NULL REFERENCES customers (id),
    expires_at TEXT NOT NULL
);
CREATE TABLE IF NOT EXISTS tickets (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    public_id TEXT NOT NULL UNIQUE,
    organization_id INTEGER NOT NULL,
    client_request_id TEXT NOT NULL,
    device_uid TEXT,
    customer_email TEXT COLLATE NOCASE,
    subject TEXT NOT NULL,
    status TEXT NOT NULL DEFAULT 'open',
    body TEXT NOT NULL,
    created_at TEXT NOT NULL,
    UNIQUE (organization_id, client_request_id)
);
CREATE TABLE IF NOT EXISTS ticket_attachments (
    ticket_id INTEGER NOT NULL REFERENCES tickets (id),
    position INTEGER NOT NULL,
    filename TEXT NOT NULL,
    content_type TEXT NOT NULL,
    inline_placeholder TEXT,
    sha256 TEXT NOT NULL,
    data BLOB NOT NULL,
    PRIMARY KEY (ticket_id, position)
);
CREATE TABLE IF NOT EXISTS ticket_messages (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    ticket_id INTEGER NOT NULL REFERENCES tickets (id),
    text TEXT NOT NULL,
    created_at TEXT NOT NULL
);
CREATE TABLE IF NOT EXISTS packages (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    platform TEXT NOT NULL,
    architecture TEXT NOT NULL,
    channel TEXT NOT NULL,
    version TEXT NOT NULL,
    filename TEXT NOT NULL,
    size_bytes INTEGER NOT NULL,
    sha256 TEXT NOT NULL,
    manifest_changes TEXT NOT NULL DEFAULT '{}',
    serving TEXT NOT NULL DEFAULT '{}'
);
CREATE TABLE IF NOT EXISTS violations (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    at TEXT NOT NULL,
    source TEXT NOT NULL,
    device_uid TEXT,
    problems TEXT NOT NULL,
    excerpt TEXT NOT NULL
);
"""

Row = sqlite3.Row


class Database:
    """One connection, used on the event loop's thread only: every statement is brief."""

    def __init__(self, path: Path) -> None:
        # Created private before SQLite opens it: the file holds what devices told about themselves.
        os.close(os.open(path, os.O_CREAT | os.O_RDWR, 0o600))
        self._connection = sqlite3.connect(path, isolation_level=None)
        self._connection.row_factory = sqlite3.Row
        self._connection.execute("PRAGMA journal_mode = WAL")
        # A crash of the machine may cost the last moments; a crash of this program costs nothing.
        self._connection.execute("PRAGMA synchronous = OFF")
        self._connection.execute("PRAGMA foreign_keys = ON")
        self._connection.executescript(SCHEMA)

    def close(self) -> None:
        self._connection.close()

    def run(self, statement: str, *values: Any) -> int:
        """Runs one statement and returns the row id it inserted, if any."""
        return self._connection.execute(statement, values).lastrowid or 0

    def run_many(self, statement: str, rows: Iterable[tuple[Any, ...]]) -> None:
        self._connection.executemany(statement, rows)

    def one(self, query: str, *values: Any) -> Optional[Row]:
        return self._connection.execute(query, values).fetchone()

    def all(self, query: str, *values: Any) -> list[Row]:
        return self._connection.execute(query, values).fetchall()

    def each(self, query: str, *values: Any) -> Iterator[Row]:
        return self._connection.execute(query, values)

    @contextmanager
    def transaction(self) -> Iterator[None]:
        self._connection.execute("BEGIN")
        try:
            yield
        except BaseException:
            self._connection.execute("ROLLBACK")
            raise
        self._connection.execute("COMMIT")


def to_json(value: Any) -> str:
    return json.dumps(value, ensure_ascii=False, separators=(",", ":"))
