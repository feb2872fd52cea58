"""The helpdesk's side of the wire for one agent, and nothing else: it checks nothing and keeps nothing
on disk, so that what is measured is the agent. It runs in the loop that takes the times."""

from __future__ import annotations

import asyncio
import dataclasses
import itertools
import json
import pathlib
import ssl
import subprocess
import time
from typing import Any, Optional

from aiohttp import WSMsgType, web

from helpdesk.tls import Authority

DEVICE_UID = "mac-bench"
FINAL = ("completed", "failed", "uninstall_started")
# The agent's loop for notifications fetches every second or so and is busy with nothing else; a
# command that it is given runs while the control connection stays free for others.
NOTIFICATIONS = "user_notify"


@dataclasses.dataclass
class Command:
    """A command on its way. Times are time.perf_counter()'s."""
    id: int
    command_type: str
    payload: dict[str, Any]
    finished: asyncio.Future
    begun_at: float = 0.0
    ended_at: float = 0.0
    status: str = ""
    report: bytes = b""
    final_reports: int = 0

    @property
    def seconds(self) -> float:
        return self.ended_at - self.begun_at

    @property
    def result(self) -> Any:
        return json.loads(self.report)["result"]

    def message(self) -> dict[str, Any]:
        return {"id": self.id, "command_type": self.command_type, "payload": self.payload}


