"""Runs the benchmarks and prints their table. Called by ./bench, which has built what they need."""

from __future__ import annotations

import argparse
import asyncio
import importlib
import os
import pathlib
import pkgutil
import shutil
import sys
import tempfile
import time
import traceback
from contextlib import nullcontext

REPOSITORY = pathlib.Path(__file__).resolve().parents[1]
BUILD = pathlib.Path(os.environ.get("ORV_BUILD_DIR", REPOSITORY / "build/release"))
sys.path[:0] = [str(REPOSITORY / folder) for folder in
                ("Benchmarks", "Helpdesk", "Tests/SampleMac", "Tests/EndToEnd")]

import topics  # noqa: E402
from orvbench.figures import Row, Surroundings, Topic, load_now, table  # noqa: E402
from own_network import own_network  # noqa: E402


def all_topics() -> dict[str, Topic]:
    modules = {entry.name: importlib.import_module(f"topics.{entry.name}")
               for entry in pkgutil.iter_modules(topics.__path__)}
    return {name: module.TOPIC for name, module in sorted(modules.items())}


def measure(name: str, topic: Topic, is_long: bool) -> list[Row]:
    folder = pathlib.Path(tempfile.mkdtemp(prefix=f"orv-bench-{name}-"))
    network = own_network() if topic.in_own_network else nullcontext()
    try:
        with network:
            figures = asyncio.run(topic.measure(Surroundings(folder, BUILD, is_long)))
    finally:
        shutil.rmtree(folder, ignore_errors=True)
    return [Row(figure, name, load_now()) for figure in figures]


def arguments(known: dict[str, Topic]) -> argparse.Namespace:
    parser = argparse.ArgumentParser(
        prog="./bench", formatter_class=argparse.RawDescriptionHelpFormatter,
        description="Measures the built agent against bare tools in the same run.",
        epilog="topics:\n" + "\n".join(
            f"  {name:18}{topic.summary}{' (only with --long)' if topic.only_long else ''}"
            for name, topic in known.items()) + "\n\n"
        "Exit code 1 when a limit is missed or a topic could not be measured.")
    parser.add_argument("topics", nargs="*", metavar="TOPIC", help="only these")
    parser.add_argument("--long", action="store_true",
                        help="more repetitions, and the topics that take minutes")
    parser.add_argument("--report", action="store_true",
                        help="exit code 0 also when a limit is missed")
    chosen = parser.parse_args()
    if unknown := set(chosen.topics) - set(known):
        parser.error(f"no topic {', '.join(sorted(unknown))}")
    return chosen


def main() -> int:
    known = all_topics()
    chosen = arguments(known)
    names = chosen.topics or [name for name, topic in known.items()
                              if chosen.long or not topic.only_long]
    rows: list[Row] = []
    failed: list[str] = []
    for name in names:
        begin = time.monotonic()
        print(f"bench: {name}: {known[name].summary}", end="", file=sys.stderr, flush=True)
        try:
            rows += measure(name, known[name], chosen.long)
        except Exception:
            failed.append(name)
            print(file=sys.stderr)
            traceback.print_exc()
        print(f" ({time.monotonic() - begin:.0f} s)", file=sys.stderr, flush=True)
    print(table(rows))
    missed = sum(not row.figure.is_met for row in rows)
    print(f"\n{len(rows) - missed} of {len(rows)} limits met on {os.cpu_count()} cores"
          + (f"; not measured: {', '.join(failed)}" if failed else ""))
    return 1 if failed or (missed and not chosen.report) else 0


if __name__ == "__main__":
    sys.exit(main())
