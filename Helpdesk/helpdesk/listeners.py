"""Further ports on demand, each with something wrong."""

from __future__ import annotations

import asyncio
import errno
import itertools
import socket
from dataclasses import dataclass
from typing import Any, Callable, Optional

from .answers import Refusal
from .tls import Authority

KINDS = {
    "wrong-host": "HTTPS with a certificate for another host",
    "expired": "HTTPS with a certificate that has expired",
    "unknown-ca": "HTTPS with a certificate of an authority that nobody knows",
    "old-tls": "HTTPS that offers TLS 1.1 at most",
    "plain-http": "HTTP without TLS, answering as the helpdesk does",
    "silent": "accepts and never says a word, not even TLS",
    "closing": "accepts and closes at once",
}

LOOPBACK = ("127.0.0.1", "::1")


@dataclass
class Listener:
    id: int
    kind: str
    port: int
    server: asyncio.AbstractServer
    connections: int = 0

    def describe(self) -> dict[str, Any]:
        scheme = "http" if self.kind == "plain-http" else "https"
        return {
            "id": self.id,
            "kind": self.kind,
            "port": self.port,
            "url": f"{scheme}://localhost:{self.port}",
            "connections": self.connections,
        }


class _Mute(asyncio.Protocol):
    """Reads nothing and answers nothing."""

    def __init__(self, arrived: Callable[[], None], close_at_once: bool) -> None:
        self._arrived = arrived
        self._close_at_once = close_at_once

    def connection_made(self, transport: asyncio.BaseTransport) -> None:
        self._arrived()
        if self._close_at_once:
            transport.close()


class Listeners:
    """Opens and closes the further ports; `factory` makes the protocol of the real device API."""

    def __init__(
        self, authority: Authority, factory: Callable[[], Any], names: dict[int, str]
    ) -> None:
        self._authority = authority
        self._factory = factory
        self._names = names
        self._listeners: dict[int, Listener] = {}
        self._numbers = itertools.count(1)

    async def open(self, kind: str) -> Listener:
        if kind not in KINDS:
            raise Refusal(422, f"The kinds of listeners are {sorted(KINDS)}")
        listener: Optional[Listener] = None

        def arrived() -> None:
            if listener is not None:
                listener.connections += 1

        sockets = loopback_sockets(0)
        port = sockets[0].getsockname()[1]
        if kind in ("silent", "closing"):
            server = await serve(sockets, lambda: _Mute(arrived, kind == "closing"), None)
        else:
            tls = None if kind == "plain-http" else self._authority.faulty_context(kind)
            server = await serve(sockets, self._factory, tls)
        listener = Listener(next(self._numbers), kind, port, server)
        self._listeners[listener.id] = listener
        self._names[port] = kind
        return listener

    def close(self, listener_id: int) -> None:
        listener = self._listeners.pop(listener_id, None)
        if listener is None:
            raise Refusal(404, "Listener not found")
        listener.server.close()

    def close_all(self) -> None:
        for identifier in list(self._listeners):
            self.close(identifier)

    def describe(self) -> list[dict[str, Any]]:
        return [listener.describe() for listener in self._listeners.values()]


class SeveralServers(asyncio.AbstractServer):
    """The same service on several sockets."""

    def __init__(self, servers: list[asyncio.AbstractServer]) -> None:
        self._servers = servers

    def close(self) -> None:
        for server in self._servers:
            server.close()

    async def wait_closed(self) -> None:
        for server in self._servers:
            await server.wait_closed()


async def serve(
    sockets: list[socket.socket], factory: Callable[[], Any], tls: Any
) -> asyncio.AbstractServer:
    loop = asyncio.get_running_loop()
    return SeveralServers(
        [await loop.create_server(factory, sock=sock, ssl=tls) for sock in sockets]
    )


def loopback_sockets(port: int) -> list[socket.socket]:
    """One port (any free one for 0) on every loopback address that the machine has."""
    for _ in range(20):
        first = _bound(socket.AF_INET, LOOPBACK[0], port)
        try:
            return [first, _bound(socket.AF_INET6, LOOPBACK[1], first.getsockname()[1])]
        except OSError as error:
            if error.errno in (errno.EADDRNOTAVAIL, errno.EAFNOSUPPORT):
                return [first]  # a machine without IPv6
            first.close()
            if port != 0:
                raise
    raise OSError(errno.EADDRINUSE, "no port is free on both loopback addresses")


def _bound(family: socket.AddressFamily, address: str, port: int) -> socket.socket:
    sock = socket.socket(family, socket.SOCK_STREAM)
    try:
        sock.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        if family == socket.AF_INET6:
            sock.setsockopt(socket.IPPROTO_IPV6, socket.IPV6_V6ONLY, 1)
        sock.bind((address, port))
    except OSError:
        sock.close()
        raise
    return sock
