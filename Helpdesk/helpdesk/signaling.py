"""The signaling WebSocket of a remote session. The device only listens on it."""

from __future__ import annotations

import hmac

from aiohttp import web

from .answers import Refusal
from .clock import seconds
from .context import helpdesk_of

ROUTES = web.RouteTableDef()
PATH = "/api/remote/sessions/{session_id}/signaling"


@ROUTES.get(PATH, name="signaling", allow_head=False)
async def signaling(request: web.Request) -> web.StreamResponse:
    helpdesk = helpdesk_of(request)
    session = helpdesk.database.one(
        "SELECT * FROM remote_sessions WHERE public_id = ?", request.match_info["session_id"]
    )
    if session is None:
        raise Refusal(404, "Remote session not found")
    ticket = request.query.get("ticket", "")
    if not hmac.compare_digest(ticket.encode("utf-8"), session["ticket"].encode("utf-8")):
        raise Refusal(403, "Ticket does not match session")
    socket = await helpdesk.sockets.accept("signaling", request)
    socket.device_uid, socket.session = session["device_uid"], session["public_id"]
    helpdesk.events.write("signaling socket open", session=socket.session)
    helpdesk.changes.announce()
    try:
        while (frame := await helpdesk.sockets.receive(socket)) is not None:
            text = frame.data if isinstance(frame.data, str) else repr(frame.data)
            socket.received_count += 1
            socket.received.append({"at": seconds(), "text": text, "json": None})
            problems = ["the device sends nothing on the signaling socket"]
            helpdesk.violation("signaling socket", socket.device_uid, problems, text)
    finally:
        await helpdesk.sockets.closed(socket)
        helpdesk.events.write(
            "signaling socket closed", session=socket.session, code=socket.close_code
        )
        helpdesk.changes.announce()
    return socket.stream
