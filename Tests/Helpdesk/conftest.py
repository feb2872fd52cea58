"""One helpdesk for the whole run, and for each test a device identifier of its own."""

from __future__ import annotations

import hashlib
import sys
from pathlib import Path
from typing import Any, Awaitable, Callable, Iterator, Optional

import pytest

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "Helpdesk"))

from helpdesk.client import HelpdeskClient  # noqa: E402
from helpdesk.process import HelpdeskProcess  # noqa: E402

from pretend_device import PretendDevice, play  # noqa: E402

Story = Callable[[PretendDevice], Awaitable[Any]]


@pytest.fixture(scope="session")
def helpdesk(tmp_path_factory: pytest.TempPathFactory) -> Iterator[HelpdeskProcess]:
    folder = tmp_path_factory.mktemp("helpdesk")
    with HelpdeskProcess(folder / "data", events=folder / "events.log") as process:
        yield process


@pytest.fixture
def admin(helpdesk: HelpdeskProcess) -> Iterator[HelpdeskClient]:
    """Starts clean: no faults, no records, no violations of an earlier test."""
    with helpdesk.client() as client:
        client.clear_faults()
        client.clear_requests()
        client.clear_violations()
        yield client


@pytest.fixture
def uid(request: pytest.FixtureRequest) -> str:
    return "mac-" + hashlib.sha256(request.node.nodeid.encode()).hexdigest()[:32]


@pytest.fixture
def act(helpdesk: HelpdeskProcess, uid: str) -> Callable[..., Any]:
    """act(story) plays a device that knows the organisation's token."""

    def run(story: Story, authorization: Optional[str] = "viewer", url: str = "") -> Any:
        if authorization == "viewer":
            authorization = f"Bearer {helpdesk.viewer_token}"
        return play(url or helpdesk.url, helpdesk.ca_file, uid, authorization, story)

    return run
