"""Times as the wire and the database spell them."""

import time
from datetime import datetime, timedelta, timezone


def timestamp(after: timedelta = timedelta(0)) -> str:
    """Now, or `after` from now: UTC, whole seconds, trailing Z."""
    return (datetime.now(timezone.utc) + after).strftime("%Y-%m-%dT%H:%M:%SZ")


def seconds() -> float:
    """Now as seconds since 1970 with microseconds, for measuring."""
    return time.time()
