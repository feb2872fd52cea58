"""Ten minutes of a bad network: whatever breaks every few seconds, nothing gathers in the agent."""

from __future__ import annotations

import asyncio
import random
import time

from agent_process import AgentProcess
from helpdesk.client import HelpdeskClient
from helpdesk.process import HelpdeskProcess
from samplemac import SampleMac

from orvbench import process_facts
from orvbench.figures import Figure, Surroundings, Topic

SECONDS = 600
WARM_UP_SECONDS = 60
FAULT_EVERY_SECONDS = 3
MIB_GAINED = 2.0
REQUEST_FAULTS = (("status", {"status": 503}), ("status", {"status": 404}), ("delay", {"seconds": 1}),
                  ("drop", {}), ("reset", {}), ("truncate", {}), ("garbage", {}))
SOCKET_FAULTS = (("drop", {}), ("reset", {}), ("close", {"code": 1000}), ("close", {"code": 1012}),
                 ("send_text", {"text": "{"}), ("send_raw", {"base64": "/////w=="}))


def cause_a_fault(admin: HelpdeskClient, chance: random.Random, uid: str) -> str:
    open_sockets = [s for s in admin.sockets("control", uid) if s["open"]]
    if open_sockets and chance.random() < 0.4:
        action, details = chance.choice(SOCKET_FAULTS)
        admin.socket_action(open_sockets[-1]["id"], action, **details)
        return f"socket {action}"
    kind, details = chance.choice(REQUEST_FAULTS)
    admin.fail("*", kind, count=chance.randint(1, 3), **details)
    admin.queue_command(uid, "shell", {"command": "echo still there"})
    return f"request {kind}"


def quiet_state(admin: HelpdeskClient, agent: AgentProcess, uid: str) -> tuple[int, int, float]:
    """Descriptors, threads and memory once nothing is under way."""
    admin.clear_faults()
    admin.wait_until_connected(uid, timeout=120)
    admin.run_command(uid, "shell", {"command": "echo hi"}, timeout=60)
    time.sleep(8)  # connections that servers left half-open are noticed by then
    return (process_facts.open_descriptors(agent.pid), process_facts.threads(agent.pid),
            process_facts.resident(agent.pid))


def soak(desk: HelpdeskProcess, agent: AgentProcess) -> tuple[list, list, int]:
    chance = random.Random(20)
    with desk.client() as admin:
        uid = admin.wait_until_connected(timeout=60)["uid"]

        def faults_for(seconds: float) -> int:
            end, count = time.monotonic() + seconds, 0
            while time.monotonic() < end:
                cause_a_fault(admin, chance, uid)
                count += 1
                time.sleep(FAULT_EVERY_SECONDS)
            return count

        faults_for(WARM_UP_SECONDS)
        before = quiet_state(admin, agent, uid)
        count = faults_for(SECONDS)
        return list(before), list(quiet_state(admin, agent, uid)), count


async def measure(surroundings: Surroundings) -> list[Figure]:
    folder = surroundings.folder
    with HelpdeskProcess(folder / "data", events=folder / "events.log") as desk, \
            SampleMac(folder / "mac") as mac:
        mac.write_settings(serverBaseUrl=desk.url, viewerToken=desk.viewer_token,
                           chatPollIntervalSeconds=1, controlReconnectMaxSeconds=5)
        agent = AgentProcess(mac, desk.ca_file)
        try:
            before, after, count = await asyncio.to_thread(soak, desk, agent)
        finally:
            agent.kill()
    why = f"{count} faults in {SECONDS} s; connected at the end"
    return [Figure("descriptors gained", after[0] - before[0], 0, why=why),
            Figure("threads gained", after[1] - before[1], 0),
            Figure("resident memory gained", after[2] - before[2], MIB_GAINED, "MiB",
                   why=f"from {before[2]:.1f} MiB after {WARM_UP_SECONDS} s of the same")]


TOPIC = Topic("10 minutes with a fault every few seconds", measure, only_long=True)
