"""Every WebSocket that agents hold open, and what can be done to it on demand."""

from __future__ import annotations

import asyncio
import base64
import itertools
from collections import deque
from dataclasses import dataclass, field
from typing import Any, Optional

from aiohttp import WSCloseCode, WSMessage, WSMsgType, web

from .answers import Refusal
from .clock import seconds
from .faults import hang_up
from .storage import to_json

KEPT_CLOSED_SOCKETS = 200
KEPT_MESSAGES = 5000
LARGEST_MESSAGE_BYTES = 4 << 20
CLOSE_TIMEOUT_SECONDS = 1.0
SEND_TIMEOUT_SECONDS = 0.5


@dataclass
class Socket:
    """One WebSocket, open or closed. Times are seconds since 1970.

    `muted` sockets get nothing from the helpdesk's own accord: no acknowledgement, no wake-up.
    """

    id: int
    kind: str
    request: web.Request
    stream: web.WebSocketResponse
    opened_at: float
    authorization: Optional[str]
    device_uid: Optional[str] = None
    session: Optional[str] = None
    ready: bool = False
    muted: bool = False
    closed_at: Optional[float] = None
    close_code: Optional[int] = None
    received_count: int = 0
    received: deque[dict[str, Any]] = field(default_factory=lambda: deque(maxlen=KEPT_MESSAGES))
    pings: int = 0
    pongs: int = 0
    goodbye: Optional[asyncio.Future[bool]] = None

    @property
    def open(self) -> bool:
        return self.closed_at is None

    async def send(self, message: dict[str, Any]) -> bool:
        """Sends one message; False when the other side is gone, reads no more, or is muted."""
        if self.muted or not self.open:
            return False
        try:
            return await asyncio.wait_for(self.send_text(to_json(message)), SEND_TIMEOUT_SECONDS)
        except asyncio.TimeoutError:
            return False

    async def send_text(self, text: str) -> bool:
        try:
            await self.stream.send_str(text)
        except (ConnectionError, RuntimeError):
            return False
        return True

    async def close(self, code: int, reason: str = "") -> None:
        closing = self.stream.close(code=code, message=reason.encode("utf-8"))
        self.goodbye = asyncio.ensure_future(closing)
        await self.goodbye

    def describe(self, with_messages: bool) -> dict[str, Any]:
        facts: dict[str, Any] = {
            "id": self.id,
            "kind": self.kind,
            "device_uid": self.device_uid,
            "session": self.session,
            "authorization": self.authorization,
            "open": self.open,
            "ready": self.ready,
            "opened_at": self.opened_at,
            "closed_at": self.closed_at,
            "close_code": self.close_code,
            "received_count": self.received_count,
            "pings": self.pings,
            "pongs": self.pongs,
        }
        if with_messages:
            facts["received"] = list(self.received)
        return facts


class Sockets:
    """The open sockets and the latest closed ones."""

    def __init__(self) -> None:
        self._numbers = itertools.count(1)
        self._open: dict[int, Socket] = {}
        self._closed: deque[Socket] = deque(maxlen=KEPT_CLOSED_SOCKETS)

    async def accept(self, kind: str, request: web.Request) -> Socket:
        # Pings are answered here rather than by the library, so that they can be counted and
        # a muted socket stays silent altogether.
        stream = web.WebSocketResponse(
            max_msg_size=LARGEST_MESSAGE_BYTES, timeout=CLOSE_TIMEOUT_SECONDS, autoping=False
        )
        await stream.prepare(request)
        request["recorded"].status = stream.status
        socket = Socket(
            id=next(self._numbers),
            kind=kind,
            request=request,
            stream=stream,
            opened_at=seconds(),
            authorization=request.headers.get("Authorization"),
        )
        self._open[socket.id] = socket
        return socket

    async def receive(self, socket: Socket) -> Optional[WSMessage]:
        """The next text or binary message; None once the socket has closed."""
        while True:
            message = await socket.stream.receive()
            if message.type is WSMsgType.PING:
                socket.pings += 1
                if not socket.muted:
                    await socket.stream.pong(message.data)
            elif message.type in (WSMsgType.TEXT, WSMsgType.BINARY):
                return message
            elif message.type is WSMsgType.PONG:
                socket.pongs += 1
            else:
                return None

    async def closed(self, socket: Socket) -> None:
        """Ends the conversation's bookkeeping; called by the socket's own handler."""
        if socket.goodbye is not None:
            # A handler that returned first would say goodbye itself, with another code.
            await socket.goodbye
        socket.closed_at = seconds()
        socket.close_code = socket.stream.close_code
        socket.ready = False
        self._open.pop(socket.id, None)
        self._closed.append(socket)

    def ready_for(self, device_uid: str) -> list[Socket]:
        """The device's control sockets that have been greeted."""
        return [s for s in self._open.values() if s.device_uid == device_uid and s.ready]

    def describe(self, kind: Optional[str], device_uid: Optional[str]) -> list[dict[str, Any]]:
        return [
            socket.describe(with_messages=False)
            for socket in itertools.chain(self._closed, self._open.values())
            if kind in (None, socket.kind) and device_uid in (None, socket.device_uid)
        ]

    def find(self, socket_id: int) -> Socket:
        for socket in itertools.chain(self._open.values(), self._closed):
            if socket.id == socket_id:
                return socket
        raise Refusal(404, "Socket not found")

    async def close_all(self) -> None:
        closings = [s.close(WSCloseCode.GOING_AWAY) for s in list(self._open.values())]
        if closings:
            await asyncio.wait([asyncio.ensure_future(c) for c in closings], timeout=0.5)


async def perform(socket: Socket, action: dict[str, Any]) -> None:
    """Does one thing to an open socket: {"action": ..., and what it needs}.

    send_text (text, repeat), send_binary (base64), send_raw (base64: bytes beneath the WebSocket),
    ping, close (code, reason), drop, reset, mute, unmute, pause_reading, resume_reading.
    """
    transport = socket.request.transport
    if not socket.open or transport is None:
        raise Refusal(409, "The socket is closed")
    name = action.get("action")
    if name == "send_text":
        for _ in range(action.get("repeat", 1)):
            await socket.send_text(action["text"])
    elif name == "send_binary":
        await socket.stream.send_bytes(base64.b64decode(action["base64"]))
    elif name == "send_raw":
        transport.write(base64.b64decode(action["base64"]))
    elif name == "ping":
        await socket.stream.ping()
    elif name == "close":
        await socket.close(action.get("code", WSCloseCode.OK), action.get("reason", ""))
    elif name in ("drop", "reset"):
        hang_up(socket.request, reset=name == "reset")
    elif name in ("mute", "unmute"):
        socket.muted = name == "mute"
    elif name == "pause_reading":
        transport.pause_reading()
    elif name == "resume_reading":
        transport.resume_reading()
    else:
        raise Refusal(422, "Unknown action")
