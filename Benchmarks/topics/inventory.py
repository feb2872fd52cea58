"""A whole inventory of a Mac whose tools are slow, against the same tools eight at once."""

from __future__ import annotations

import asyncio
import os
import shutil
import statistics
import time

from samplemac import SampleMac, ToolCall

from orvbench import process_facts
from orvbench.bare import seconds_of_all
from orvbench.figures import Figure, Surroundings, Topic, quantile, spread
from orvbench.rig import Responsiveness, Rig, connected_agent, responsiveness_during

TOOLS_AT_ONCE = 8
APPLICATIONS = 300
WITHOUT_PUBLISHER = 200
DELAYS = {"system_profiler": 3.0, "softwareupdate": 5.0, "codesign": 0.1, "mdls": 0.1}
OTHER_DELAY = 0.02
TIMES_IDEAL = 1.2
MIB_OVER_IDLE = 30
LATER_MILLISECONDS = 20.0
HEARTBEAT_SECONDS = 60  # the shortest interval that settings can ask for


def fill_applications(mac: SampleMac) -> None:
    for folder in ("/Applications", "/System/Applications"):
        shutil.rmtree(mac.place(folder))
        mac.place(folder).mkdir()
    for number in range(APPLICATIONS):
        told = {} if number < WITHOUT_PUBLISHER else {"copyright": f"© 2024 Firma {number} Sp. z o.o."}
        mac.add_application(f"Program {number:03}", identifier=f"pl.firma{number}.program",
                            version="1.0", binary=number % 2 == 0, **told)


def tool_paths(mac: SampleMac) -> dict[str, str]:
    """The sample Mac's own tools, by name."""
    folders = ("usr/bin", "usr/sbin", "usr/libexec", "bin", "sbin")
    return {name: os.path.join(folder, name) for top in folders
            for folder, _, names in os.walk(mac.root / top) for name in names
            if not os.path.islink(os.path.join(folder, name))}


def delay_tools(mac: SampleMac) -> None:
    for name, path in tool_paths(mac).items():
        mac.delay_tool(path.removeprefix(str(mac.root)), DELAYS.get(name, OTHER_DELAY))


def longest_first(mac: SampleMac, calls: list[ToolCall]) -> list[list[str]]:
    paths = tool_paths(mac)
    ordered = sorted(calls, key=lambda call: -DELAYS.get(call.tool, OTHER_DELAY))
    return [[paths[call.tool], *call.arguments] for call in ordered]


async def run_inventory(rig: Rig) -> tuple[float, Responsiveness]:
    """By an order that leaves the control connection free; until the inventory has arrived."""
    while not rig.desk.registered.empty():
        rig.desk.registered.get_nowait()
    order = rig.desk.queue("force_audit", {}, for_notifications=True)
    while order.begun_at == 0.0:
        await asyncio.sleep(0.005)
    arrival = asyncio.ensure_future(rig.desk.registered.get())
    beside = await responsiveness_during(rig, arrival)
    await order.finished
    assert order.result == {"audit_sent": True}, order.report
    return arrival.result() - order.begun_at, beside


async def run_bare(rig: Rig, programs: list[list[str]]) -> tuple[float, Responsiveness]:
    work = asyncio.ensure_future(asyncio.to_thread(seconds_of_all, programs, TOOLS_AT_ONCE))
    beside = await responsiveness_during(rig, work)
    return work.result(), beside


def later(name: str, beside: list[float], bare: list[float]) -> Figure:
    value = (quantile(beside, 0.95) - quantile(bare, 0.95)) * 1000
    why = (f"slowest twentieth from {quantile(beside, 0.95) * 1000:.1f} ms, median "
           f"{statistics.median(beside) * 1000:.1f} ms, worst {max(beside) * 1000:.1f} ms of "
           f"{len(beside)}; beside the bare tools {quantile(bare, 0.95) * 1000:.1f}, "
           f"{statistics.median(bare) * 1000:.1f}, {max(bare) * 1000:.1f} ms")
    return Figure(name, value, LATER_MILLISECONDS, "ms", why=why)


async def measure(surroundings: Surroundings) -> list[Figure]:
    agent: list[float] = []
    bare: list[float] = []
    peaks: list[float] = []
    beside, beside_bare = Responsiveness(), Responsiveness()
    async with connected_agent(surroundings.folder, chatPollIntervalSeconds=1,
                               heartbeatIntervalSeconds=HEARTBEAT_SECONDS) as rig:
        fill_applications(rig.mac)
        delay_tools(rig.mac)
        idle = process_facts.resident(rig.pid)
        rounds = surroundings.times(3, 6)
        for number in range(rounds):
            if number == rounds - 1:
                # So that a heartbeat of the control connection falls into the last inventory.
                due = (time.perf_counter() - rig.desk.hello_at) % HEARTBEAT_SECONDS
                await asyncio.sleep((HEARTBEAT_SECONDS - due - 4) % HEARTBEAT_SECONDS)
            process_facts.forget_peak(rig.pid)
            rig.mac.forget_calls()
            heartbeats = len(rig.desk.heartbeat_arrivals)
            took, found = await run_inventory(rig)
            heartbeats = rig.desk.heartbeat_arrivals[heartbeats:]
            peaks.append(process_facts.peak_resident(rig.pid) - idle)
            agent.append(took)
            beside.round_trips += found.round_trips
            beside.echoes += found.echoes
            programs = longest_first(rig.mac, rig.mac.tool_calls())
            took, found = await run_bare(rig, programs)
            bare.append(took)
            beside_bare.round_trips += found.round_trips
            beside_bare.echoes += found.echoes
        assert heartbeats, "no heartbeat came during the last inventory"
        drift = (heartbeats[0] - rig.desk.hello_at) % HEARTBEAT_SECONDS
    return [
        Figure("time, against the ideal", statistics.median(agent) / statistics.median(bare),
               TIMES_IDEAL, why=f"agent {spread(agent)}, the same {len(programs)} tools eight at "
               f"once and longest first {spread(bare)}"),
        Figure("peak memory above idle", max(peaks), MIB_OVER_IDLE, "MiB",
               why=f"idle {idle:.1f} MiB"),
        Figure("the control heartbeat is late by", drift * 1000, LATER_MILLISECONDS, "ms",
               why=f"{HEARTBEAT_SECONDS:.0f} s after the greeting or the heartbeat before it"),
        later("an answer on the control connection is later by", beside.round_trips,
              beside_bare.round_trips),
        later("a shell command meanwhile is later by", beside.echoes, beside_bare.echoes)]


TOPIC = Topic("an inventory with slow tools and 300 applications", measure)
