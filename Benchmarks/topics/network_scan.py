"""Scanning a network of 254 addresses with five hosts, against nmap, fping and bare pings."""

from __future__ import annotations

import asyncio
import pathlib
import statistics

from orvbench import process_facts
from orvbench.bare import processor_seconds_of_all_at_once, seconds_of
from orvbench.figures import Figure, Surroundings, Topic, spread
from own_network import NETWORK, HOSTS, PREFIX, neighbours
from orvbench.rig import Responsiveness, connected_agent, responsiveness_during

from .inventory import later

TIMES_NMAP = 0.45
TIMES_FPING = 0.25
TIMES_PINGS = 1.5
NMAP = ["/usr/bin/nmap", "-sn", "-n", NETWORK]
# It ends with 1 when some hosts are silent.
FPING = ["/bin/sh", "-c", f"fping -a -g -c1 -t350 {NETWORK}; :"]


def bare_pings(program: pathlib.Path) -> list[list[str]]:
    """What the agent asks the Mac's ping, so that both sides pay alike for what stands in for it."""
    return [[str(program), "-c", "1", "-W", "350", f"{PREFIX}.{last}"] for last in range(1, 255)]


async def measure(surroundings: Surroundings) -> list[Figure]:
    with neighbours():
        return await measure_in_network(surroundings)


async def measure_in_network(surroundings: Surroundings) -> list[Figure]:
    scans: list[float] = []
    nmap: list[float] = []
    fping: list[float] = []
    processor: list[float] = []
    bare_processor: list[float] = []
    mac_ping = surroundings.build / "bench-mac-ping"
    pings = bare_pings(mac_ping)
    beside, beside_pings = Responsiveness(), Responsiveness()
    async with connected_agent(surroundings.folder, chatPollIntervalSeconds=1) as rig:
        # Where a Mac's ping is told milliseconds, this one wants seconds.
        ping = rig.mac.place("/sbin/ping")
        ping.unlink()
        ping.symlink_to(mac_ping)
        for _ in range(surroundings.times(5, 15)):
            used = process_facts.processor_time_with_children(rig.pid)
            scan = await rig.desk.run_when_fetched("ip_scan", {})
            processor.append(process_facts.processor_time_with_children(rig.pid) - used)
            scans.append(scan.seconds)
            assert scan.result["host_count"] == len(HOSTS) + 1, scan.report
            nmap.append(await asyncio.to_thread(seconds_of, NMAP))
            fping.append(await asyncio.to_thread(seconds_of, FPING))
            bare_processor.append(await asyncio.to_thread(processor_seconds_of_all_at_once, pings))
        for _ in range(surroundings.times(3, 9)):
            order = rig.desk.queue("ip_scan", {}, for_notifications=True)
            while order.begun_at == 0.0:
                await asyncio.sleep(0.002)
            found = await responsiveness_during(rig, order.finished)
            beside.round_trips += found.round_trips
            beside.echoes += found.echoes
            work = asyncio.ensure_future(
                asyncio.to_thread(processor_seconds_of_all_at_once, pings))
            found = await responsiveness_during(rig, work)
            beside_pings.round_trips += found.round_trips
            beside_pings.echoes += found.echoes
    middle = statistics.median(scans)
    return [
        Figure("time, against nmap", middle / statistics.median(nmap), TIMES_NMAP,
               why=f"agent {spread(scans)}, `nmap -sn -n` {spread(nmap)}"),
        Figure("time, against fping", middle / statistics.median(fping), TIMES_FPING,
               why=f"`fping -a -g -c1 -t350` {spread(fping)}"),
        Figure("processor time, against bare pings",
               statistics.median(processor) / statistics.median(bare_processor), TIMES_PINGS,
               why=f"agent and its processes {spread(processor, 1000, 'ms')}, 254 pings "
               f"{spread(bare_processor, 1000, 'ms')}"),
        later("an answer on the control connection is later by", beside.round_trips,
              beside_pings.round_trips),
        later("a shell command meanwhile is later by", beside.echoes, beside_pings.echoes)]


TOPIC = Topic("scan of a /24 with 5 hosts against nmap and fping", measure, in_own_network=True)
