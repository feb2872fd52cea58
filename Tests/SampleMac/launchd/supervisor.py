"""The process behind launchctl: answers requests and keeps the jobs of one sample Mac.

It ends by itself when no job has been loaded for a while, when the sample Mac's folder is gone, or
when the process that owns the sample Mac is; and takes everything it has started with it.
"""

from __future__ import annotations

import asyncio
import ctypes
import os
import pathlib
import shutil
import signal
import sys

from . import conversation
from .commands import Commands
from .service import Service, Surroundings

_IDLE_SECONDS = 2.0
_WATCH_SECONDS = 0.5
_TEARDOWN_SECONDS = 2.0
_PR_SET_CHILD_SUBREAPER = 36


def main(sample: str, ready: int) -> None:
    # What outlives its parent job becomes our child, so that the end can find it.
    if sys.platform == "linux":
        ctypes.CDLL(None).prctl(_PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)
    asyncio.run(Supervisor(pathlib.Path(sample)).run(ready))


class Supervisor:
    def __init__(self, sample: pathlib.Path) -> None:
        self.around = Surroundings(sample)
        self.services: dict[tuple[str, str], Service] = {}
        self.commands = Commands(self.around, self.services)
        self.finished = asyncio.Event()
        self.everything_ended = asyncio.Event()
        self._last_use = 0.0
        self._requests = 0

    async def run(self, ready: int) -> None:
        loop = asyncio.get_running_loop()
        loop.add_signal_handler(signal.SIGCHLD, self._collect)
        for number in (signal.SIGTERM, signal.SIGINT):
            loop.add_signal_handler(number, self.finished.set)
        shutil.rmtree(self.around.folder / "loaded", ignore_errors=True)
        os.chdir(self.around.folder)
        pathlib.Path("socket").unlink(missing_ok=True)
        server = await asyncio.start_unix_server(self._serve, "socket")
        os.chmod("socket", 0o777)
        self._last_use = loop.time()
        os.close(ready)
        watch = asyncio.create_task(self._watch())
        await self.finished.wait()
        watch.cancel()
        pathlib.Path("socket").unlink(missing_ok=True)
        server.close()
        await self._end_everything()
        self.everything_ended.set()
        while self._requests:  # whoever asked for the end is told when it has come
            await asyncio.sleep(0.001)

    async def _serve(self, reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
        self._requests += 1
        try:
            folder, arguments = conversation.read_request(
                await reader.readuntil(conversation.END_OF_REQUEST))
            if arguments[0] == "teardown":
                self.finished.set()
                await self.everything_ended.wait()
                reply = (0, "", "")
            else:
                reply = await self.commands.carry_out(arguments, folder)
            writer.write(conversation.answer(reply))
            await writer.drain()
        finally:
            self._last_use = asyncio.get_running_loop().time()
            self._requests -= 1
            writer.close()

    def _collect(self) -> None:
        """Collects every child that has ended, ours and those we inherited."""
        while True:
            try:
                found = os.waitid(os.P_ALL, 0, os.WEXITED | os.WNOHANG | os.WNOWAIT)
            except ChildProcessError:
                return
            if found is None:
                return
            service = next((service for service in self.services.values()
                            if service.pid == found.si_pid), None)
            if service:
                service.about_to_end()
            _, status = os.waitpid(found.si_pid, 0)
            if service:
                service.process_ended(status)
                if service.leaving:
                    self.commands.remove(service)

    async def _watch(self) -> None:
        loop = asyncio.get_running_loop()
        owner = self.around.folder.parent / "owner"
        while True:
            await asyncio.sleep(_WATCH_SECONDS)
            idle = not self.services and not self._requests \
                and loop.time() - self._last_use > _IDLE_SECONDS
            if idle or not self.around.folder.exists() or _is_gone(owner):
                self.finished.set()

    async def _end_everything(self) -> None:
        """Ends all jobs, then whatever they left behind, however deep and however stubborn."""
        stops = [asyncio.create_task(self._stop(service)) for service in self.services.values()]
        if stops:
            await asyncio.wait(stops, timeout=_TEARDOWN_SECONDS)
        while left := _descendants(os.getpid()):
            for pid in left:
                try:
                    os.kill(pid, signal.SIGKILL)
                except ProcessLookupError:
                    pass
            await asyncio.sleep(0.005)
            self._collect()
        for service in list(self.services.values()):
            self.commands.remove(service)

    async def _stop(self, service: Service) -> None:
        service.leaving = True
        await service.stop()


def _is_gone(owner: pathlib.Path) -> bool:
    try:
        os.kill(int(owner.read_text()), 0)
    except ProcessLookupError:
        return True
    except (OSError, ValueError):
        return False
    return False


def _descendants(ancestor: int) -> list[int]:
    parents = {}
    for entry in os.scandir("/proc") if os.path.isdir("/proc") else ():
        if entry.name.isdigit():
            try:
                stat = pathlib.Path(entry.path, "stat").read_text(errors="replace")
            except OSError:
                continue
            parents[int(entry.name)] = int(stat.rpartition(")")[2].split()[1])
    found, frontier = [], [ancestor]
    while frontier:
        frontier = [pid for pid, parent in parents.items() if parent in frontier]
        found += frontier
    return found
