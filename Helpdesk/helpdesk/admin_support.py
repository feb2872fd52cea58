"""Admin interface: organisations, devices, commands, chat, sessions, tickets and packages."""

from __future__ import annotations

import json
from typing import Any

from aiohttp import web

from . import chat, tickets
from .admin_orders import bounded_timeout, changed, device_of, order_of
from .answers import Refusal, text_of
from .context import Helpdesk, helpdesk_of
from .control_socket import reject_deactivated, reject_revoked, request_remote_session, wake
from .storage import Row

ROUTES = web.RouteTableDef()

# Organisations


@ROUTES.get("/organizations")
async def organizations(request: web.Request) -> web.Response:
    rows = helpdesk_of(request).database.all("SELECT id, name FROM organizations ORDER BY id")
    return web.json_response([dict(row) for row in rows])


@ROUTES.post("/organizations")
async def create_organization(request: web.Request) -> web.Response:
    order = await order_of(request)
    authentication = helpdesk_of(request).authentication
    identifier, token = authentication.create_organization(text_of(order, "name"))
    return changed(request, {"id": identifier, "viewer_token": token})


@ROUTES.post("/organizations/{id:\\d+}/viewer-token")
async def replace_viewer_token(request: web.Request) -> web.Response:
    token = helpdesk_of(request).authentication.replace_viewer_token(int(request.match_info["id"]))
    return changed(request, {"viewer_token": token})


# Devices


@ROUTES.get("/devices")
async def devices(request: web.Request) -> web.Response:
    helpdesk = helpdesk_of(request)
    rows = helpdesk.database.all("SELECT * FROM devices ORDER BY rowid")
    return web.json_response([_device_facts(helpdesk, row) for row in rows])


@ROUTES.get("/devices/{uid}")
async def device(request: web.Request) -> web.Response:
    helpdesk = helpdesk_of(request)
    row = device_of(request)
    facts = _device_facts(helpdesk, row)
    for body in ("inventory", "heartbeat"):
        facts[body] = json.loads(row[body]) if row[body] else None
    facts["commands"] = helpdesk.commands.counts(row["uid"])
    return web.json_response(facts)


def _device_facts(helpdesk: Helpdesk, row: Row) -> dict[str, Any]:
    shown = (
        "uid", "organization_id", "support_id", "public_id", "hostname", "display_name",
        "agent_version", "registered_at", "inventory_at", "inventory_count", "heartbeat_at",
        "heartbeat_count",
    )
    return {
        **{key: row[key] for key in shown},
        "active": bool(row["active"]),
        "has_token": row["token_hash"] is not None,
        "connected": bool(helpdesk.sockets.ready_for(row["uid"])),
    }


@ROUTES.post("/devices/{uid}/revoke-token")
async def revoke_token(request: web.Request) -> web.Response:
    helpdesk, uid = helpdesk_of(request), device_of(request)["uid"]
    helpdesk.authentication.revoke_device_token(uid)
    helpdesk.events.write("device token revoked", uid=uid)
    await reject_revoked(helpdesk, uid)
    return changed(request)


@ROUTES.post("/devices/{uid}/deactivate")
async def deactivate(request: web.Request) -> web.Response:
    helpdesk, uid = helpdesk_of(request), device_of(request)["uid"]
    helpdesk.database.run("UPDATE devices SET active = 0 WHERE uid = ?", uid)
    helpdesk.events.write("device deactivated", uid=uid)
    await reject_deactivated(helpdesk, uid)
    return changed(request)


@ROUTES.post("/devices/{uid}/reactivate")
async def reactivate(request: web.Request) -> web.Response:
    helpdesk, uid = helpdesk_of(request), device_of(request)["uid"]
    helpdesk.database.run("UPDATE devices SET active = 1 WHERE uid = ?", uid)
    helpdesk.events.write("device reactivated", uid=uid)
    return changed(request)


@ROUTES.post("/devices/{uid}/assign")
async def assign(request: web.Request) -> web.Response:
    """To another organisation: its former one's tokens, the device's included, are of no use."""
    helpdesk, uid = helpdesk_of(request), device_of(request)["uid"]
    organization_id = (await order_of(request))["organization_id"]
    helpdesk.database.run(
        "UPDATE devices SET organization_id = ? WHERE uid = ?", organization_id, uid
    )
    helpdesk.events.write("device assigned", uid=uid, organization=organization_id)
    return changed(request)


# Commands


@ROUTES.post("/devices/{uid}/commands")
async def queue_commands(request: web.Request) -> web.Response:
    """{"commands": [{"command_type", "payload"}], "wake": "each", "once" or "none",
    "wait": seconds}: answers at once, or when all commands have ended."""
    helpdesk, uid = helpdesk_of(request), device_of(request)["uid"]
    order = await order_of(request)
    wanted = [(text_of(c, "command_type"), c.get("payload", {})) for c in order["commands"]]
    identifiers = helpdesk.commands.queue(uid, wanted)
    helpdesk.events.write("commands queued", uid=uid, count=len(identifiers))
    woken = False
    wakes = {"each": len(identifiers), "once": 1, "none": 0}[order.get("wake", "each")]
    for identifier, (command_type, _) in list(zip(identifiers, wanted))[:wakes]:
        woken |= await wake(helpdesk, uid, identifier, command_type)
    helpdesk.changes.announce()
    answer: dict[str, Any] = {"ids": identifiers, "woken": woken}
    if "wait" in order:
        timeout = bounded_timeout(order["wait"])
        answer["finished"] = await helpdesk.commands.wait_until_final(identifiers, timeout)
        answer["commands"] = [helpdesk.commands.describe(number) for number in identifiers]
    return web.json_response(answer)


