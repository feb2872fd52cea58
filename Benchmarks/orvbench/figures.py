"""What a benchmark finds out, and the table of all of it."""

from __future__ import annotations

import dataclasses
import os
import pathlib
import statistics
from typing import Awaitable, Callable, Optional, Sequence


@dataclasses.dataclass(frozen=True)
class Figure:
    """One number with its limit. `why` says from what it was made."""
    name: str
    value: float
    limit: float
    unit: str = ""
    at_least: bool = False
    why: str = ""

    @property
    def is_met(self) -> bool:
        return self.value >= self.limit if self.at_least else self.value <= self.limit

    def cells(self) -> tuple[str, str, str, str]:
        sign = ">=" if self.at_least else "<="
        return (self.name, f"{_short(self.value)} {self.unit}".rstrip(),
                f"{sign} {_short(self.limit)} {self.unit}".rstrip(), "yes" if self.is_met else "NO")


@dataclasses.dataclass(frozen=True)
class Surroundings:
    """What a topic is given. `folder` is its own and goes afterwards; `is_long` asks for the
    thorough variant."""
    folder: pathlib.Path
    build: pathlib.Path
    is_long: bool

    def times(self, quick: int, long: int) -> int:
        return long if self.is_long else quick


@dataclasses.dataclass(frozen=True)
class Topic:
    """`measure` returns the figures. A topic that is `only_long` takes minutes."""
    summary: str
    measure: Callable[[Surroundings], Awaitable[list[Figure]]]
    only_long: bool = False
    in_own_network: bool = False


@dataclasses.dataclass(frozen=True)
class Row:
    figure: Figure
    topic: str
    load: float


def load_now() -> float:
    """Processes that want to run, of the last minute's average."""
    return os.getloadavg()[0]


def quantile(values: Sequence[float], share: float) -> float:
    ordered = sorted(values)
    return ordered[min(int(share * len(ordered)), len(ordered) - 1)]


def spread(values: Sequence[float], scale: float = 1.0, unit: str = "s") -> str:
    """"12 [11-14] ms": the median and the quarter either side."""
    low, middle, high = (quantile(values, 0.25), statistics.median(values), quantile(values, 0.75))
    return f"{_short(middle * scale)} [{_short(low * scale)}-{_short(high * scale)}] {unit}"


def table(rows: Sequence[Row]) -> str:
    """With a line below each figure that says how it came about."""
    head = ("figure", "value", "limit", "met", "load")
    cells = [(*row.figure.cells(), f"{row.load:.1f}") for row in rows]
    widths = [max(len(line[i]) for line in [head, *cells]) for i in range(len(head))]

    def line(texts: Sequence[str]) -> str:
        return "  ".join(text.ljust(width) for text, width in zip(texts, widths)).rstrip()

    lines = [line(head), "-" * (sum(widths) + 2 * len(widths) - 2)]
    topic: Optional[str] = None
    for row, texts in zip(rows, cells):
        if row.topic != topic:
            lines.append(f"{row.topic}:")
            topic = row.topic
        lines.append(line(texts))
        if row.figure.why:
            lines.append(f"    {row.figure.why}")
    return "\n".join(lines)


def _short(value: float) -> str:
    if value == 0 or abs(value) >= 100:
        return f"{value:.0f}"
    return f"{value:.1f}" if abs(value) >= 10 else f"{value:.2f}"
