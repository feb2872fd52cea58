"""Lets a request wait for something to happen instead of asking again and again."""

from __future__ import annotations

import asyncio


class Changes:
    """Counts everything that happens in the helpdesk and wakes those who wait for more.

    Runs on the event loop's thread only.
    """

    def __init__(self) -> None:
        self.number = 0
        self._waiting: set[asyncio.Future[None]] = set()

    def announce(self) -> None:
        self.number += 1
        for future in self._waiting:
            if not future.done():
                future.set_result(None)
        self._waiting.clear()

    async def wait_beyond(self, number: int, timeout: float) -> None:
        """Returns once more than `number` changes have happened, or after `timeout` seconds."""
        if self.number > number:
            return
        future = asyncio.get_running_loop().create_future()
        self._waiting.add(future)
        try:
            await asyncio.wait_for(future, timeout)
        except asyncio.TimeoutError:
            pass
        finally:
            self._waiting.discard(future)
