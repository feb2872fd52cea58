"""How long a trivial command takes from order to result, against the bare shell."""

from __future__ import annotations

import os
import statistics

from orvbench.bare import seconds_until_output_ends
from orvbench.figures import Figure, Surroundings, Topic, quantile, spread
from orvbench.rig import Rig, connected_agent

ADDED_MILLISECONDS = 5.0
COMMAND = "echo hi"


def bare_shell(rig: Rig) -> float:
    return seconds_until_output_ends([os.path.realpath(rig.mac.place("/bin/zsh")), "-lc", COMMAND])


def added(name: str, agent: list[float], bare: list[float]) -> Figure:
    value = (statistics.median(agent) - statistics.median(bare)) * 1000
    why = (f"agent {spread(agent, 1000, 'ms')}, bare shell {spread(bare, 1000, 'ms')}, "
           f"{len(agent)} of each; slowest tenth of the agent's {quantile(agent, 0.9) * 1000:.1f} ms")
    return Figure(name, value, ADDED_MILLISECONDS, "ms", why=why)


async def measure(surroundings: Surroundings) -> list[Figure]:
    woken: list[float] = []
    bare_of_woken: list[float] = []
    fetched: list[float] = []
    bare_of_fetched: list[float] = []
    async with connected_agent(surroundings.folder, chatPollIntervalSeconds=5) as rig:
        for _ in range(5):
            await rig.echo(COMMAND)
            bare_shell(rig)
        for _ in range(surroundings.times(50, 200)):
            woken.append(await rig.echo(COMMAND))
            bare_of_woken.append(bare_shell(rig))
    async with connected_agent(surroundings.folder / "second", chatPollIntervalSeconds=1) as rig:
        for _ in range(surroundings.times(25, 50)):
            done = await rig.desk.run_when_fetched("shell", {"command": COMMAND})
            fetched.append(done.seconds)
            bare_of_fetched.append(bare_shell(rig))
    return [added("from the order over a wake-up to the result", woken, bare_of_woken),
            added("from the answer of a fetch to the result", fetched, bare_of_fetched)]


TOPIC = Topic("a trivial shell command against `zsh -lc`", measure)
