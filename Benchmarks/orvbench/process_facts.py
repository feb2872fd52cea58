"""What Linux tells of a running process; sizes in MiB, times in seconds."""

from __future__ import annotations

import os
import pathlib
import re

MIB = 1 << 20
_TICKS = os.sysconf("SC_CLK_TCK")


def _folder(pid: int) -> pathlib.Path:
    return pathlib.Path(f"/proc/{pid}")


def _kib(text: str, key: str) -> int:
    found = re.search(rf"^{key}:\s+(\d+) kB$", text, re.MULTILINE)
    assert found is not None, key
    return int(found[1])


def proportional(pid: int) -> float:
    """Memory, of which shared pages count by their share."""
    return _kib((_folder(pid) / "smaps_rollup").read_text(), "Pss") / 1024


def resident(pid: int) -> float:
    return _kib((_folder(pid) / "smaps_rollup").read_text(), "Rss") / 1024


def peak_resident(pid: int) -> float:
    """Since the process began or forget_peak."""
    return _kib((_folder(pid) / "status").read_text(), "VmHWM") / 1024


def forget_peak(pid: int) -> None:
    (_folder(pid) / "clear_refs").write_text("5")


def open_descriptors(pid: int) -> int:
    return len(os.listdir(_folder(pid) / "fd"))


def threads(pid: int) -> int:
    return len(os.listdir(_folder(pid) / "task"))


def processor_time(pid: int) -> float:
    """Of its threads that still live, to the nanosecond."""
    files = (_folder(pid) / "task").glob("*/schedstat")
    return sum(int(file.read_text().split()[0]) for file in files) / 1e9


def processor_time_with_children(pid: int) -> float:
    """With the children that have ended; in steps of a clock tick."""
    fields = (_folder(pid) / "stat").read_text().rpartition(")")[2].split()
    return sum(int(field) for field in fields[11:15]) / _TICKS


def wake_ups(pid: int) -> int:
    """How often its threads went to sleep of their own accord."""
    files = (_folder(pid) / "task").glob("*/status")
    pattern = re.compile(r"^voluntary_ctxt_switches:\s+(\d+)$", re.MULTILINE)
    return sum(int(pattern.search(file.read_text())[1]) for file in files)
