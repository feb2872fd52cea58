"""Sending a file of 25 MiB to the helpdesk, against curl with the body ready."""

from __future__ import annotations

import asyncio
import base64
import json
import os
import statistics

from orvbench import process_facts
from orvbench.bare import seconds_of
from orvbench.figures import Figure, Surroundings, Topic, spread
from orvbench.rig import connected_agent, settle

MIB = 25
TIMES_THE_FILE = 4.5
TIMES_CURL = 1.5
PATH = "/Users/Shared/big.bin"


async def measure(surroundings: Surroundings) -> list[Figure]:
    agent: list[float] = []
    curl: list[float] = []
    peaks: list[float] = []
    async with connected_agent(surroundings.folder, chatPollIntervalSeconds=5) as rig:
        content = os.urandom(MIB << 20)
        rig.mac.place(PATH).write_bytes(content)
        body = surroundings.folder / "body.json"
        result = {"content_base64": base64.b64encode(content).decode(), "file_name": "big.bin",
                  "path": PATH, "size_bytes": len(content)}
        body.write_text(json.dumps({"result": result, "status": "completed"}))
        post = ["/usr/bin/curl", "-sf", "--cacert", str(rig.desk.ca_file), "-H",
                "Content-Type: application/json", "--data-binary", f"@{body}",
                f"{rig.desk.url}/sink"]
        await rig.echo()
        await settle()
        idle = process_facts.resident(rig.pid)
        for _ in range(surroundings.times(7, 21)):
            process_facts.forget_peak(rig.pid)
            done = await rig.desk.run("file_download", {"path": PATH, "max_bytes": len(content)})
            assert done.status == "completed" and len(done.report) > len(content), done.report[:200]
            agent.append(done.seconds)
            peaks.append(process_facts.peak_resident(rig.pid) - idle)
            curl.append(await asyncio.to_thread(seconds_of, post))
        await settle()
        after = process_facts.resident(rig.pid)
    return [
        Figure("peak memory above idle, in sizes of the file", max(peaks) / MIB, TIMES_THE_FILE,
               why=f"{max(peaks):.0f} MiB above {idle:.1f} MiB; afterwards {after:.1f} MiB"),
        Figure("time, against curl", statistics.median(agent) / statistics.median(curl), TIMES_CURL,
               why=f"agent {spread(agent, 1000, 'ms')}, curl {spread(curl, 1000, 'ms')}")]


TOPIC = Topic("file_download of 25 MiB against curl posting a body of its size", measure)
