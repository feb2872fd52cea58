"""Tickets, the customers who own them, and the notifications of consultants' answers."""

from __future__ import annotations

import base64
import binascii
import hashlib
import hmac
import json
import secrets
from datetime import timedelta
from typing import Any, Optional

from aiohttp import web

from .answers import Refusal, as_object, optional_text, text_of
from .authentication import Caller, hashed
from .clock import timestamp
from .context import caller_of, helpdesk_of
from .storage import Database, Row, to_json

ROUTES = web.RouteTableDef()
SESSION_LIFE = timedelta(days=30)
LARGEST_PAGE = 200
INVALID_LOGIN = Refusal(401, "Invalid email or password")
MISSING_SESSION = Refusal(401, "Missing customer session")
INVALID_SESSION = Refusal(401, "Invalid customer session")


@ROUTES.post("/api/agent/tickets", name="ticket")
async def ticket(request: web.Request) -> web.Response:
    helpdesk = helpdesk_of(request)
    caller = caller_of(request)
    helpdesk.authentication.admit_itself(caller)
    body = as_object(request["json"])
    device_uid = optional_text(body, "device_uid")
    if device_uid is not None:
        helpdesk.authentication.admit_known(caller, device_uid)
    attachments = _decoded_attachments(body.pop("attachments", []))
    stored = _store_ticket(helpdesk.database, caller, body, attachments)
    helpdesk.events.write("ticket", number=_number(stored), subject=stored["subject"])
    helpdesk.changes.announce()
    base_url = f"{request.scheme}://{request.host}"
    return web.json_response(
        {
            "public_id": stored["public_id"],
            "ticket_number": _number(stored),
            "ticket_url": f"{base_url}/tickets/{stored['public_id']}",
            "subject": stored["subject"],
            "status": stored["status"],
        }
    )


def _decoded_attachments(drafts: Any) -> list[tuple[dict[str, Any], bytes]]:
    if not isinstance(drafts, list):
        raise Refusal(422, "attachments must be a list")
    decoded = []
    for draft in map(as_object, drafts):
        text_of(draft, "filename")
        try:
            data = base64.b64decode(str(draft.pop("data_base64", "")), validate=True)
        except (binascii.Error, ValueError):
            raise Refusal(422, "data_base64 is not Base64") from None
        decoded.append((draft, data))
    return decoded


def _store_ticket(
    database: Database,
    caller: Caller,
    body: dict[str, Any],
    attachments: list[tuple[dict[str, Any], bytes]],
) -> Row:
    """The ticket; the one that is there already when this request came before."""
    find = "SELECT * FROM tickets WHERE organization_id = ? AND client_request_id = ?"
    key = (caller.organization_id, text_of(body, "client_request_id"))
    if (known := database.one(find, *key)) is not None:
        return known
    subject = text_of(body, "subject")
    with database.transaction():
        identifier = database.run(
            "INSERT INTO tickets (organization_id, client_request_id, public_id, device_uid,"
            " customer_email, subject, body, created_at) VALUES (?, ?, ?, ?, ?, ?, ?, ?)",
            *key,
            f"tck_{secrets.token_hex(8)}",
            optional_text(body, "device_uid"),
            optional_text(body, "customer_email"),
            subject,
            to_json(body),
            timestamp(),
        )
        database.run_many(
            "INSERT INTO ticket_attachments VALUES (?, ?, ?, ?, ?, ?, ?)",
            (
                (
                    identifier,
                    position,
                    draft["filename"],
                    str(draft.get("content_type", "")),
                    draft.get("inline_placeholder"),
                    hashlib.sha256(data).hexdigest(),
                    data,
                )
                for position, (draft, data) in enumerate(attachments)
            ),
        )
    stored = database.one(find, *key)
    assert stored is not None
    return stored


def _number(row: Row) -> str:
    return f"WB-{row['id']:05d}"


def describe_ticket(database: Database, public_id: str) -> dict[str, Any]:
    row = database.one("SELECT * FROM tickets WHERE public_id = ?", public_id)
    if row is None:
        raise Refusal(404, "Ticket not found")
    attachments = database.all(
        "SELECT filename, content_type, inline_placeholder, sha256, length(data) AS size_bytes"
        " FROM ticket_attachments WHERE ticket_id = ? ORDER BY position",
        row["id"],
    )
    messages = database.all(
        "SELECT id, text, created_at FROM ticket_messages WHERE ticket_id = ? ORDER BY id",
        row["id"],
    )
    return {
        "public_id": public_id,
        "ticket_number": _number(row),
        "status": row["status"],
        "created_at": row["created_at"],
        "body": json.loads(row["body"]),
        "attachments": [dict(entry) for entry in attachments],
        "messages": [dict(entry) for entry in messages],
    }


