"""Registration, heartbeat, commands and remote-session reports: the daemon's HTTP calls."""

from __future__ import annotations

import secrets
from typing import Any

from aiohttp import web

from .answers import Refusal, as_object, optional_text, text_of
from .authentication import Caller
from .clock import seconds, timestamp
from .context import Helpdesk, caller_of, device_named_in_path, helpdesk_of
from .storage import Row, to_json

ROUTES = web.RouteTableDef()


@ROUTES.post("/api/agent/devices/register", name="register")
async def register(request: web.Request) -> web.Response:
    helpdesk = helpdesk_of(request)
    caller = caller_of(request)
    inventory = as_object(request["json"])
    uid = text_of(inventory, "device_uid")
    if helpdesk.authentication.admit(caller, uid) is None:
        _create_device(helpdesk, caller, uid)
    device = _store_inventory(helpdesk, uid, inventory)
    answer = {
        "device_uid": uid,
        "support_id": device["support_id"],
        "public_id": device["public_id"],
    }
    if caller.device is None:
        answer["device_token"] = helpdesk.authentication.issue_device_token(device)
    helpdesk.events.write(
        "device registered", name=device["hostname"], uid=uid, support_id=device["support_id"]
    )
    helpdesk.changes.announce()
    return web.json_response(answer)


def _create_device(helpdesk: Helpdesk, caller: Caller, uid: str) -> None:
    number = helpdesk.database.one("SELECT count(*) AS devices FROM devices")
    assert number is not None
    # Nine digits that a person can read out over the telephone; the number makes them unique.
    support_id = f"{secrets.randbelow(9000) + 1000}{number['devices'] + 1:05d}"
    helpdesk.database.run(
        "INSERT INTO devices (uid, organization_id, support_id, public_id, registered_at)"
        " VALUES (?, ?, ?, ?, ?)",
        uid,
        caller.organization_id,
        support_id,
        f"dev_{secrets.token_hex(8)}",
        timestamp(),
    )


def _store_inventory(helpdesk: Helpdesk, uid: str, inventory: dict[str, Any]) -> Row:
    helpdesk.database.run(
        "UPDATE devices SET hostname = ?, display_name = ?, agent_version = ?, inventory = ?,"
        " inventory_at = ?, inventory_count = inventory_count + 1 WHERE uid = ?",
        optional_text(inventory, "hostname"),
        optional_text(inventory, "display_name"),
        optional_text(inventory, "agent_version"),
        to_json(inventory),
        timestamp(),
        uid,
    )
    device = helpdesk.database.one("SELECT * FROM devices WHERE uid = ?", uid)
    assert device is not None
    return device


@ROUTES.post("/api/agent/devices/heartbeat", name="heartbeat")
async def heartbeat(request: web.Request) -> web.Response:
    helpdesk = helpdesk_of(request)
    caller = caller_of(request)
    body = as_object(request["json"])
    # The server's own identifier goes before the one that the device makes from its hardware.
    uid = optional_text(body, "server_assigned_id") or text_of(body, "device_uid")
    device = helpdesk.authentication.admit_known(caller, uid)
    helpdesk.database.run(
        "UPDATE devices SET heartbeat = ?, heartbeat_at = ?, heartbeat_count = heartbeat_count + 1,"
        " agent_version = coalesce(?, agent_version) WHERE uid = ?",
        to_json(body),
        timestamp(),
        optional_text(body, "agent_version"),
        uid,
    )
    version = optional_text(body, "agent_version")
    helpdesk.events.write("heartbeat", name=device["hostname"], uid=uid, version=version)
    helpdesk.changes.announce()
    return web.json_response({"status": "ok"})


@ROUTES.get(
    "/api/agent/devices/{device_uid}/commands/pending", name="pending_commands", allow_head=False
)
async def pending_commands(request: web.Request) -> web.Response:
    helpdesk = helpdesk_of(request)
    device = device_named_in_path(request)
    body = helpdesk.commands.deliver(device["uid"], request.query.get("command_type"))
    if body != b"[]":
        helpdesk.changes.announce()
    return web.Response(body=body, content_type="application/json")


@ROUTES.post("/api/agent/device-commands/{command_id:-?\\d+}/status", name="command_status")
async def command_status(request: web.Request) -> web.Response:
    helpdesk = helpdesk_of(request)
    caller = caller_of(request)
    command = helpdesk.commands.find(int(request.match_info["command_id"]))
    if command is None:
        raise Refusal(404, "Command not found")
    helpdesk.authentication.admit_known(caller, command["device_uid"])
    body = as_object(request["json"])
    status = text_of(body, "status")
    problems = helpdesk.protocol.result_problems(
        command["command_type"], status, body.get("result")
    )
    if problems:
        source = f"command {command['id']}"
        helpdesk.violation(source, command["device_uid"], problems, request["recorded"].body or "")
    helpdesk.commands.report(command["id"], status, await request.read())
    helpdesk.events.write(
        "command reported", id=command["id"], type=command["command_type"], status=status
    )
    helpdesk.changes.announce()
    return web.json_response({"status": "ok"})


@ROUTES.post("/api/agent/remote/sessions/{session_id}/status", name="remote_session_status")
async def remote_session_status(request: web.Request) -> web.Response:
    helpdesk = helpdesk_of(request)
    caller = caller_of(request)
    session = helpdesk.database.one(
        "SELECT * FROM remote_sessions WHERE public_id = ?", request.match_info["session_id"]
    )
    if session is None:
        raise Refusal(404, "Remote session not found")
    helpdesk.authentication.admit_known(caller, session["device_uid"])
    body = as_object(request["json"])
    status = text_of(body, "status")
    helpdesk.database.run(
        "INSERT INTO remote_session_reports (session, status, error_message, metadata, at)"
        " VALUES (?, ?, ?, ?, ?)",
        session["public_id"],
        status,
        optional_text(body, "error_message"),
        to_json(body.get("metadata")),
        seconds(),
    )
    helpdesk.events.write("remote session reported", id=session["public_id"], status=status)
    helpdesk.changes.announce()
    return web.json_response({"status": "ok"})
