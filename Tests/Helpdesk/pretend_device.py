"""A device that is none: speaks the wire as described, and as badly as it is asked to."""

from __future__ import annotations

import asyncio
import json
import ssl
from contextlib import asynccontextmanager
from typing import Any, AsyncIterator, Awaitable, Callable, Optional, TypeVar

import aiohttp

from device_bodies import HEARTBEAT_BODY, INVENTORY_BODY

T = TypeVar("T")

REGISTER = "/api/agent/devices/register"
HEARTBEAT = "/api/agent/devices/heartbeat"
CONTROL = "/api/agent/control"
CAPABILITIES = {
    "remote": True,
    "webrtc": True,
    "clipboard": True,
    "pre_login": False,
    "platform": "macos",
    "screen_capture": "ScreenCaptureKit",
    "permissions_required": ["screen_recording", "accessibility", "input_monitoring"],
}
METADATA = {
    "platform": "macos",
    "remote_engine": "screen_capturekit-webrtc",
    "video_codec": "vp8",
    "signaling": "wss",
    "data_channel": "orv-control",
    "screen_recording_permission": "required",
    "accessibility_permission": "required",
    "input_monitoring_permission": "required",
}


class Answer:
    """Status, JSON (None when it is none) and text of one answer."""

    def __init__(self, status: int, text: str) -> None:
        self.status = status
        self.text = text
        try:
            self.json: Any = json.loads(text)
        except (ValueError, RecursionError):
            self.json = None

    @property
    def detail(self) -> Any:
        return self.json.get("detail") if isinstance(self.json, dict) else None


class PretendDevice:
    """One device with an HTTP session of its own; `authorization` goes out as it stands."""

    def __init__(
        self, session: aiohttp.ClientSession, url: str, uid: str, authorization: Optional[str]
    ) -> None:
        self.session = session
        self.url = url
        self.uid = uid
        self.authorization = authorization
        self.support_id: Optional[str] = None

    def headers(self) -> dict[str, str]:
        headers = {"Accept": "application/json"}
        if self.authorization is not None:
            headers["Authorization"] = self.authorization
        return headers

    async def get(self, path: str, **more: Any) -> Answer:
        return await self._answer("GET", path, **more)

    async def post(self, path: str, body: Any, **more: Any) -> Answer:
        data = body if isinstance(body, bytes) else json.dumps(body).encode()
        return await self._answer("POST", path, data=data, **more)

    async def _answer(self, method: str, path: str, **more: Any) -> Answer:
        headers = {**self.headers(), **more.pop("headers", {})}
        if "data" in more:
            headers.setdefault("Content-Type", "application/json")
        more.setdefault("allow_redirects", False)
        url = path if "://" in path else self.url + path
        async with self.session.request(method, url, headers=headers, **more) as response:
            return Answer(response.status, await response.text())

    def inventory(self, **more: Any) -> dict[str, Any]:
        return {**INVENTORY_BODY, "device_uid": self.uid, **more}

    async def register(self, **more: Any) -> Answer:
        """Registers and takes the device token into use."""
        answer = await self.post(REGISTER, self.inventory(**more))
        if answer.status == 200:
            self.support_id = answer.json["support_id"]
            if "device_token" in answer.json:
                self.authorization = f"Device {answer.json['device_token']}"
        return answer

    async def heartbeat(self, **more: Any) -> Answer:
        return await self.post(HEARTBEAT, {**HEARTBEAT_BODY, "device_uid": self.uid, **more})

    async def pending(self, query: str = "") -> Answer:
        return await self.get(f"/api/agent/devices/{self.uid}/commands/pending{query}")

    async def report(self, command_id: int, status: str, result: Any) -> Answer:
        path = f"/api/agent/device-commands/{command_id}/status"
        return await self.post(path, {"status": status, "result": result})

    def hello(self, **more: Any) -> dict[str, Any]:
        return {
            "type": "hello",
            "device_uid": self.uid,
            "support_id": self.support_id,
            "hostname": "makieta.local",
            "agent_version": "0.2.55",
            "status": "online",
            "capabilities": CAPABILITIES,
            **more,
        }

    @asynccontextmanager
    async def control(self, greet: bool = True) -> AsyncIterator[aiohttp.ClientWebSocketResponse]:
        """The control socket, after "control-ready" when `greet`."""
        headers = {} if self.authorization is None else {"Authorization": self.authorization}
        async with self.session.ws_connect(self.url + CONTROL, headers=headers) as socket:
            if greet:
                await socket.send_json(self.hello())
                ready = await socket.receive_json(timeout=5)
                assert ready["type"] == "control-ready", ready
            yield socket


async def beside(order: Callable[..., T], *arguments: Any) -> T:
    """Gives an order that waits, while the device's own conversations go on."""
    return await asyncio.get_running_loop().run_in_executor(None, order, *arguments)


def shell_result(command: str = "echo hi", **more: Any) -> dict[str, Any]:
    return {
        "platform": "macos",
        "shell": "zsh",
        "executable": "/bin/zsh",
        "command": command,
        "exit_code": 0,
        "stdout": "hi\n",
        "stderr": "",
        "timed_out": False,
        "duration_ms": 4,
        "completed_at": "2026-11-15T21:22:14Z",
        **more,
    }


def play(
    url: str,
    ca_file: str,
    uid: str,
    authorization: Optional[str],
    story: Callable[[PretendDevice], Awaitable[T]],
) -> T:
    """Runs `story` with a device that trusts `ca_file`."""

    async def run() -> T:
        tls = ssl.create_default_context(cafile=ca_file)
        connector = aiohttp.TCPConnector(ssl=tls)
        timeout = aiohttp.ClientTimeout(total=10)
        async with aiohttp.ClientSession(connector=connector, timeout=timeout) as session:
            return await story(PretendDevice(session, url, uid, authorization))

    return asyncio.run(run())
