"""The control WebSocket: greetings, heartbeats, wake-ups and rejections."""

from __future__ import annotations

import secrets
from typing import Any, Optional

from aiohttp import WSCloseCode, web

from .answers import Refusal, optional_text, parse_json
from .authentication import DEACTIVATED, INVALID_DEVICE_TOKEN
from .clock import seconds, timestamp
from .context import Helpdesk, caller_of, helpdesk_of
from .sockets import Socket

ROUTES = web.RouteTableDef()


@ROUTES.get("/api/agent/control", name="control", allow_head=False)
async def control(request: web.Request) -> web.StreamResponse:
    helpdesk = helpdesk_of(request)
    socket = await helpdesk.sockets.accept("control", request)
    helpdesk.changes.announce()
    try:
        await _converse(helpdesk, socket)
    except Refusal as refusal:
        await _reject(helpdesk, socket, refusal)
    finally:
        await helpdesk.sockets.closed(socket)
        helpdesk.events.write(
            "control socket closed", uid=socket.device_uid, code=socket.close_code
        )
        helpdesk.changes.announce()
    return socket.stream


async def _converse(helpdesk: Helpdesk, socket: Socket) -> None:
    while (frame := await helpdesk.sockets.receive(socket)) is not None:
        message = _checked_message(helpdesk, socket, frame.data)
        helpdesk.changes.announce()
        if message.get("type") == "hello":
            await _welcome(helpdesk, socket, message)
        elif message.get("type") == "heartbeat":
            await socket.send({"type": "heartbeat-ack", "received_at": timestamp()})


def _checked_message(helpdesk: Helpdesk, socket: Socket, data: Any) -> dict[str, Any]:
    """The message as an object, empty when it is none; a violation is recorded."""
    text = data if isinstance(data, str) else data.decode("utf-8", "replace")
    problems: list[str] = [] if isinstance(data, str) else ["the frame is binary"]
    message: Any = None
    try:
        message = parse_json(text.encode("utf-8"))
        problems += helpdesk.protocol.control_message.problems(message)
    except ValueError as error:
        problems.append(str(error))
    if (socket.received_count == 0) != (_type_of(message) == "hello"):
        problems.append("hello is the first message and only the first")
    socket.received_count += 1
    socket.received.append({"at": seconds(), "text": text, "json": message})
    if problems:
        helpdesk.violation("control socket", socket.device_uid, problems, text)
    return message if isinstance(message, dict) else {}


def _type_of(message: Any) -> Any:
    return message.get("type") if isinstance(message, dict) else None


async def _welcome(helpdesk: Helpdesk, socket: Socket, hello: dict[str, Any]) -> None:
    """Raises the Refusal for a device that must not be connected."""
    uid = optional_text(hello, "device_uid")
    caller = caller_of(socket.request)
    device = helpdesk.authentication.admit_known(caller, uid or "")
    socket.device_uid = device["uid"]
    socket.ready = True
    await socket.send({"type": "control-ready", "device_uid": uid, "server_time": timestamp()})
    helpdesk.events.write("control socket ready", name=device["hostname"], uid=uid)
    helpdesk.changes.announce()


async def _reject(helpdesk: Helpdesk, socket: Socket, refusal: Refusal) -> None:
    socket.ready = False
    helpdesk.events.write(
        "control socket rejected", uid=socket.device_uid, status=refusal.status
    )
    await socket.send(
        {
            "type": "control-rejected",
            "status_code": refusal.status,
            "detail": refusal.detail,
        }
    )
    await socket.close(WSCloseCode.POLICY_VIOLATION)


async def wake(helpdesk: Helpdesk, device_uid: str, command_id: int, command_type: str) -> bool:
    """Tells the connected device that a command waits; False when it is not connected."""
    woken = False
    for socket in helpdesk.sockets.ready_for(device_uid):
        helpdesk.commands.note_wake_up(command_id)
        woken |= await socket.send(
            {
                "type": "agent_command.queued",
                "command_id": command_id,
                "command_type": command_type,
            }
        )
    return woken


async def reject_revoked(helpdesk: Helpdesk, device_uid: str) -> None:
    """Rejects the sockets that were opened with the device's token."""
    for socket in helpdesk.sockets.ready_for(device_uid):
        if (socket.authorization or "").startswith("Device "):
            await _reject(helpdesk, socket, INVALID_DEVICE_TOKEN)


async def reject_deactivated(helpdesk: Helpdesk, device_uid: str) -> None:
    for socket in helpdesk.sockets.ready_for(device_uid):
        await _reject(helpdesk, socket, DEACTIVATED)


async def request_remote_session(
    helpdesk: Helpdesk, device_uid: str, signaling_url: Optional[str], metadata: dict[str, Any]
) -> tuple[str, bool]:
    """Asks the device for a session; returns its public id and whether the device was told.

    `signaling_url` may hold "{session}" and "{ticket}"; None asks without a signaling address.
    """
    public_id = f"rs_{secrets.token_hex(8)}"
    ticket = secrets.token_urlsafe(24)
    helpdesk.database.run(
        "INSERT INTO remote_sessions (public_id, device_uid, ticket, requested_at)"
        " VALUES (?, ?, ?, ?)",
        public_id,
        device_uid,
        ticket,
        seconds(),
    )
    session: dict[str, Any] = {"public_id": public_id, "status": "requested", "control_urls": {}}
    if signaling_url is not None:
        url = signaling_url.replace("{session}", public_id).replace("{ticket}", ticket)
        session["control_urls"]["signaling"] = url
    session["metadata"] = metadata
    told = False
    for socket in helpdesk.sockets.ready_for(device_uid):
        told |= await socket.send({"type": "remote_session.requested", "session": session})
    helpdesk.events.write("remote session requested", id=public_id, uid=device_uid, told=told)
    helpdesk.changes.announce()
    return public_id, told