class BenchDesk:
    """Listens on a loopback port from start() to stop()."""

    def __init__(self, folder: pathlib.Path) -> None:
        self._authority = Authority(folder)
        self._folder = folder
        self._ids = itertools.count(1)
        self._commands: dict[int, Command] = {}
        self._queues: dict[bool, list[Command]] = {True: [], False: []}
        self._control: Optional[web.WebSocketResponse] = None
        self._runner: Optional[web.AppRunner] = None
        self._pongs: dict[bytes, asyncio.Future] = {}
        self.connected = asyncio.Event()
        self.registered = asyncio.Queue[float]()  # when an inventory had arrived
        self.heartbeat_arrivals: list[float] = []  # on the control connection
        self.chat_arrivals: dict[str, float] = {}  # of each message, by its identifier
        self.chat_connections: set[str] = set()  # their peers
        self.hello_at = 0.0
        self.request_count = 0
        self.message_count = 0
        self.url = ""
        self.offered_package: dict[str, Any] = {"version": "", "url": ""}  # as in a manifest

    async def start(self) -> None:
        app = web.Application(client_max_size=1 << 30)
        app.add_routes([
            web.post("/api/agent/devices/register", self._register),
            web.post("/api/agent/devices/heartbeat", self._acknowledge),
            web.get("/api/agent/devices/{uid}/commands/pending", self._pending),
            web.post("/api/agent/device-commands/{id}/status", self._status),
            web.get("/api/agent/viewer/updates/manifest", self._manifest),
            web.get("/api/agent/control", self._serve_control),
            web.post("/api/agent/devices/{uid}/chat-messages", self._chat_message),
            web.post("/sink", self._acknowledge),
        ])
        self._runner = web.AppRunner(app, access_log=None)
        await self._runner.setup()
        site = web.TCPSite(self._runner, "127.0.0.1", 0, ssl_context=self._tls())
        await site.start()
        port = self._runner.addresses[0][1]
        self.url = f"https://localhost:{port}"

    async def stop(self) -> None:
        if self._runner is not None:
            await self._runner.cleanup()

    @property
    def ca_file(self) -> pathlib.Path:
        return self._authority.ca_file

    def trust_folder(self) -> pathlib.Path:
        """Certificates by their hashes as systems keep them: the machine's own and ours."""
        folder = self._folder / "trusted"
        if not folder.exists():
            folder.mkdir()
            for certificate in pathlib.Path("/etc/ssl/certs").glob("*.[0-9]"):
                (folder / certificate.name).symlink_to(certificate.resolve())
            digest = subprocess.run(["openssl", "x509", "-hash", "-noout", "-in", self.ca_file],
                                    check=True, capture_output=True, text=True).stdout.strip()
            (folder / f"{digest}.0").symlink_to(self.ca_file)
        return folder

    # Orders

    def queue(self, command_type: str, payload: dict[str, Any],
              for_notifications: bool = False) -> Command:
        """For the next fetch; without a wake-up."""
        command = Command(next(self._ids), command_type, payload,
                          asyncio.get_running_loop().create_future())
        self._commands[command.id] = command
        self._queues[for_notifications].append(command)
        return command

    async def run(self, command_type: str, payload: dict[str, Any],
                  timeout: float = 120.0) -> Command:
        """Queues, wakes the agent and waits; begun when we were told to queue."""
        begin = time.perf_counter()
        command = self.queue(command_type, payload)
        await self.wake(command_type)
        await asyncio.wait_for(command.finished, timeout)
        command.begun_at = begin
        return command

    async def run_when_fetched(self, command_type: str, payload: dict[str, Any],
                               timeout: float = 120.0) -> Command:
        """Waits for the agent's next fetch for notifications, which is answered with the command;
        begun when it is."""
        command = self.queue(command_type, payload, for_notifications=True)
        await asyncio.wait_for(command.finished, timeout)
        return command

    async def wake(self, command_type: str, count: int = 1) -> None:
        assert self._control is not None
        text = json.dumps({"type": "agent_command.queued", "command_id": 0,
                           "command_type": command_type})
        for _ in range(count):
            await self._control.send_str(text)

    async def control_round_trip(self, timeout: float = 60.0) -> float:
        """How long the agent takes to answer on the control connection."""
        assert self._control is not None
        mark = str(next(self._ids)).encode()
        answer = self._pongs[mark] = asyncio.get_running_loop().create_future()
        begin = time.perf_counter()
        await self._control.ping(mark)
        try:
            return await asyncio.wait_for(answer, timeout) - begin
        finally:
            del self._pongs[mark]

    # The wire

    async def _register(self, request: web.Request) -> web.Response:
        self.request_count += 1
        await request.read()
        self.registered.put_nowait(time.perf_counter())
        return web.json_response({"device_uid": DEVICE_UID, "support_id": "100000001",
                                  "public_id": "dev_bench", "device_token": "bench-token"})

    async def _acknowledge(self, request: web.Request) -> web.Response:
        self.request_count += 1
        await _body(request)
        return _ok()

    async def _pending(self, request: web.Request) -> web.Response:
        self.request_count += 1
        is_for_notifications = request.query.get("command_type") == NOTIFICATIONS
        commands = self._queues[is_for_notifications]
        self._queues[is_for_notifications] = []
        body = json.dumps([command.message() for command in commands])
        now = time.perf_counter()
        for command in commands:
            command.begun_at = now
        return web.Response(text=body, content_type="application/json")

    async def _manifest(self, request: web.Request) -> web.Response:
        self.request_count += 1
        return web.json_response({"platform": "macos", "architecture": "arm64", "channel": "stable",
                                  "mandatory": False, "silent_args": [], **self.offered_package})

    async def _status(self, request: web.Request) -> web.Response:
        self.request_count += 1
        body = await _body(request)
        now = time.perf_counter()
        # A report says its status last or first, whatever the size of the result between.
        ends = body[:64] + body[-64:]
        status = next((name for name in FINAL if f'"status":"{name}"'.encode() in ends), "")
        command = self._commands[int(request.match_info["id"])]
        if status:
            command.ended_at, command.status, command.report = now, status, body
            command.final_reports += 1
            if not command.finished.done():
                command.finished.set_result(None)
        return _ok()

    async def _chat_message(self, request: web.Request) -> web.Response:
        self.request_count += 1
        message = json.loads(await _body(request))
        self.chat_arrivals[message["client_message_id"]] = time.perf_counter()
        self.chat_connections.add(str(request.transport.get_extra_info("peername")))
        return _ok()

    async def _serve_control(self, request: web.Request) -> web.StreamResponse:
        socket = web.WebSocketResponse(autoping=False, compress=False)
        await socket.prepare(request)
        async for message in socket:
            now = time.perf_counter()
            self.message_count += 1
            if message.type == WSMsgType.PING:
                await socket.pong(message.data)
            elif message.type == WSMsgType.PONG and bytes(message.data) in self._pongs:
                self._pongs[bytes(message.data)].set_result(now)
            elif message.type == WSMsgType.TEXT:
                await self._heard(socket, json.loads(message.data), now)
        return socket

    async def _heard(self, socket: web.WebSocketResponse, message: dict[str, Any],
                     now: float) -> None:
        if message["type"] == "hello":
            self.hello_at = now
            self._control = socket
            await socket.send_json({"type": "control-ready", "device_uid": DEVICE_UID})
            self.connected.set()
        elif message["type"] == "heartbeat":
            self.heartbeat_arrivals.append(now)
            await socket.send_json({"type": "heartbeat-ack"})

    def _tls(self) -> ssl.SSLContext:
        return self._authority.server_context()


async def _body(request: web.Request) -> bytes:
    # Piece by piece: for tens of megabytes twice as fast as the library's own way.
    return b"".join([piece async for piece in request.content.iter_any()])


def _ok() -> web.Response:
    return web.Response(text='{"status":"ok"}', content_type="application/json")
