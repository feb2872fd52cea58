"""A thousand commands in one fetch: as quick each as a hundred, and no memory for them."""

from __future__ import annotations

import asyncio
import statistics

from orvbench import process_facts
from orvbench.desk import Command
from orvbench.figures import Figure, Surroundings, Topic, spread
from orvbench.rig import Rig, connected_agent, settle

MANY = 1000
FEW = 100
TIMES_AS_LONG_EACH = 1.25
MIB_GAINED = 2.0
ORDER = {"command": ":", "shell": "sh"}


async def run_batch(rig: Rig, count: int) -> list[Command]:
    commands = [rig.desk.queue("shell", ORDER) for _ in range(count)]
    await rig.desk.wake("shell")
    await asyncio.wait_for(asyncio.gather(*[c.finished for c in commands]), 300)
    assert all(c.final_reports == 1 and c.status == "completed" for c in commands)
    return commands


def seconds_each(batch: list[Command]) -> float:
    return (max(c.ended_at for c in batch) - batch[0].begun_at) / len(batch)


async def measure(surroundings: Surroundings) -> list[Figure]:
    few: list[float] = []
    many: list[float] = []
    async with connected_agent(surroundings.folder, chatPollIntervalSeconds=5) as rig:
        few.append(seconds_each(await run_batch(rig, FEW)))
        await settle()
        before = process_facts.resident(rig.pid)
        for _ in range(surroundings.times(3, 9)):
            many.append(seconds_each(await run_batch(rig, MANY)))
            few.append(seconds_each(await run_batch(rig, FEW)))
        await settle()
        gained = process_facts.resident(rig.pid) - before
    return [
        Figure("time for each of 1,000, against each of 100",
               statistics.median(many) / statistics.median(few), TIMES_AS_LONG_EACH,
               why=f"each of 1,000 {spread(many, 1000, 'ms')}, of 100 {spread(few, 1000, 'ms')}"),
        Figure("resident memory gained", gained, MIB_GAINED, "MiB",
               why=f"over {len(many)} times 1,000 commands, from {before:.1f} MiB after the first 100")]


TOPIC = Topic("1,000 queued commands in one fetch", measure)
