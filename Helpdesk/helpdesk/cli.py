"""The command line."""

from __future__ import annotations

import argparse
import asyncio
import json
import signal
import sys
from pathlib import Path
from typing import Optional, Sequence

from .events import EventLog
from .server import Options, Server

DESCRIPTION = """\
A helpdesk on this machine for one or many device agents to talk to: HTTPS with its own CA, the
control and signaling WebSockets, and an admin interface on a port of its own. It listens on the
loopback addresses only.

When it is ready it prints one line of JSON on standard output:
  {"url": ..., "admin_url": ..., "ca_file": ..., "admin_token_file": ..., "viewer_token_file": ...}
An agent needs "url", the token in viewer_token_file, and ca_file as a trusted authority.

What it knows survives a restart with the same --data. SIGTERM and SIGINT stop it."""

PROTOCOL = Path(__file__).resolve().parents[2] / "docs" / "protocol"


def parser() -> argparse.ArgumentParser:
    result = argparse.ArgumentParser(
        prog="helpdesk-server",
        description=DESCRIPTION,
        formatter_class=argparse.RawDescriptionHelpFormatter,
    )
    result.add_argument(
        "--data",
        type=Path,
        required=True,
        metavar="DIR",
        help="folder for the database, the CA and keys, tokens and packages; made when missing",
    )
    result.add_argument(
        "--port", type=int, default=8443, help="HTTPS port; 0 takes any free one (%(default)s)"
    )
    result.add_argument(
        "--admin-port",
        type=int,
        default=8444,
        help="HTTP port of the admin interface; 0 takes any free one (%(default)s)",
    )
    result.add_argument(
        "--events",
        type=Path,
        metavar="FILE",
        help="append the event log to this file instead of writing it on standard error",
    )
    result.add_argument(
        "--protocol",
        type=Path,
        default=PROTOCOL,
        metavar="DIR",
        help="folder of the protocol description that requests are checked against",
    )
    return result


def main(arguments: Optional[Sequence[str]] = None) -> int:
    chosen = parser().parse_args(arguments)
    options = Options(chosen.data, chosen.protocol, chosen.port, chosen.admin_port)
    try:
        events = EventLog.to_file(chosen.events) if chosen.events else EventLog(sys.stderr)
        asyncio.run(_serve(options, events))
    except OSError as error:
        print(f"helpdesk-server: {error}", file=sys.stderr)
        return 1
    return 0


async def _serve(options: Options, events: EventLog) -> None:
    told_to_stop = asyncio.Event()
    loop = asyncio.get_running_loop()
    for number in (signal.SIGTERM, signal.SIGINT):
        loop.add_signal_handler(number, told_to_stop.set)
    server = Server(options, events)
    ready = await server.start()
    print(json.dumps(ready), flush=True)
    await told_to_stop.wait()
    await server.stop()
