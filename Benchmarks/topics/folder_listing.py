"""Listing an enormous folder, against ls."""

from __future__ import annotations

import asyncio
import statistics

from orvbench import process_facts
from orvbench.bare import seconds_of
from orvbench.figures import Figure, Surroundings, Topic, spread
from orvbench.rig import connected_agent, settle

ENTRIES = 200_000
MAX_ITEMS = 2000
TIMES_LS = 3.0
FOLDER = "/Users/Shared/crowd"


async def measure(surroundings: Surroundings) -> list[Figure]:
    agent: list[float] = []
    ls: list[float] = []
    peaks: list[float] = []
    async with connected_agent(surroundings.folder, chatPollIntervalSeconds=5) as rig:
        crowd = rig.mac.place(FOLDER)
        crowd.mkdir()
        # In an order that is not the names', as folders grow.
        await asyncio.to_thread(lambda: [(crowd / f"entry {i * 7919 % ENTRIES:06}").touch()
                                         for i in range(ENTRIES)])
        list_it = ["/bin/sh", "-c", f"ls -lU '{crowd}' | sort > /dev/null"]
        await settle()
        idle = process_facts.resident(rig.pid)
        for _ in range(surroundings.times(5, 15)):
            process_facts.forget_peak(rig.pid)
            done = await rig.desk.run("file_list", {"path": FOLDER, "max_items": MAX_ITEMS})
            assert len(done.result["items"]) == MAX_ITEMS, done.report[:200]
            agent.append(done.seconds)
            peaks.append(process_facts.peak_resident(rig.pid) - idle)
            ls.append(await asyncio.to_thread(seconds_of, list_it))
    return [Figure("time, against `ls -lU | sort`", statistics.median(agent) / statistics.median(ls),
                   TIMES_LS, why=f"agent {spread(agent, 1000, 'ms')}, ls {spread(ls, 1000, 'ms')}; "
                   f"peak memory {max(peaks):.1f} MiB above idle")]


TOPIC = Topic("file_list of a folder with 200,000 entries against ls", measure)
