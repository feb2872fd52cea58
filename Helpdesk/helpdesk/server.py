"""Puts the helpdesk together and keeps it running until it is told to stop."""

from __future__ import annotations

import asyncio
import ssl
from dataclasses import dataclass
from pathlib import Path
from typing import Optional

from aiohttp import web

from .admin_api import create_admin_app
from .authentication import Authentication, private_secret
from .context import Helpdesk
from .device_app import create_device_app
from .events import EventLog
from .listeners import Listeners, loopback_sockets, serve
from .packages import PackageStore
from .protocol_check import Protocol
from .storage import Database
from .tls import Authority

KEEP_ALIVE_SECONDS = 3600.0
GRACE_SECONDS = 0.2


@dataclass(frozen=True)
class Options:
    """Ports of 0 mean any free one. `data` is created when missing."""

    data: Path
    protocol: Path
    port: int
    admin_port: int


class Server:
    """One running helpdesk."""

    def __init__(self, options: Options, events: EventLog) -> None:
        self._options = options
        self._events = events
        self._stopping = asyncio.Event()
        self._servers: list[asyncio.AbstractServer] = []
        self._runners: list[web.AppRunner] = []

    async def start(self) -> dict[str, str]:
        """Returns what the ready line says. Raises OSError when a port is taken."""
        data = self._options.data
        data.mkdir(mode=0o755, parents=True, exist_ok=True)
        admin_token_file, viewer_token_file = data / "admin-token", data / "viewer-token"
        admin_token = private_secret(admin_token_file)
        self._database = Database(data / "helpdesk.sqlite3")
        authentication = Authentication(self._database, private_secret(data / "device-secret"))
        if self._database.one("SELECT id FROM organizations") is None:
            authentication.create_organization("Wsparo", private_secret(viewer_token_file))
        authority = Authority(data / "tls")
        self._helpdesk = Helpdesk(
            database=self._database,
            authentication=authentication,
            protocol=Protocol(self._options.protocol),
            events=self._events,
            stopping=self._stopping,
        )
        packages = PackageStore(self._database, data / "packages")
        devices = await self._run(create_device_app(self._helpdesk, packages))
        port = await self._serve(devices, self._options.port, authority.server_context())
        self._listeners = Listeners(authority, devices, self._helpdesk.listener_names)
        url = f"https://localhost:{port}"
        admin = await self._run(
            create_admin_app(self._helpdesk, packages, self._listeners, admin_token, url)
        )
        admin_port = await self._serve(admin, self._options.admin_port, None)
        self._events.write("helpdesk listening", url=url)
        return {
            "url": url,
            "admin_url": f"http://127.0.0.1:{admin_port}",
            "ca_file": str(authority.ca_file.resolve()),
            "admin_token_file": str(admin_token_file.resolve()),
            "viewer_token_file": str(viewer_token_file.resolve()),
        }

    async def stop(self) -> None:
        """Says goodbye on the sockets, then closes everything, whoever is still talking."""
        self._stopping.set()
        self._helpdesk.changes.announce()
        self._listeners.close_all()
        for server in self._servers:
            server.close()
        await self._helpdesk.sockets.close_all()
        for runner in self._runners:
            assert runner.server is not None
            await runner.server.shutdown(GRACE_SECONDS)
            await runner.cleanup()
        self._database.close()
        self._events.write("helpdesk stopped")

    async def _run(self, app: web.Application) -> web.Server:
        runner = web.AppRunner(app, access_log=None, keepalive_timeout=KEEP_ALIVE_SECONDS)
        await runner.setup()
        self._runners.append(runner)
        assert runner.server is not None
        return runner.server

    async def _serve(
        self, service: web.Server, port: int, tls: Optional[ssl.SSLContext]
    ) -> int:
        sockets = loopback_sockets(port)
        self._servers.append(await serve(sockets, service, tls))
        return sockets[0].getsockname()[1]
