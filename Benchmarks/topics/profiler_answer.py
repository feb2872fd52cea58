"""Taking apart a system profiler's answer of five megabytes."""

from __future__ import annotations

import json
import subprocess

from orvbench.figures import Figure, Surroundings, Topic, spread

MILLISECONDS = 60.0
# With one hub each there are far more buses than the inventory takes; one bus it takes whole.
SHAPES = {"many buses": 1, "one bus": 1250}


async def measure(surroundings: Surroundings) -> list[Figure]:
    return [from_text_to_records(surroundings, name, hubs) for name, hubs in SHAPES.items()]


def from_text_to_records(surroundings: Surroundings, name: str, hubs_of_a_bus: int) -> Figure:
    program = surroundings.build / "bench-profiler-answer"
    repetitions = surroundings.times(25, 100)
    printed = subprocess.run([program, str(repetitions), str(hubs_of_a_bus)], check=True,
                             capture_output=True, text=True).stdout
    found = json.loads(printed)
    times = sorted(found["seconds"])
    return Figure(f"from the text to the records, {name}", times[len(times) // 2] * 1000,
                  MILLISECONDS, "ms",
                  why=f"{found['bytes'] / 1e6:.1f} MB with {found['devices']} devices, "
                      f"{found['records']} records: {spread(times, 1000, 'ms')}")


TOPIC = Topic("a 5 MB answer of the system profiler", measure)
