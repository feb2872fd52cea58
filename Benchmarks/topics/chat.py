"""Chat files: how soon one is at the helpdesk, and how fast many are."""

from __future__ import annotations

import asyncio
import json
import os
import pathlib
import random
import statistics
import time

from orvbench import process_facts
from orvbench.bare import seconds_of
from orvbench.figures import Figure, Surroundings, Topic, spread
from orvbench.rig import Rig, connected_agent, settle

FOLDER = "/Users/Shared/Wsparo Brenvox/remote-chat"
POLL_SECONDS = 1
ADDED_MILLISECONDS = 30.0
WAITING = 1000
SHARE_OF_CURLS_RATE = 0.5
SENT_AT = "2026-03-01T09:15:02Z"


def write(folder: pathlib.Path, number: int) -> str:
    identifier = f"reply-{number:06}"
    message = {"id": identifier, "publicId": "bench", "direction": "outgoing", "sender": "Anna",
               "text": f"Odpowiedź numer {number}", "createdAt": SENT_AT}
    name = f"bench.{number:013}.{identifier}.outgoing.json"
    hidden = folder / f".{name}.tmp"
    hidden.write_text(json.dumps(message))
    os.rename(hidden, folder / name)
    return identifier


async def arrival(rig: Rig, identifier: str) -> float:
    while identifier not in rig.desk.chat_arrivals:
        await asyncio.sleep(0.0005)
    return rig.desk.chat_arrivals[identifier]


async def slowest_of_single_files(rig: Rig, folder: pathlib.Path, count: int) -> list[float]:
    took: list[float] = []
    for number in range(count):
        # Anywhere within the agent's period.
        await asyncio.sleep(random.random() * POLL_SECONDS)
        begin = time.perf_counter()
        took.append(await arrival(rig, write(folder, number)) - begin)
    return took


async def seconds_of_many(rig: Rig, folder: pathlib.Path, first: int) -> float:
    """From the first arrival to the last; they are all there before the agent sees one."""
    aside = folder.with_name("aside")
    aside.mkdir()
    identifiers = [write(aside, first + number) for number in range(WAITING)]
    aside.chmod(0o777)
    folder.rmdir()
    rig.desk.chat_connections.clear()
    os.rename(aside, folder)
    last = await asyncio.wait_for(arrival(rig, identifiers[-1]), 120)
    return last - rig.desk.chat_arrivals[identifiers[0]]


def curl_posts(rig: Rig, folder: pathlib.Path) -> list[str]:
    """The same bodies to the same server, over one connection."""
    steps: list[str] = []
    for number in range(WAITING):
        body = json.dumps({"client_message_id": f"curl-{number}", "public_id": "bench",
                           "sender": "Anna", "sent_at": SENT_AT,
                           "text": f"Odpowiedź numer {number}"}, ensure_ascii=False)
        quoted = body.replace("\\", "\\\\").replace('"', '\\"')
        steps.append(f'url = "{rig.desk.url}/api/agent/devices/mac-bench/chat-messages"\n'
                     f'cacert = "{rig.desk.ca_file}"\nheader = "Content-Type: application/json"\n'
                     f'data-binary = "{quoted}"\noutput = "/dev/null"\n')
    script = folder / "posts.curl"
    script.write_text("next\n".join(steps))
    return ["/usr/bin/curl", "-sf", "--config", str(script)]


async def measure(surroundings: Surroundings) -> list[Figure]:
    async with connected_agent(surroundings.folder, chatPollIntervalSeconds=POLL_SECONDS) as rig:
        folder = rig.mac.place(FOLDER)
        folder.mkdir(parents=True, exist_ok=True)
        folder.chmod(0o777)
        posts = curl_posts(rig, surroundings.folder)
        single = await slowest_of_single_files(rig, folder, surroundings.times(20, 100))
        await settle(2)
        before = process_facts.resident(rig.pid)
        agent, curl = [], []
        for turn in range(surroundings.times(3, 9)):
            agent.append(await seconds_of_many(rig, folder, 10_000 + turn * WAITING))
            await settle(2)
            curl.append(await asyncio.to_thread(seconds_of, posts))
        connections = len(rig.desk.chat_connections)
        growth = process_facts.resident(rig.pid) - before
    rate = statistics.median(curl) / statistics.median(agent)
    return [
        Figure("one file, longer than the poll's period", (max(single) - POLL_SECONDS) * 1000,
               ADDED_MILLISECONDS, "ms", why=f"slowest of {len(single)}; {spread(single)}"),
        Figure("1,000 files, in curl's rate", rate, SHARE_OF_CURLS_RATE, at_least=True,
               why=f"agent {spread(agent)}, curl {spread(curl)}; {connections} connections of the "
                   f"last 1,000; memory grew by {growth:.1f} MiB")]


TOPIC = Topic("chat files of the person at the Mac, against curl posting the same bodies", measure)
