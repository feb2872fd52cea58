"""The bare tools that the agent is measured against, started with as little as possible around."""

from __future__ import annotations

import os
import queue
import threading
import time
from typing import Mapping, Optional, Sequence


def seconds_until_output_ends(arguments: Sequence[str],
                              environment: Optional[Mapping[str, str]] = None) -> float:
    """Runs a program by its absolute path, reads its standard output to the end, and reaps it."""
    reading, writing = os.pipe()
    actions = [(os.POSIX_SPAWN_OPEN, 0, os.devnull, os.O_RDONLY, 0),
               (os.POSIX_SPAWN_DUP2, writing, 1)]
    begin = time.perf_counter()
    pid = os.posix_spawn(arguments[0], list(arguments), dict(environment or os.environ),
                         file_actions=actions)
    os.close(writing)
    while os.read(reading, 1 << 16):
        pass
    os.waitpid(pid, 0)
    took = time.perf_counter() - begin
    os.close(reading)
    return took


def spawn_quietly(arguments: Sequence[str]) -> int:
    """The pid of a program whose output goes nowhere."""
    actions = [(os.POSIX_SPAWN_OPEN, 0, os.devnull, os.O_RDONLY, 0),
               (os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0),
               (os.POSIX_SPAWN_OPEN, 2, os.devnull, os.O_WRONLY, 0)]
    return os.posix_spawn(arguments[0], list(arguments), os.environ, file_actions=actions)


def seconds_of(arguments: Sequence[str]) -> float:
    begin = time.perf_counter()
    _, status = os.waitpid(spawn_quietly(arguments), 0)
    if status != 0:
        raise RuntimeError(f"{arguments} ended with {status}")
    return time.perf_counter() - begin


def seconds_of_all(programs: Sequence[Sequence[str]], at_once: int) -> float:
    """Runs the programs in their order, so many side by side."""
    waiting: queue.SimpleQueue = queue.SimpleQueue()
    for program in programs:
        waiting.put(program)

    def work() -> None:
        while True:
            try:
                program = waiting.get_nowait()
            except queue.Empty:
                return
            os.waitpid(spawn_quietly(program), 0)

    begin = time.perf_counter()
    workers = [threading.Thread(target=work) for _ in range(at_once)]
    for worker in workers:
        worker.start()
    for worker in workers:
        worker.join()
    return time.perf_counter() - begin


def processor_seconds_of_all_at_once(programs: Sequence[Sequence[str]]) -> float:
    """Starts the programs one after the other without waiting; the processor time of all."""
    pids = [spawn_quietly(program) for program in programs]
    usages = [os.wait4(pid, 0)[2] for pid in pids]
    return sum(usage.ru_utime + usage.ru_stime for usage in usages)