def answer_ticket(database: Database, public_id: str, text: str) -> int:
    """A consultant's answer; returns the message's id, which notifications count by."""
    row = database.one("SELECT id FROM tickets WHERE public_id = ?", public_id)
    if row is None:
        raise Refusal(404, "Ticket not found")
    return database.run(
        "INSERT INTO ticket_messages (ticket_id, text, created_at) VALUES (?, ?, ?)",
        row["id"],
        text,
        timestamp(),
    )


def create_customer(database: Database, description: dict[str, Any]) -> None:
    """Makes a customer, or renews the one with this e-mail address."""
    salt = secrets.token_bytes(16)
    database.run(
        "INSERT INTO customers (email, full_name, phone, organization_name,"
        " can_view_organization_tickets, password_salt, password_hash)"
        " VALUES (?, ?, ?, ?, ?, ?, ?) ON CONFLICT (email) DO UPDATE SET"
        " full_name = excluded.full_name, phone = excluded.phone,"
        " organization_name = excluded.organization_name,"
        " can_view_organization_tickets = excluded.can_view_organization_tickets,"
        " password_salt = excluded.password_salt, password_hash = excluded.password_hash",
        text_of(description, "email"),
        text_of(description, "full_name"),
        optional_text(description, "phone"),
        optional_text(description, "organization_name"),
        bool(description.get("can_view_organization_tickets", False)),
        salt,
        _password_hash(text_of(description, "password"), salt),
    )


def _password_hash(password: str, salt: bytes) -> bytes:
    return hashlib.scrypt(password.encode("utf-8", "surrogatepass"), salt=salt, n=2**12, r=8, p=1)


@ROUTES.post("/api/customer/session", name="customer_session")
async def customer_session(request: web.Request) -> web.Response:
    helpdesk = helpdesk_of(request)
    body = as_object(request["json"])
    email, password = text_of(body, "email"), text_of(body, "password")
    customer = helpdesk.database.one("SELECT * FROM customers WHERE email = ?", email)
    if customer is None or not hmac.compare_digest(
        customer["password_hash"], _password_hash(password, customer["password_salt"])
    ):
        raise INVALID_LOGIN
    token, expires_at = secrets.token_urlsafe(32), timestamp(SESSION_LIFE)
    helpdesk.database.run(
        "INSERT INTO customer_sessions VALUES (?, ?, ?)", hashed(token), customer["id"], expires_at
    )
    helpdesk.events.write("customer logged in", email=customer["email"])
    helpdesk.changes.announce()
    profile = {
        "email": customer["email"],
        "full_name": customer["full_name"],
        "phone": customer["phone"],
        "organization_name": customer["organization_name"],
        "can_view_organization_tickets": bool(customer["can_view_organization_tickets"]),
    }
    return web.json_response(
        {"access_token": token, "expires_at": expires_at, "customer": profile}
    )


@ROUTES.get("/api/customer/ticket-notifications", name="ticket_notifications", allow_head=False)
async def ticket_notifications(request: web.Request) -> web.Response:
    helpdesk = helpdesk_of(request)
    customer = _logged_in_customer(helpdesk.database, request.headers.get("X-Customer-Session"))
    after = _number_in_query(request, "after_message_id")
    limit = min(max(_number_in_query(request, "limit"), 1), LARGEST_PAGE)
    # One row more than asked for tells whether there are more.
    rows = helpdesk.database.all(
        "SELECT m.id AS message_id, t.id, t.public_id, t.subject, m.text, m.created_at"
        " FROM ticket_messages m JOIN tickets t ON t.id = m.ticket_id"
        " WHERE m.id > ? AND (t.customer_email = ? OR (? AND t.customer_email IN"
        "  (SELECT email FROM customers WHERE organization_name = ?)))"
        " ORDER BY m.id LIMIT ?",
        after,
        customer["email"],
        customer["can_view_organization_tickets"],
        customer["organization_name"],
        limit + 1,
    )
    page = rows[:limit]
    items = [
        {
            "message_id": row["message_id"],
            "ticket_public_id": row["public_id"],
            "ticket_number": _number(row),
            "subject": row["subject"],
            "message_text": row["text"],
            "created_at": row["created_at"],
        }
        for row in page
    ]
    cursor = page[-1]["message_id"] if page else after
    return web.json_response(
        {"items": items, "cursor": cursor, "has_more": len(rows) > len(page)}
    )


def _logged_in_customer(database: Database, token: Optional[str]) -> Row:
    if not token:
        raise MISSING_SESSION
    customer = database.one(
        "SELECT c.* FROM customers c JOIN customer_sessions s ON s.customer_id = c.id"
        " WHERE s.token_hash = ? AND s.expires_at > ?",
        hashed(token),
        timestamp(),
    )
    if customer is None:
        raise INVALID_SESSION
    return customer


def _number_in_query(request: web.Request, key: str) -> int:
    try:
        return max(-(2**62), min(int(request.query[key]), 2**62))
    except (KeyError, ValueError):
        raise Refusal(422, f"{key} must be a number") from None
