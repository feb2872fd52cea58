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
FALLS_SILENT = "pause_reading"
REQUEST_FAULTS = (("status", {"status": 503}), ("status", {"status": 404}), ("delay", {"seconds": 1}),
                  ("drop", {}), ("reset", {}), ("truncate", {}), ("garbage", {}))
SOCKET_FAULTS = (("drop", {}), ("reset", {}), ("close", {"code": 1000}), ("close", {"code": 1012}),
                 ("send_text", {"text": "{"}), ("send_raw", {"base64": "/////w=="}),
                 (FALLS_SILENT, {}))


class Troublemaker:
    """Causes a fault at a time. A connection that fell silent is left alone: the agent has to notice
    it by itself."""

    def __init__(self, admin: HelpdeskClient, uid: str) -> None:
        self.admin = admin
        self.uid = uid
        self.silent: set[int] = set()
        self._chance = random.Random(20)

    def cause_a_fault(self) -> None:
        sockets = self._open_sockets()
        talking = [identifier for identifier in sockets if identifier not in self.silent]
        if talking and self._chance.random() < 0.4:
            action, details = self._chance.choice(SOCKET_FAULTS)
            self.admin.socket_action(talking[-1], action, **details)
            if action == FALLS_SILENT:
                self.silent.add(talking[-1])
            return
        kind, details = self._chance.choice(REQUEST_FAULTS)
        self.admin.fail("*", kind, count=self._chance.randint(1, 3), **details)
        self.admin.queue_command(self.uid, "shell", {"command": "echo still there"})

    def stop(self) -> None:
        self.admin.clear_faults()
        for identifier in self.silent.intersection(self._open_sockets()):
            self.admin.socket_action(identifier, "drop")

    def _open_sockets(self) -> list[int]:
        return [s["id"] for s in self.admin.sockets("control", self.uid) if s["open"]]


def quiet_state(admin: HelpdeskClient, agent: AgentProcess, uid: str) -> tuple[int, int, float]:
    """Descriptors, threads and memory once nothing is under way."""
    admin.wait_until_connected(uid, timeout=120)
    admin.run_command(uid, "shell", {"command": "echo hi"}, timeout=60)
    time.sleep(8)  # connections that servers left half-open are noticed by then
    return (process_facts.open_descriptors(agent.pid), process_facts.threads(agent.pid),
            process_facts.resident(agent.pid))


def soak(desk: HelpdeskProcess, agent: AgentProcess) -> tuple[tuple, tuple, str]:
    """The quiet state before and after, and what happened in between."""
    with desk.client() as admin:
        uid = admin.wait_until_connected(timeout=60)["uid"]
        trouble = Troublemaker(admin, uid)

        def faults_for(seconds: float) -> int:
            end, count = time.monotonic() + seconds, 0
            while time.monotonic() < end:
                trouble.cause_a_fault()
                count += 1
                time.sleep(FAULT_EVERY_SECONDS)
            trouble.stop()
            return count

        faults_for(WARM_UP_SECONDS)
        before = quiet_state(admin, agent, uid)
        trouble.silent.clear()
        happened = f"{faults_for(SECONDS)} faults in {SECONDS} s, {len(trouble.silent)} of them silence"
        return before, quiet_state(admin, agent, uid), happened


async def measure(surroundings: Surroundings) -> list[Figure]:
    folder = surroundings.folder
    with HelpdeskProcess(folder / "data", events=folder / "events.log") as desk, \
            SampleMac(folder / "mac") as mac:
        mac.write_settings(serverBaseUrl=desk.url, viewerToken=desk.viewer_token,
                           chatPollIntervalSeconds=1, controlReconnectMaxSeconds=5)
        agent = AgentProcess(mac, desk.ca_file)
        try:
            before, after, happened = await asyncio.to_thread(soak, desk, agent)
        finally:
            agent.kill()
    return [Figure("descriptors gained", after[0] - before[0], 0,
                   why=f"{happened}; connected at the end"),
            Figure("threads gained", after[1] - before[1], 0),
            Figure("resident memory gained", after[2] - before[2], MIB_GAINED, "MiB",
                   why=f"from {before[2]:.1f} MiB after {WARM_UP_SECONDS} s of the same")]


TOPIC = Topic("10 minutes with a fault every few seconds", measure, only_long=True)