@ROUTES.post("/devices/{uid}/wake")
async def wake_device(request: web.Request) -> web.Response:
    helpdesk, uid = helpdesk_of(request), device_of(request)["uid"]
    message = {"type": "agent_command.queued", **await order_of(request)}
    told = [await socket.send(message) for socket in helpdesk.sockets.ready_for(uid)]
    return changed(request, {"woken": any(told)})


@ROUTES.get("/devices/{uid}/commands")
async def commands_of_device(request: web.Request) -> web.Response:
    limit = int(request.query.get("limit", "100"))
    uid = device_of(request)["uid"]
    return web.json_response(helpdesk_of(request).commands.of_device(uid, limit))


@ROUTES.get("/commands/{id:\\d+}")
async def command(request: web.Request) -> web.Response:
    """With "wait" (seconds): once the command has ended."""
    commands, identifier = helpdesk_of(request).commands, int(request.match_info["id"])
    if "wait" in request.query:
        await commands.wait_until_final([identifier], bounded_timeout(request.query["wait"]))
    described = commands.describe(identifier)
    if described is None:
        raise Refusal(404, "Command not found")
    return web.json_response(described)


# Chat


@ROUTES.post("/devices/{uid}/chat")
async def send_chat(request: web.Request) -> web.Response:
    order = await order_of(request)
    return web.json_response(
        await chat.send_as_consultant(
            helpdesk_of(request),
            device_of(request)["uid"],
            text_of(order, "text"),
            order.get("sender", "Konsultant"),
            order.get("conversation"),
        )
    )


@ROUTES.get("/conversations")
async def conversations(request: web.Request) -> web.Response:
    return web.json_response(chat.all_conversations(helpdesk_of(request).database))


@ROUTES.get("/conversations/{id}")
async def conversation(request: web.Request) -> web.Response:
    database = helpdesk_of(request).database
    return web.json_response(chat.describe(database, request.match_info["id"]))


# Remote sessions


@ROUTES.post("/devices/{uid}/remote-sessions")
async def remote_session(request: web.Request) -> web.Response:
    """{"signaling": false leaves the address out, a text replaces it, "metadata": object}."""
    order = await order_of(request)
    base = request.app["public_url"].replace("https://", "wss://", 1)
    signaling = order.get("signaling", True)
    if signaling is True:
        signaling = f"{base}/api/remote/sessions/{{session}}/signaling?ticket={{ticket}}"
    public_id, told = await request_remote_session(
        helpdesk_of(request),
        device_of(request)["uid"],
        signaling or None,
        order.get("metadata", {}),
    )
    return web.json_response({"public_id": public_id, "told": told})


@ROUTES.get("/remote-sessions/{id}")
async def remote_session_reports(request: web.Request) -> web.Response:
    database, public_id = helpdesk_of(request).database, request.match_info["id"]
    session = database.one("SELECT * FROM remote_sessions WHERE public_id = ?", public_id)
    if session is None:
        raise Refusal(404, "Remote session not found")
    rows = database.all(
        "SELECT status, error_message, metadata, at FROM remote_session_reports"
        " WHERE session = ? ORDER BY id",
        public_id,
    )
    reports = [{**dict(row), "metadata": json.loads(row["metadata"])} for row in rows]
    facts = {"public_id": public_id, "device_uid": session["device_uid"], "reports": reports}
    return web.json_response(facts)



# Tickets and customers


@ROUTES.post("/customers")
async def create_customer(request: web.Request) -> web.Response:
    tickets.create_customer(helpdesk_of(request).database, await order_of(request))
    return changed(request)


@ROUTES.get("/tickets")
async def all_tickets(request: web.Request) -> web.Response:
    database = helpdesk_of(request).database
    rows = database.all("SELECT public_id FROM tickets ORDER BY id")
    return web.json_response([tickets.describe_ticket(database, r["public_id"]) for r in rows])


@ROUTES.get("/tickets/{id}/attachments/{position:\\d+}")
async def attachment(request: web.Request) -> web.Response:
    row = helpdesk_of(request).database.one(
        "SELECT a.data FROM ticket_attachments a JOIN tickets t ON t.id = a.ticket_id"
        " WHERE t.public_id = ? AND a.position = ?",
        request.match_info["id"],
        int(request.match_info["position"]),
    )
    if row is None:
        raise Refusal(404, "Attachment not found")
    return web.Response(body=row["data"], content_type="application/octet-stream")


@ROUTES.post("/tickets/{id}/answers")
async def answer_ticket(request: web.Request) -> web.Response:
    database, text = helpdesk_of(request).database, text_of(await order_of(request), "text")
    identifier = tickets.answer_ticket(database, request.match_info["id"], text)
    return changed(request, {"message_id": identifier})


# Packages


@ROUTES.get("/packages")
async def all_packages(request: web.Request) -> web.Response:
    return web.json_response(request.app["packages"].describe_all())


@ROUTES.post("/packages")
async def publish(request: web.Request) -> web.Response:
    """The body is the package; the query says "version", and "filename" and the kind if need be."""
    facts = {key: value for key, value in request.query.items()}
    identifier = await request.app["packages"].publish(facts, request.content)
    helpdesk_of(request).events.write("package published", version=facts["version"])
    return changed(request, {"id": identifier})


@ROUTES.patch("/packages/{id:\\d+}")
async def change_package(request: web.Request) -> web.Response:
    request.app["packages"].change(int(request.match_info["id"]), await order_of(request))
    return changed(request)


@ROUTES.delete("/packages/{id:\\d+}")
async def withdraw(request: web.Request) -> web.Response:
    request.app["packages"].withdraw(int(request.match_info["id"]))
    return changed(request)
