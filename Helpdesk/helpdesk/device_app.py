"""The application that devices talk to: every request is recorded, spoilt on demand, checked."""

from __future__ import annotations

from typing import Awaitable, Callable, Optional
from urllib.parse import parse_qsl

from aiohttp import web

from . import chat, control_socket, device_api, packages, signaling, tickets
from .answers import Refusal, parse_json
from .clock import seconds
from .context import Helpdesk, helpdesk_of
from .faults import is_connected
from .protocol_check import Sent

LARGEST_BODY_BYTES = 256 << 20

Handler = Callable[[web.Request], Awaitable[web.StreamResponse]]


def create_device_app(helpdesk: Helpdesk, package_store: packages.PackageStore) -> web.Application:
    app = web.Application(
        middlewares=[record, spoil, answer_refusals, check], client_max_size=LARGEST_BODY_BYTES
    )
    app["helpdesk"] = helpdesk
    app["packages"] = package_store
    for module in (device_api, chat, tickets, packages, control_socket, signaling):
        app.add_routes(module.ROUTES)
    return app


def endpoint_of(request: web.Request) -> Optional[str]:
    """The operationId of the protocol description; None for a path it does not know."""
    return request.match_info.route.name


@web.middleware
async def record(request: web.Request, handler: Handler) -> web.StreamResponse:
    helpdesk = helpdesk_of(request)
    entry = helpdesk.recorder.begin(request, endpoint_of(request), _listener_of(request))
    request["recorded"] = entry
    helpdesk.recorder.keep_body(entry, await request.read())
    helpdesk.changes.announce()
    response = await handler(request)
    if is_connected(request):
        entry.status = response.status
        entry.answered_at = seconds()
    return response


def _listener_of(request: web.Request) -> str:
    address = request.get_extra_info("sockname")
    return helpdesk_of(request).listener_names.get(address[1], "main") if address else "gone"


@web.middleware
async def spoil(request: web.Request, handler: Handler) -> web.StreamResponse:
    helpdesk = helpdesk_of(request)
    fault = helpdesk.faults.take(endpoint_of(request))
    if fault is None:
        return await handler(request)
    request["recorded"].fault = fault.kind
    helpdesk.events.write("fault", kind=fault.kind, endpoint=endpoint_of(request))
    return await helpdesk.faults.perform(fault, request, lambda: handler(request))


@web.middleware
async def answer_refusals(request: web.Request, handler: Handler) -> web.StreamResponse:
    try:
        return await handler(request)
    except Refusal as refusal:
        return refusal.answer()
    except UnicodeEncodeError:
        return Refusal(422, "Text is not valid Unicode").answer()
    except web.HTTPException as error:
        return Refusal(error.status, error.reason).answer()


@web.middleware
async def check(request: web.Request, handler: Handler) -> web.StreamResponse:
    """Holds the request against the protocol description and puts its JSON under "json"."""
    helpdesk = helpdesk_of(request)
    body = await request.read()
    request["json"], json_error = None, None
    try:
        request["json"] = parse_json(body)
    except ValueError as error:
        json_error = str(error)
    endpoint = endpoint_of(request)
    if endpoint is None:
        problems = ["no such endpoint"]
    else:
        query = parse_qsl(request.rel_url.raw_query_string, keep_blank_values=True)
        sent = Sent(request.headers, query, body, request["json"], json_error)
        problems = helpdesk.protocol.request_problems(endpoint, sent)
    if problems:
        source = f"{request.method} {request.path}"
        device_uid = request.match_info.get("device_uid")
        helpdesk.violation(source, device_uid, problems, body.decode("utf-8", "replace"))
    return await handler(request)
