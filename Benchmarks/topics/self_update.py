"""What an update costs beside the tools that do it: from the request to the script, and the checks and
the backup that the script makes."""

from __future__ import annotations

import asyncio
import hashlib
import json
import os
import pathlib
import statistics
import time

from orvbench.figures import Figure, Surroundings, Topic, spread
from orvbench.rig import Rig, connected_agent
from samplemac import SampleMac
from update_mac import (APP, BACKUPS, DAEMON, NEW, OLD, REQUEST, RUNTIME, SCRIPT, UPDATES, UpdateMac)

PACKAGE_MIB = 100
APPLICATION_MIB = 200
TIMES_THE_TOOLS = 1.3
POLLING_SECONDS = 2.1
OWN_PART_SECONDS = 0.1
PACKAGE = f"{UPDATES}/Wsparo-Brenvox-macOS-{NEW}.pkg"

# In launchctl's place: notes when it is told to start the script.
_STARTS = '#!/bin/sh\n[ "$1" != bootstrap ] || date +%s.%N > "${0%/bin/launchctl}/.sample/started"\n'


async def measure(surroundings: Surroundings) -> list[Figure]:
    polled, own = await _request_to_script(surroundings)
    script, tools = await asyncio.to_thread(_checks_and_backup, surroundings)
    return [
        Figure("request written to script started, the longest", max(polled),
               POLLING_SECONDS + OWN_PART_SECONDS, "s", why=spread(polled)),
        Figure("request seen to script started, the median", statistics.median(own),
               OWN_PART_SECONDS, "s", why=spread(own, 1000, "ms")),
        Figure("checks and backup, against the bare tools",
               statistics.median(script) / statistics.median(tools), TIMES_THE_TOOLS,
               why=f"script {spread(script, 1000, 'ms')}, tools {spread(tools, 1000, 'ms')}; package "
                   f"of {PACKAGE_MIB} MiB, application of {APPLICATION_MIB} MiB")]


async def _request_to_script(surroundings: Surroundings) -> tuple[list[float], list[float]]:
    """Seconds since the request was written, and since it was seen."""
    polled: list[float] = []
    own: list[float] = []
    async with connected_agent(surroundings.folder / "request", chatPollIntervalSeconds=5) as rig:
        rig.desk.offered_package = {"version": NEW, "url": f"{rig.desk.url}/new.pkg",
                                    "sha256": "0" * 64, "size_bytes": 1000}
        rig.mac.replace_tool("/bin/launchctl", _STARTS)
        rig.mac.place(RUNTIME).mkdir(parents=True, exist_ok=True)
        for number in range(surroundings.times(6, 30)):
            # At every phase of the polling.
            await asyncio.sleep(0.37 * number % 2)
            written, seen, started = await asyncio.wait_for(_ask(rig), 30)
            polled.append(started - written)
            own.append(started - seen)
    return polled, own


async def _ask(rig: Rig) -> tuple[float, float, float]:
    """When the request was written, was seen, and the script was started."""
    request, note = rig.mac.place(REQUEST), rig.mac.sample / "started"
    note.unlink(missing_ok=True)
    new = request.with_suffix(".new")
    new.write_text(json.dumps({"id": "1", "requestedAt": "2026-01-01T00:00:00Z",
                               "currentVersion": OLD}))
    written = time.time()
    new.rename(request)
    while request.exists():
        await asyncio.sleep(0.001)
    seen = time.time()
    while not (note.exists() and (text := note.read_text()).endswith("\n")):
        await asyncio.sleep(0.001)
    return written, seen, float(text)


def _checks_and_backup(surroundings: Surroundings) -> tuple[list[float], list[float]]:
    """Seconds of the script's own functions, and of the tools that they call."""
    trust = surroundings.folder / "no-certificates"
    trust.write_text("")
    content = os.urandom(PACKAGE_MIB << 20)
    with UpdateMac(surroundings.folder / "mac", str(trust)) as mac:
        mac.install_files(OLD, ballast=os.urandom(APPLICATION_MIB << 20))
        mac.write_script(url="https://localhost/new.pkg", content=content,
                         sha256=hashlib.sha256(content).hexdigest())
        mac.place(PACKAGE).write_bytes(content)
        script = mac.place(SCRIPT)
        whole = script.read_text()
        assert whole.endswith("\nmain\n")
        script.write_text(whole.removesuffix("main\n")
                          + "verify_package\nbackup_current_installation\n")
        bare = mac.place(f"{UPDATES}/bare.sh")
        bare.write_text(_tools())
        # One after the other each time, so that both meet the same machine.
        pairs = [(_seconds(mac, script), _seconds(mac, bare))
                 for _ in range(surroundings.times(5, 15))]
    return [pair[0] for pair in pairs], [pair[1] for pair in pairs]


def _tools() -> str:
    folder = f"{BACKUPS}/bare"
    return (f'rm -rf "{BACKUPS}"; mkdir -p "{folder}"\n'
            f'/usr/bin/shasum -a 256 "{PACKAGE}"\n'
            f'/usr/bin/tar -cpf "{folder}/app.tar" -C /Applications "{pathlib.PurePath(APP).name}"\n'
            f'/bin/cp -p "{DAEMON}" "{folder}/"\n')


def _seconds(mac: SampleMac, script: pathlib.Path) -> float:
    begin = time.perf_counter()
    done = mac.enter("/bin/bash", f"{UPDATES}/{script.name}")
    took = time.perf_counter() - begin
    assert done.returncode == 0, done.stderr
    return took


TOPIC = Topic("a self-update: from the request to the script, its checks and its backup", measure)
