"""Remembers what agents sent, word for word, for tests and for the curious."""

from __future__ import annotations

import itertools
from collections import deque
from dataclasses import asdict, dataclass
from typing import Any, Optional
from weakref import WeakKeyDictionary

from aiohttp import web

from .clock import seconds

KEPT_REQUESTS = 20_000
KEPT_BODY_BYTES = 1 << 20
KEPT_BYTES_IN_ALL = 64 << 20


@dataclass
class RecordedRequest:
    """One request. `at` and `answered_at` are seconds since 1970.

    `status` is None until the answer is there, and for ever when a fault broke the connection;
    an open WebSocket has 101. `connection` is the same number for requests over the same TCP
    connection.
    """

    id: int
    at: float
    listener: str
    connection: int
    endpoint: Optional[str]
    method: str
    path: str
    host: str
    headers: list[tuple[str, str]]
    authorization: Optional[str]
    authorization_scheme: Optional[str]
    body: Optional[str] = None
    body_bytes: int = 0
    fault: Optional[str] = None
    status: Optional[int] = None
    answered_at: Optional[float] = None


class Recorder:
    """Keeps the latest requests in memory, within a bound for their number and their bodies."""

    def __init__(self) -> None:
        self._requests: deque[RecordedRequest] = deque()
        self._numbers = itertools.count(1)
        self._connections: WeakKeyDictionary[Any, int] = WeakKeyDictionary()
        self._connection_numbers = itertools.count(1)
        self._bytes = 0

    def begin(
        self, request: web.Request, endpoint: Optional[str], listener: str
    ) -> RecordedRequest:
        authorization = request.headers.get("Authorization")
        entry = RecordedRequest(
            id=next(self._numbers),
            at=seconds(),
            listener=listener,
            connection=self._connection_of(request),
            endpoint=endpoint,
            method=request.method,
            path=request.raw_path,
            host=request.host,
            headers=[(name, value) for name, value in request.headers.items()],
            authorization=authorization,
            authorization_scheme=authorization.partition(" ")[0] if authorization else None,
        )
        self._requests.append(entry)
        self._make_room()
        return entry

    def keep_body(self, entry: RecordedRequest, body: bytes) -> None:
        entry.body_bytes = len(body)
        entry.body = body[:KEPT_BODY_BYTES].decode("utf-8", "replace")
        self._bytes += len(entry.body)
        self._make_room()

    def requests(self, endpoint: Optional[str], after: int, limit: int) -> list[dict[str, Any]]:
        """The latest `limit` requests with an id above `after`, oldest first."""
        found = []
        for entry in reversed(self._requests):
            if entry.id <= after or len(found) == limit:
                break
            if endpoint is None or entry.endpoint == endpoint:
                found.append(asdict(entry))
        return found[::-1]

    def clear(self) -> None:
        self._requests.clear()
        self._bytes = 0

    def _connection_of(self, request: web.Request) -> int:
        transport = request.transport
        if transport is None:
            return 0
        if transport not in self._connections:
            self._connections[transport] = next(self._connection_numbers)
        return self._connections[transport]

    def _make_room(self) -> None:
        while len(self._requests) > KEPT_REQUESTS or self._bytes > KEPT_BYTES_IN_ALL:
            self._bytes -= len(self._requests.popleft().body or "")
