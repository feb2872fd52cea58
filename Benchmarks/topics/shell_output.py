"""A command that prints a gigabyte, against the same through a pipe into nothing."""

from __future__ import annotations

import asyncio
import os
import statistics
import time

from orvbench import process_facts
from orvbench.bare import seconds_of
from orvbench.figures import Figure, Surroundings, Topic, spread
from orvbench.rig import connected_agent, settle

BYTES = 1_000_000_000
COMMAND = f"yes 'a line of some length, as programs print them' | head -c {BYTES}"
SHARE_OF_BARE_THROUGHPUT = 0.8
MIB_OVER_IDLE = 24


async def measure(surroundings: Surroundings) -> list[Figure]:
    agent: list[float] = []
    bare: list[float] = []
    growth: list[float] = []
    async with connected_agent(surroundings.folder, chatPollIntervalSeconds=5) as rig:
        zsh = os.path.realpath(rig.mac.place("/bin/zsh"))
        os.environ["ORV_BENCH_COMMAND"] = COMMAND
        pipe = ["/bin/sh", "-c", f'{zsh} -lc "$ORV_BENCH_COMMAND" | cat > /dev/null']
        await rig.echo()
        await settle()
        idle = process_facts.resident(rig.pid)
        for _ in range(surroundings.times(5, 15)):
            process_facts.forget_peak(rig.pid)
            begin = time.perf_counter()
            await rig.echo(COMMAND)
            agent.append(time.perf_counter() - begin)
            growth.append(process_facts.peak_resident(rig.pid) - idle)
            bare.append(await asyncio.to_thread(seconds_of, pipe))
    return [
        Figure("throughput, as a share of the pipe's",
               statistics.median(bare) / statistics.median(agent), SHARE_OF_BARE_THROUGHPUT,
               at_least=True,
               why=f"1 GB: agent {spread(agent)}, `zsh -lc CMD | cat > /dev/null` {spread(bare)}"),
        Figure("resident memory above idle", max(growth), MIB_OVER_IDLE, "MiB",
               why=f"idle {idle:.1f} MiB")]


TOPIC = Topic("a command that prints 1 GB against a bare pipe", measure)
