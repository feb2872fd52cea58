"""Taking apart a system profiler's answer of five megabytes."""

from __future__ import annotations

import json
import subprocess

from orvbench.figures import Figure, Surroundings, Topic, spread

MILLISECONDS = 60.0


async def measure(surroundings: Surroundings) -> list[Figure]:
    program = surroundings.build / "bench-profiler-answer"
    printed = subprocess.run([program, str(surroundings.times(25, 100))], check=True,
                             capture_output=True, text=True).stdout
    found = json.loads(printed)
    times = sorted(found["seconds"])
    return [Figure("from the text to the records", times[len(times) // 2] * 1000, MILLISECONDS, "ms",
                   why=f"{found['bytes'] / 1e6:.1f} MB with {found['devices']} devices, "
                       f"{found['records']} records: {spread(times, 1000, 'ms')}")]


TOPIC = Topic("a 5 MB answer of the system profiler", measure)
