"""Answers that fail on demand: the next N answers of an endpoint, in a chosen way."""

from __future__ import annotations

import asyncio
import itertools
import json
import socket
import struct
from dataclasses import asdict, dataclass, field, fields
from typing import Any, Awaitable, Callable, Optional

from aiohttp import web

from .answers import Refusal

Handler = Callable[[], Awaitable[web.StreamResponse]]

GARBAGE = b"\x00\xff this is no HTTP \xfe\x01\r\n\r\n"
ENDLESS_PIECE = b" " * (1 << 20)

KINDS = {
    "status": "answers `status` with `body` and `headers`",
    "delay": "answers as always, `seconds` late",
    "drop": "ends the TCP connection without an answer",
    "reset": "resets the TCP connection without an answer",
    "silent": "never answers",
    "truncate": "sends the head and half of the real body, then ends the connection",
    "garbage": "sends bytes that are no HTTP, then ends the connection",
    "redirect": "answers `status` (302 when 200) with `location`",
    "trickle": "sends the real body byte by byte, `seconds` apart",
    "endless": "sends a body of `bytes` blanks (without end when 0)",
}


@dataclass
class Fault:
    """`endpoint` is an operationId of the protocol description, or "*".

    The first `skip` requests pass, the next `count` fail. With `handled` the request takes effect
    first and only its answer is replaced.
    """

    endpoint: str
    kind: str
    count: int = 1
    skip: int = 0
    handled: bool = False
    status: int = 200
    body: Any = None
    headers: dict[str, str] = field(default_factory=dict)
    location: str = ""
    seconds: float = 0.0
    bytes: int = 0
    id: int = 0

    @classmethod
    def parse(cls, description: dict[str, Any]) -> "Fault":
        known = {entry.name for entry in fields(cls)} - {"id"}
        if not {"endpoint", "kind"} <= description.keys() <= known:
            raise Refusal(422, f"A fault has endpoint, kind and some of {sorted(known)}")
        if description["kind"] not in KINDS:
            raise Refusal(422, f"The kinds of faults are {sorted(KINDS)}")
        return cls(**description)


class Faults:
    """The faults that are still to happen, and the performing of them."""

    def __init__(self, stopping: asyncio.Event) -> None:
        self._faults: list[Fault] = []
        self._numbers = itertools.count(1)
        self._stopping = stopping

    def add(self, fault: Fault) -> int:
        fault.id = next(self._numbers)
        self._faults.append(fault)
        return fault.id

    def pending(self) -> list[dict[str, Any]]:
        return [asdict(fault) for fault in self._faults]

    def clear(self) -> None:
        self._faults.clear()

    def take(self, endpoint: Optional[str]) -> Optional[Fault]:
        """The fault for the request that has just arrived, if any."""
        for fault in self._faults:
            if fault.endpoint not in ("*", endpoint):
                continue
            if fault.skip > 0:
                fault.skip -= 1
                return None
            fault.count -= 1
            if fault.count == 0:
                self._faults.remove(fault)
            return fault
        return None

    async def perform(
        self, fault: Fault, request: web.Request, handler: Handler
    ) -> web.StreamResponse:
        real = None
        if fault.handled or fault.kind in ("truncate", "trickle"):
            real = await handler()
        if fault.kind == "status":
            return _plain_answer(fault)
        if fault.kind == "redirect":
            status = fault.status if 300 <= fault.status < 400 else 302
            return web.Response(status=status, headers={"Location": fault.location})
        if fault.kind == "delay":
            await self._pause(fault.seconds)
            return real or await handler()
        if fault.kind in ("truncate", "trickle"):
            assert real is not None
            return await self._send_oddly(fault, request, _body_of(real))
        if fault.kind == "endless":
            return await self._send_blanks(fault, request)
        if fault.kind == "silent":
            await self._wait_for_hang_up(request)
        elif fault.kind == "garbage" and request.transport is not None:
            request.transport.write(GARBAGE)
        hang_up(request, reset=fault.kind == "reset")
        return web.Response(status=500)

    async def _pause(self, seconds: float) -> None:
        try:
            await asyncio.wait_for(self._stopping.wait(), seconds)
        except asyncio.TimeoutError:
            pass

    async def _wait_for_hang_up(self, request: web.Request) -> None:
        # This server does not cancel a handler whose client has left; it is noticed by looking.
        while is_connected(request) and not self._stopping.is_set():
            await self._pause(0.2)

    async def _send_oddly(
        self, fault: Fault, request: web.Request, body: bytes
    ) -> web.StreamResponse:
        response = web.StreamResponse(headers={"Content-Type": "application/json"})
        response.content_length = len(body)
        await response.prepare(request)
        if fault.kind == "truncate":
            await response.write(body[: len(body) // 2])
            hang_up(request)
            return response
        for position in range(len(body)):
            await self._pause(fault.seconds)
            if not is_connected(request) or self._stopping.is_set():
                return response
            await response.write(body[position : position + 1])
        await response.write_eof()
        return response

    async def _send_blanks(self, fault: Fault, request: web.Request) -> web.StreamResponse:
        response = web.StreamResponse(headers={"Content-Type": "application/json"})
        response.enable_chunked_encoding()
        await response.prepare(request)
        left = fault.bytes
        while is_connected(request) and not self._stopping.is_set():
            await response.write(ENDLESS_PIECE[:left] if fault.bytes else ENDLESS_PIECE)
            left -= len(ENDLESS_PIECE)
            if fault.bytes and left <= 0:
                break
            # A write need not wait for anything, and then nobody would hear that the client has left.
            await asyncio.sleep(0)
        await response.write_eof()
        return response


def is_connected(request: web.BaseRequest) -> bool:
    return request.transport is not None and not request.transport.is_closing()


def hang_up(request: web.BaseRequest, reset: bool = False) -> None:
    """Ends the TCP connection at once, with a FIN or a reset; TLS is not told."""
    transport = request.transport
    if transport is None:
        return
    if reset:
        raw = transport.get_extra_info("socket")
        raw.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    transport.abort()


def _plain_answer(fault: Fault) -> web.Response:
    body = fault.body
    text = body if isinstance(body, str) else "" if body is None else json.dumps(body)
    headers = {"Content-Type": "application/json", **fault.headers}
    return web.Response(status=fault.status, body=text.encode("utf-8"), headers=headers)


def _body_of(response: web.StreamResponse) -> bytes:
    if not isinstance(response, web.Response) or not isinstance(response.body, bytes):
        raise Refusal(500, "This endpoint's answer cannot be cut")
    return response.body
