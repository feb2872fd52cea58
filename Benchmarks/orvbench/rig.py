"""The agent, connected to a bare helpdesk, on a sample Mac of its own."""

from __future__ import annotations

import asyncio
import contextlib
import dataclasses
import pathlib
import time
from typing import AsyncIterator

from agent_process import AgentProcess
from samplemac import SampleMac

from .desk import BenchDesk

CONNECT_SECONDS = 60.0
PROBE_PAUSE_SECONDS = 0.01


@dataclasses.dataclass
class Rig:
    desk: BenchDesk
    mac: SampleMac
    agent: AgentProcess

    @property
    def pid(self) -> int:
        return self.agent.pid

    async def echo(self, command: str = "echo hi", shell: str = "zsh") -> float:
        """From the order to the result of a shell command over the control connection."""
        done = await self.desk.run("shell", {"command": command, "shell": shell})
        assert done.status == "completed" and done.result["exit_code"] == 0, done.report
        return done.seconds


@contextlib.asynccontextmanager
async def connected_agent(folder: pathlib.Path, **settings: object) -> AsyncIterator[Rig]:
    """Registered, with its control connection open and nothing to do; settings as in its file."""
    desk = BenchDesk(folder / "desk")
    await desk.start()
    with SampleMac(folder / "mac") as mac:
        mac.write_settings(serverBaseUrl=desk.url, viewerToken="bench", **settings)
        trust = {"SSL_CERT_FILE": "/nonexistent", "SSL_CERT_DIR": str(desk.trust_folder())}
        agent = AgentProcess(mac, None, environment=trust)
        try:
            await asyncio.wait_for(desk.connected.wait(), CONNECT_SECONDS)
            yield Rig(desk, mac, agent)
            assert agent.is_running, "the agent ended while it was measured"
        except asyncio.TimeoutError as error:
            raise RuntimeError(f"the agent took too long; its log:\n{mac.read_log()}") from error
        finally:
            agent.kill()
            await desk.stop()


@dataclasses.dataclass
class Responsiveness:
    """What the agent did beside something else; seconds."""
    round_trips: list[float] = dataclasses.field(default_factory=list)
    echoes: list[float] = dataclasses.field(default_factory=list)


async def responsiveness_during(rig: Rig, work: asyncio.Future) -> Responsiveness:
    """Asks the agent for signs of life on the control connection, and now and then for a shell
    command, until `work` is done."""
    found = Responsiveness()

    async def probe() -> None:
        while not work.done():
            found.round_trips.append(await rig.desk.control_round_trip())
            await asyncio.sleep(PROBE_PAUSE_SECONDS)

    async def command() -> None:
        while not work.done():
            found.echoes.append(await rig.echo(":", shell="sh"))
            await asyncio.sleep(5 * PROBE_PAUSE_SECONDS)

    await asyncio.gather(probe(), command())
    await work
    return found


async def settle(seconds: float = 0.3) -> None:
    """Lets what has just ended be tidied up before memory is read."""
    begin = time.perf_counter()
    while time.perf_counter() - begin < seconds:
        await asyncio.sleep(0.05)
