"""Admin interface: what agents sent, and faults of every sort on demand."""

from __future__ import annotations

from aiohttp import web

from .admin_orders import changed, order_of
from .answers import Refusal, text_of
from .context import helpdesk_of
from .faults import Fault
from .sockets import perform

ROUTES = web.RouteTableDef()


@ROUTES.get("/changes")
async def number_of_changes(request: web.Request) -> web.Response:
    """Nothing but the X-Change header, for those who wait."""
    return web.json_response({})


@ROUTES.get("/sockets")
async def sockets(request: web.Request) -> web.Response:
    found = helpdesk_of(request).sockets.describe(
        request.query.get("kind"), request.query.get("device_uid")
    )
    return web.json_response(found)


@ROUTES.get("/sockets/{id:\\d+}")
async def socket_messages(request: web.Request) -> web.Response:
    socket = helpdesk_of(request).sockets.find(int(request.match_info["id"]))
    return web.json_response(socket.describe(with_messages=True))


@ROUTES.post("/sockets/{id:\\d+}/actions")
async def socket_action(request: web.Request) -> web.Response:
    socket = helpdesk_of(request).sockets.find(int(request.match_info["id"]))
    await perform(socket, await order_of(request))
    return changed(request)


@ROUTES.get("/faults")
async def pending_faults(request: web.Request) -> web.Response:
    return web.json_response(helpdesk_of(request).faults.pending())


@ROUTES.post("/faults")
async def add_fault(request: web.Request) -> web.Response:
    helpdesk, fault = helpdesk_of(request), Fault.parse(await order_of(request))
    known = {*helpdesk.protocol.operations, "*"}
    if fault.endpoint not in known:
        raise Refusal(422, f"The endpoints are {sorted(known)}")
    return changed(request, {"id": helpdesk.faults.add(fault)})


@ROUTES.delete("/faults")
async def clear_faults(request: web.Request) -> web.Response:
    helpdesk_of(request).faults.clear()
    return changed(request)


@ROUTES.get("/requests")
async def requests(request: web.Request) -> web.Response:
    found = helpdesk_of(request).recorder.requests(
        request.query.get("endpoint"),
        int(request.query.get("after", "0")),
        int(request.query.get("limit", "1000")),
    )
    return web.json_response(found)


@ROUTES.delete("/requests")
async def clear_requests(request: web.Request) -> web.Response:
    helpdesk_of(request).recorder.clear()
    return changed(request)


@ROUTES.get("/violations")
async def violations(request: web.Request) -> web.Response:
    after = int(request.query.get("after", "0"))
    return web.json_response(helpdesk_of(request).violations(after))


@ROUTES.delete("/violations")
async def clear_violations(request: web.Request) -> web.Response:
    helpdesk_of(request).database.run("DELETE FROM violations")
    return changed(request)


@ROUTES.get("/listeners")
async def all_listeners(request: web.Request) -> web.Response:
    return web.json_response(request.app["listeners"].describe())


@ROUTES.post("/listeners")
async def open_listener(request: web.Request) -> web.Response:
    order = await order_of(request)
    listener = await request.app["listeners"].open(text_of(order, "kind"))
    return changed(request, listener.describe())


@ROUTES.delete("/listeners/{id:\\d+}")
async def close_listener(request: web.Request) -> web.Response:
    request.app["listeners"].close(int(request.match_info["id"]))
    return changed(request)
