"""A client of the admin interface, for tests and ./run. Standard library only, synchronous."""

from __future__ import annotations

import base64
import json
import struct
from typing import Any, Callable, Iterable, Optional
from urllib.parse import quote

from .admin_connection import ANSWER_MARGIN_SECONDS, AdminConnection, HelpdeskError, query_text

__all__ = ["HelpdeskClient", "HelpdeskError", "websocket_frame"]

DEFAULT_TIMEOUT_SECONDS = 10.0


class HelpdeskClient(AdminConnection):
    """What a consultant, a test or ./run asks of a helpdesk, one method for each."""

    # Organisations and devices

    def organizations(self) -> list[dict[str, Any]]:
        return self._get("/organizations")

    def create_organization(self, name: str) -> dict[str, Any]:
        """Returns "id" and "viewer_token"."""
        return self._post("/organizations", {"name": name})

    def replace_viewer_token(self, organization_id: int) -> str:
        return self._post(f"/organizations/{organization_id}/viewer-token")["viewer_token"]

    def devices(self) -> list[dict[str, Any]]:
        return self._get("/devices")

    def device(self, uid: str) -> dict[str, Any]:
        """With its last "inventory" and "heartbeat", counts, and whether it is "connected"."""
        return self._get(f"/devices/{_piece(uid)}")

    def wait_for_device(
        self,
        uid: Optional[str] = None,
        until: Callable[[dict[str, Any]], bool] = lambda device: True,
        timeout: float = DEFAULT_TIMEOUT_SECONDS,
    ) -> dict[str, Any]:
        """The first device (the one named `uid`, if given) that satisfies `until`."""

        def find() -> Optional[dict[str, Any]]:
            for entry in self.devices():
                if uid in (None, entry["uid"]) and until(device := self.device(entry["uid"])):
                    return device
            return None

        return self.wait_until(find, timeout, "device")

    def wait_until_connected(
        self, uid: Optional[str] = None, timeout: float = DEFAULT_TIMEOUT_SECONDS
    ) -> dict[str, Any]:
        return self.wait_for_device(uid, lambda device: device["connected"], timeout)

    def revoke_device_token(self, uid: str) -> None:
        self._post(f"/devices/{_piece(uid)}/revoke-token")

    def deactivate_device(self, uid: str) -> None:
        self._post(f"/devices/{_piece(uid)}/deactivate")

    def reactivate_device(self, uid: str) -> None:
        self._post(f"/devices/{_piece(uid)}/reactivate")

    def assign_device(self, uid: str, organization_id: int) -> None:
        self._post(f"/devices/{_piece(uid)}/assign", {"organization_id": organization_id})

    # Commands

    def queue_command(
        self, uid: str, command_type: str, payload: Any = None, wake: str = "each"
    ) -> int:
        """Returns the command's id. `wake` is "each", "once" or "none"."""
        return self.queue_commands(uid, [(command_type, payload)], wake)[0]

    def queue_commands(
        self, uid: str, commands: Iterable[tuple[str, Any]], wake: str = "each"
    ) -> list[int]:
        return self._post(self._commands_path(uid), _queue_order(commands, wake))["ids"]

    def run_command(
        self,
        uid: str,
        command_type: str,
        payload: Any = None,
        timeout: float = DEFAULT_TIMEOUT_SECONDS,
        wake: str = "each",
    ) -> dict[str, Any]:
        """Queues a command and waits for its end; raises TimeoutError when none comes."""
        return self.run_commands(uid, [(command_type, payload)], timeout, wake)[0]

    def run_commands(
        self,
        uid: str,
        commands: Iterable[tuple[str, Any]],
        timeout: float = DEFAULT_TIMEOUT_SECONDS,
        wake: str = "each",
    ) -> list[dict[str, Any]]:
        order = {**_queue_order(commands, wake), "wait": timeout}
        answer = self._post(self._commands_path(uid), order, wait=timeout)
        if not answer["finished"]:
            states = {entry["id"]: entry["status"] for entry in answer["commands"]}
            raise TimeoutError(f"no result within {timeout} s: {states}")
        return answer["commands"]

    def command(self, command_id: int) -> dict[str, Any]:
        """With "status", "history", "deliveries" and the "result" of the last report."""
        return self._get(f"/commands/{command_id}")

    def wait_for_command(
        self, command_id: int, timeout: float = DEFAULT_TIMEOUT_SECONDS
    ) -> dict[str, Any]:
        command = self._get(f"/commands/{command_id}", {"wait": timeout}, wait=timeout)
        if not command["final"]:
            raise TimeoutError(f"command {command_id} is {command['status']} after {timeout} s")
        return command

    def commands(self, uid: str, limit: int = 100) -> list[dict[str, Any]]:
        return self._get(self._commands_path(uid), {"limit": limit})

    def wake_device(self, uid: str, **message: Any) -> bool:
        """Sends "agent_command.queued" without queueing anything; False when not connected."""
        return self._post(f"/devices/{_piece(uid)}/wake", message)["woken"]

    # Chat

    def send_chat(
        self,
        uid: str,
        text: str,
        sender: str = "Konsultant",
        conversation: Optional[str] = None,
    ) -> dict[str, Any]:
        """Returns "id", "conversation" and "command_id" of the consultant's message."""
        order = {"text": text, "sender": sender, "conversation": conversation}
        return self._post(f"/devices/{_piece(uid)}/chat", order)

    def conversations(self) -> list[dict[str, Any]]:
        return self._get("/conversations")

    def conversation(self, public_id: str) -> list[dict[str, Any]]:
        """The messages, oldest first."""
        return self._get(f"/conversations/{_piece(public_id)}")["messages"]

    def wait_for_chat_replies(
        self, conversation: str, count: int = 1, timeout: float = DEFAULT_TIMEOUT_SECONDS
    ) -> list[dict[str, Any]]:
        def replies() -> Optional[list[dict[str, Any]]]:
            messages = self.conversation(conversation)
            found = [entry for entry in messages if entry["direction"] == "from_user"]
            return found if len(found) >= count else None

        return self.wait_until(replies, timeout, "chat replies")

    # Remote sessions and sockets

    def request_remote_session(
        self, uid: str, signaling: Any = True, metadata: Optional[dict[str, Any]] = None
    ) -> str:
        """Returns the session's public id. `signaling` False leaves the address out; a text
        replaces it."""
        order = {"signaling": signaling, "metadata": metadata or {}}
        return self._post(f"/devices/{_piece(uid)}/remote-sessions", order)["public_id"]

    def remote_session_reports(self, public_id: str) -> list[dict[str, Any]]:
        return self._get(f"/remote-sessions/{_piece(public_id)}")["reports"]

    def wait_for_session_status(
        self, public_id: str, status: str, timeout: float = DEFAULT_TIMEOUT_SECONDS
    ) -> list[dict[str, Any]]:
        """All reports, once one of them has this status."""

        def reports() -> Optional[list[dict[str, Any]]]:
            found = self.remote_session_reports(public_id)
            return found if any(entry["status"] == status for entry in found) else None

        return self.wait_until(reports, timeout, f"status {status}")

    def sockets(
        self, kind: Optional[str] = None, uid: Optional[str] = None
    ) -> list[dict[str, Any]]:
        """Open sockets and the latest closed ones, oldest first; `kind` control or signaling."""
        return self._get("/sockets", {"kind": kind, "device_uid": uid})

    def socket(self, socket_id: int) -> dict[str, Any]:
        """With the messages that were "received"."""
        return self._get(f"/sockets/{socket_id}")

    def wait_for_socket(
        self,
        kind: str,
        until: Callable[[dict[str, Any]], bool] = lambda socket: socket["open"],
        timeout: float = DEFAULT_TIMEOUT_SECONDS,
    ) -> dict[str, Any]:
        """The latest socket of this kind that satisfies `until`."""

        def find() -> Optional[dict[str, Any]]:
            return next((s for s in reversed(self.sockets(kind)) if until(s)), None)

        return self.wait_until(find, timeout, f"{kind} socket")

    def socket_action(self, socket_id: int, action: str, **details: Any) -> None:
        """send_text, send_binary, send_raw, ping, close, drop, reset, mute, unmute,
        pause_reading or resume_reading."""
        self._post(f"/sockets/{socket_id}/actions", {"action": action, **details})

    def send_text(self, socket_id: int, text: str, repeat: int = 1) -> None:
        self.socket_action(socket_id, "send_text", text=text, repeat=repeat)

    def send_message(self, socket_id: int, message: dict[str, Any]) -> None:
        self.send_text(socket_id, json.dumps(message))

    def send_binary(self, socket_id: int, data: bytes) -> None:
        self.socket_action(socket_id, "send_binary", base64=base64.b64encode(data).decode())

    def send_raw(self, socket_id: int, data: bytes) -> None:
        """Bytes beneath the WebSocket, inside TLS."""
        self.socket_action(socket_id, "send_raw", base64=base64.b64encode(data).decode())

    def send_fragments(self, socket_id: int, pieces: list[bytes], binary: bool = False) -> None:
        """One message in as many frames as there are pieces."""
        last = len(pieces) - 1
        first_opcode = 2 if binary else 1
        frames = (
            websocket_frame(piece, 0 if number else first_opcode, final=number == last)
            for number, piece in enumerate(pieces)
        )
        self.send_raw(socket_id, b"".join(frames))

    def close_socket(self, socket_id: int, code: int = 1000, reason: str = "") -> None:
        self.socket_action(socket_id, "close", code=code, reason=reason)

    # Tickets and customers

    def create_customer(self, email: str, full_name: str, password: str, **more: Any) -> None:
        """`more`: phone, organization_name, can_view_organization_tickets."""
        order = {"email": email, "full_name": full_name, "password": password, **more}
        self._post("/customers", order)

    def tickets(self) -> list[dict[str, Any]]:
        return self._get("/tickets")

    def ticket_attachment(self, public_id: str, position: int) -> bytes:
        path = f"/tickets/{_piece(public_id)}/attachments/{position}"
        return self._exchange("GET", path, None, ANSWER_MARGIN_SECONDS)

    def answer_ticket(self, public_id: str, text: str) -> int:
        """Returns the id of the message that customers are notified of."""
        return self._post(f"/tickets/{_piece(public_id)}/answers", {"text": text})["message_id"]

    # Packages

    def publish_package(
        self, content: bytes, version: str, filename: Optional[str] = None, **kind: str
    ) -> int:
        """`kind`: platform, architecture, channel, when not macos, arm64, stable."""
        query = {"version": version, "filename": filename, **kind}
        return self._send("POST", f"/packages{query_text(query)}", content)["id"]

    def change_package(
        self,
        package_id: int,
        manifest: Optional[dict[str, Any]] = None,
        serving: Optional[dict[str, Any]] = None,
    ) -> None:
        """`manifest` replaces keys of the manifest (None drops one); `serving` is {"mode":
        "normal", "slow", "missing", "status" or "truncated"} with "bytes_per_second" or
        "status"."""
        order: dict[str, Any] = {}
        if manifest is not None:
            order["manifest"] = manifest
        if serving is not None:
            order["serving"] = serving
        self._send("PATCH", f"/packages/{package_id}", json.dumps(order).encode())

    def withdraw_package(self, package_id: int) -> None:
        self._send("DELETE", f"/packages/{package_id}")

    def packages(self) -> list[dict[str, Any]]:
        return self._get("/packages")

    # Faults, records, listeners

    def fail(self, endpoint: str, kind: str, count: int = 1, **details: Any) -> int:
        """Makes the next `count` requests of an endpoint fail.

        `endpoint` is an operationId of the protocol description or "*". `kind`: status, delay,
        drop, reset, silent, truncate, garbage, redirect, trickle or endless. `details`: skip,
        handled, status, body, headers, location, seconds, bytes.
        """
        order = {"endpoint": endpoint, "kind": kind, "count": count, **details}
        return self._post("/faults", order)["id"]

    def pending_faults(self) -> list[dict[str, Any]]:
        return self._get("/faults")

    def clear_faults(self) -> None:
        self._send("DELETE", "/faults")

    def requests(
        self, endpoint: Optional[str] = None, after: int = 0, limit: int = 1000
    ) -> list[dict[str, Any]]:
        """What agents sent, oldest first; "path" with its query, "body" as text."""
        return self._get("/requests", {"endpoint": endpoint, "after": after, "limit": limit})

    def wait_for_requests(
        self,
        endpoint: str,
        count: int = 1,
        after: int = 0,
        timeout: float = DEFAULT_TIMEOUT_SECONDS,
    ) -> list[dict[str, Any]]:
        def find() -> Optional[list[dict[str, Any]]]:
            found = self.requests(endpoint, after)
            return found if len(found) >= count else None

        return self.wait_until(find, timeout, f"{count} requests of {endpoint}")

    def clear_requests(self) -> None:
        self._send("DELETE", "/requests")

    def violations(self, after: int = 0) -> list[dict[str, Any]]:
        """What agents sent against the protocol description."""
        return self._get("/violations", {"after": after})

    def clear_violations(self) -> None:
        self._send("DELETE", "/violations")

    def open_listener(self, kind: str) -> dict[str, Any]:
        """A further port: wrong-host, expired, unknown-ca, old-tls, plain-http, silent or
        closing. Returns "id", "port" and "url"."""
        return self._post("/listeners", {"kind": kind})

    def listeners(self) -> list[dict[str, Any]]:
        """With the number of "connections" for silent and closing ones."""
        return self._get("/listeners")

    def close_listener(self, listener_id: int) -> None:
        self._send("DELETE", f"/listeners/{listener_id}")

    @staticmethod
    def _commands_path(uid: str) -> str:
        return f"/devices/{_piece(uid)}/commands"


def websocket_frame(payload: bytes, opcode: int, final: bool = True) -> bytes:
    """One frame as a server sends it: not masked."""
    head = bytes([(0x80 if final else 0) | opcode])
    if len(payload) < 126:
        return head + bytes([len(payload)]) + payload
    if len(payload) < 1 << 16:
        return head + b"\x7e" + struct.pack(">H", len(payload)) + payload
    return head + b"\x7f" + struct.pack(">Q", len(payload)) + payload


def _queue_order(commands: Iterable[tuple[str, Any]], wake: str) -> dict[str, Any]:
    wanted = [
        {"command_type": command_type, "payload": {} if payload is None else payload}
        for command_type, payload in commands
    ]
    return {"commands": wanted, "wake": wake}


def _piece(text: str) -> str:
    return quote(text, safe="")
