"""How large the Mac's programs and their package are, and how long checking the Mac's sources takes."""

from __future__ import annotations

import os
import pathlib
import shutil
import subprocess
import time

from orvbench.figures import Figure, Surroundings, Topic

_ROOT = pathlib.Path(__file__).resolve().parents[2]
_MEGABYTE = 1_000_000
_PROGRAM_LIMIT, _PACKAGE_LIMIT = 7.0, 4.0
_FIRST_CHECK_SECONDS, _NEXT_CHECK_SECONDS = 300.0, 90.0


def sizes() -> list[Figure]:
    subprocess.run([_ROOT / "Packaging/macos/build"], check=True, stdout=subprocess.DEVNULL)
    build = _ROOT / "build/macos"
    root = build / "package-root"
    programs = [root / "Library/Application Support/Wsparo Brenvox/WsparoAgent",
                *(root / "Applications/Wsparo Brenvox.app/Contents/MacOS").iterdir()]
    largest = max(programs, key=lambda program: program.stat().st_size)
    package, = build.glob("*.pkg")
    return [
        Figure("the largest program", largest.stat().st_size / _MEGABYTE, _PROGRAM_LIMIT, "MB",
               why=", ".join(f"{one.name} {one.stat().st_size} B" for one in sorted(programs))),
        Figure("the package", package.stat().st_size / _MEGABYTE, _PACKAGE_LIMIT, "MB",
               why=f"{package.name} {package.stat().st_size} B")]


def check(build: pathlib.Path) -> float:
    started = time.monotonic()
    # What ccache kept would say nothing about a fresh machine.
    environment = {**os.environ, "CCACHE_DISABLE": "1"}
    for command in (["cmake", "--preset", "macos-check", "-B", build], ["cmake", "--build", build]):
        subprocess.run(command, cwd=_ROOT, env=environment, check=True, stdout=subprocess.DEVNULL)
    return time.monotonic() - started


async def measure(surroundings: Surroundings) -> list[Figure]:
    build = surroundings.folder / "macos-check"
    try:
        first = check(build)
        # The commonest change: one source of the agent.
        (_ROOT / "Sources/OrvViewerShared/AgentService.cpp").touch()
        following = check(build)
    finally:
        shutil.rmtree(build, ignore_errors=True)
    return [*sizes(),
            Figure("the cross check from nothing", first, _FIRST_CHECK_SECONDS, "s",
                   why="every source and the links, the compiler's own libraries cached"),
            Figure("the cross check after a change", following, _NEXT_CHECK_SECONDS, "s",
                   why="one source changed")]


TOPIC = Topic("the Mac's package and the cross check", measure, only_long=True)
