"""The admin interface: what a consultant's console, a test or ./run asks and orders.

Plain HTTP on loopback with a bearer token. Every GET takes "changed_since" (a number from an
earlier answer's X-Change header) and "timeout" (seconds) and then answers once something has
happened after that number.
"""

from __future__ import annotations

import hmac
import sqlite3
from typing import Awaitable, Callable

from aiohttp import web

from . import admin_support, admin_testing
from .admin_orders import bounded_timeout
from .answers import Refusal
from .context import Helpdesk, helpdesk_of
from .listeners import Listeners
from .packages import PackageStore

LARGEST_BODY_BYTES = 1 << 30

Handler = Callable[[web.Request], Awaitable[web.StreamResponse]]


def create_admin_app(
    helpdesk: Helpdesk,
    packages: PackageStore,
    listeners: Listeners,
    token: str,
    public_url: str,
) -> web.Application:
    app = web.Application(
        middlewares=[authorise, wait_for_change], client_max_size=LARGEST_BODY_BYTES
    )
    app["helpdesk"] = helpdesk
    app["packages"] = packages
    app["listeners"] = listeners
    app["expected_authorization"] = f"Bearer {token}"
    app["public_url"] = public_url
    app.add_routes(admin_support.ROUTES)
    app.add_routes(admin_testing.ROUTES)
    return app


@web.middleware
async def authorise(request: web.Request, handler: Handler) -> web.StreamResponse:
    given = request.headers.get("Authorization", "").encode("utf-8", "surrogateescape")
    if not hmac.compare_digest(given, request.app["expected_authorization"].encode("ascii")):
        return Refusal(401, "Invalid admin token").answer()
    try:
        return await handler(request)
    except Refusal as refusal:
        return refusal.answer()
    except (KeyError, TypeError, ValueError, sqlite3.IntegrityError) as error:
        return Refusal(422, f"{type(error).__name__}: {error}").answer()


@web.middleware
async def wait_for_change(request: web.Request, handler: Handler) -> web.StreamResponse:
    changes = helpdesk_of(request).changes
    if "changed_since" in request.query:
        timeout = bounded_timeout(request.query.get("timeout", "10"))
        await changes.wait_beyond(int(request.query["changed_since"]), timeout)
    # Taken before the answer is made: what happens meanwhile counts as later.
    number = changes.number
    response = await handler(request)
    response.headers["X-Change"] = str(number)
    return response
