"""Thousands of wake-ups back to back: no command is lost or run twice, and no memory gathers."""

from __future__ import annotations

import asyncio

from orvbench import process_facts
from orvbench.figures import Figure, Surroundings, Topic
from orvbench.rig import Rig, connected_agent, settle

WAKE_UPS = 10_000
BLOCK = 500  # with a command each
MIB_GAINED = 1.0
ORDER = {"command": ":", "shell": "sh"}


async def until_handled(rig: Rig) -> None:
    """The agent reads on only while few messages wait, so that an answer to a ping comes when nearly
    all that was sent before it has been handled; the rest is done within a moment."""
    await rig.desk.control_round_trip(timeout=300)
    await settle(1)


async def measure(surroundings: Surroundings) -> list[Figure]:
    async with connected_agent(surroundings.folder, chatPollIntervalSeconds=5) as rig:
        async def block() -> list:
            # The command is the last thing before the last wake-up of its block.
            await rig.desk.wake("shell", BLOCK - 1)
            command = rig.desk.queue("shell", ORDER)
            await rig.desk.wake("shell")
            return command

        first = [await block() for _ in range(2)]
        await asyncio.wait_for(asyncio.gather(*[c.finished for c in first]), 300)
        await until_handled(rig)
        before = process_facts.resident(rig.pid)
        requests = rig.desk.request_count
        commands = [await block() for _ in range(WAKE_UPS // BLOCK)]
        await asyncio.wait_for(asyncio.gather(*[c.finished for c in commands]), 300)
        await until_handled(rig)
        gained = process_facts.resident(rig.pid) - before
        requests = rig.desk.request_count - requests
    wrong = sum(command.final_reports != 1 for command in commands)
    return [
        Figure("commands lost or run twice", wrong, 0,
               why=f"{len(commands)} commands; the agent made {requests} requests"),
        Figure("resident memory gained", gained, MIB_GAINED, "MiB",
               why=f"over {WAKE_UPS} wake-ups, from {before:.1f} MiB after the first 1,000")]


TOPIC = Topic("10,000 wake-ups back to back", measure)
