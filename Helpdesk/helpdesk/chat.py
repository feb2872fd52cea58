"""Chat conversations: consultants' messages go out as commands, replies come in over HTTP."""

from __future__ import annotations

from typing import Any, Optional

from aiohttp import web

from .answers import as_object, optional_text, text_of
from .clock import seconds
from .context import Helpdesk, device_named_in_path, helpdesk_of
from .control_socket import wake
from .storage import Database

ROUTES = web.RouteTableDef()


@ROUTES.post("/api/agent/devices/{device_uid}/chat-messages", name="chat_message")
async def chat_message(request: web.Request) -> web.Response:
    """Stores a reply once, however often it is sent."""
    helpdesk = helpdesk_of(request)
    device = device_named_in_path(request)
    body = as_object(request["json"])
    client_id = text_of(body, "client_message_id")
    known = helpdesk.database.one(
        "SELECT id FROM chat_messages WHERE device_uid = ? AND client_message_id = ?",
        device["uid"],
        client_id,
    )
    if known is not None:
        helpdesk.database.run(
            "UPDATE chat_messages SET deliveries = deliveries + 1 WHERE id = ?", known["id"]
        )
        return web.json_response({"status": "ok", "id": known["id"], "duplicate": True})
    conversation = _conversation(helpdesk.database, device["uid"], str(body.get("public_id", "")))
    identifier = helpdesk.database.run(
        "INSERT INTO chat_messages (conversation, device_uid, direction, sender, text,"
        " client_message_id, sent_at, stored_at) VALUES (?, ?, 'from_user', ?, ?, ?, ?, ?)",
        conversation,
        device["uid"],
        str(body.get("sender", "")),
        str(body.get("text", "")),
        client_id,
        optional_text(body, "sent_at"),
        seconds(),
    )
    helpdesk.events.write("chat reply", conversation=conversation, uid=device["uid"])
    helpdesk.changes.announce()
    return web.json_response({"status": "ok", "id": identifier, "duplicate": False})


async def send_as_consultant(
    helpdesk: Helpdesk, device_uid: str, text: str, sender: str, public_id: Optional[str]
) -> dict[str, Any]:
    """Stores a consultant's message and queues its delivery to the device."""
    public_id = public_id or f"device-{device_uid}"
    conversation = _conversation(helpdesk.database, device_uid, public_id)
    identifier = helpdesk.database.run(
        "INSERT INTO chat_messages (conversation, device_uid, direction, sender, text, stored_at)"
        " VALUES (?, ?, 'from_consultant', ?, ?, ?)",
        conversation,
        device_uid,
        sender,
        text,
        seconds(),
    )
    payload = {
        "title": "Wiadomość z Centrum Wsparo",
        "message": text,
        "sender": sender,
        "public_id": conversation,
        "chat_message_id": identifier,
    }
    [command_id] = helpdesk.commands.queue(device_uid, [("user_notify", payload)])
    helpdesk.database.run(
        "UPDATE chat_messages SET command_id = ? WHERE id = ?", command_id, identifier
    )
    await wake(helpdesk, device_uid, command_id, "user_notify")
    helpdesk.changes.announce()
    return {"id": identifier, "conversation": conversation, "command_id": command_id}


def _conversation(database: Database, device_uid: str, public_id: str) -> str:
    database.run(
        "INSERT INTO conversations (public_id, device_uid) VALUES (?, ?)"
        " ON CONFLICT (public_id) DO NOTHING",
        public_id,
        device_uid,
    )
    return public_id


def describe(database: Database, public_id: str) -> dict[str, Any]:
    """The conversation with its messages, oldest first; empty when there is none."""
    rows = database.all(
        "SELECT m.*, c.status AS command_status FROM chat_messages m"
        " LEFT JOIN commands c ON c.id = m.command_id WHERE conversation = ? ORDER BY m.id",
        public_id,
    )
    return {"public_id": public_id, "messages": [dict(row) for row in rows]}


def all_conversations(database: Database) -> list[dict[str, Any]]:
    rows = database.all(
        "SELECT c.public_id, c.device_uid, count(m.id) AS messages FROM conversations c"
        " LEFT JOIN chat_messages m ON m.conversation = c.public_id"
        " GROUP BY c.public_id ORDER BY c.rowid"
    )
    return [dict(row) for row in rows]
