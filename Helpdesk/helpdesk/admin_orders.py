"""How orders to the admin interface are read and answered."""

from __future__ import annotations

from typing import Any, Optional

from aiohttp import web

from .answers import Refusal, as_object, parse_json
from .context import helpdesk_of
from .storage import Row

LONGEST_WAIT_SECONDS = 300.0


def bounded_timeout(value: Any) -> float:
    return max(0.0, min(float(value), LONGEST_WAIT_SECONDS))


async def order_of(request: web.Request) -> dict[str, Any]:
    """The body's object; empty without a body."""
    body = await request.read()
    return as_object(parse_json(body)) if body else {}


def changed(request: web.Request, answer: Optional[dict[str, Any]] = None) -> web.Response:
    """Answers an order that changed something, and wakes those who wait for a change."""
    helpdesk_of(request).changes.announce()
    return web.json_response(answer or {})


def device_of(request: web.Request) -> Row:
    """The device of "{uid}" in the path."""
    uid = request.match_info["uid"]
    row = helpdesk_of(request).database.one("SELECT * FROM devices WHERE uid = ?", uid)
    if row is None:
        raise Refusal(404, "Device not found")
    return row
