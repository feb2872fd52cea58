"""What the agent costs while nothing happens, on default settings."""

from __future__ import annotations

import asyncio
import time

from orvbench import process_facts
from orvbench.figures import Figure, Surroundings, Topic
from orvbench.rig import connected_agent, settle

QUICK_SECONDS = 30
LONG_SECONDS = 300
CHAT_FOLDER = "/Users/Shared/Wsparo Brenvox/remote-chat"
MIB = 10.0
SHARE_OF_A_CORE = 0.05  # percent
# A request's timer, its answer and a helper's word each may end a sleep.
WAKE_UPS_FOR_A_REQUEST = 4.0


async def measure(surroundings: Surroundings) -> list[Figure]:
    async with connected_agent(surroundings.folder) as rig:
        # As the installer leaves it.
        rig.mac.place(CHAT_FOLDER).mkdir(parents=True, exist_ok=True)
        await settle(5)
        duration = surroundings.times(QUICK_SECONDS, LONG_SECONDS)
        begin = time.perf_counter()
        requests, messages = rig.desk.request_count, rig.desk.message_count
        busy, wake_ups = process_facts.processor_time(rig.pid), process_facts.wake_ups(rig.pid)
        await asyncio.sleep(duration)
        busy = process_facts.processor_time(rig.pid) - busy
        wake_ups = process_facts.wake_ups(rig.pid) - wake_ups
        requests = rig.desk.request_count - requests
        messages = rig.desk.message_count - messages
        duration = time.perf_counter() - begin
        memory = process_facts.proportional(rig.pid)
        resident = process_facts.resident(rig.pid)
        threads = process_facts.threads(rig.pid)
    exchanges = requests + messages
    return [
        Figure("proportional memory", memory, MIB, "MiB",
               why=f"resident {resident:.1f} MiB, {threads} threads"),
        Figure("processor time, of one core", 100 * busy / duration, SHARE_OF_A_CORE, "%",
               why=f"{busy * 1000:.1f} ms in {duration:.0f} s, with {requests} requests"),
        Figure("wake-ups for each exchange", wake_ups / exchanges, WAKE_UPS_FOR_A_REQUEST,
               why=f"{wake_ups} wake-ups, {requests} requests, {messages} control messages")]


TOPIC = Topic("connected, on default settings, with nothing to do", measure)
