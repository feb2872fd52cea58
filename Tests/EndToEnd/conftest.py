"""One helpdesk for the whole run; for each test a sample Mac and the agent on it."""

from __future__ import annotations

import os
import sys
from pathlib import Path
from typing import Callable, Iterator

import pytest

_REPOSITORY = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(_REPOSITORY / "Helpdesk"), str(_REPOSITORY / "Tests/SampleMac"),
                str(Path(__file__).resolve().parent)]

from agent_process import AgentProcess  # noqa: E402
from device import Device, device_uid_of, give_identity  # noqa: E402
from helpdesk.client import HelpdeskClient  # noqa: E402
from helpdesk.process import HelpdeskProcess  # noqa: E402
from samplemac import SampleMac  # noqa: E402
from update_mac import NEW, package  # noqa: E402


def pytest_configure(config: pytest.Config) -> None:
    config.addinivalue_line(
        "markers", "breaks_protocol: the test makes the agent's wire break its description")
    config.addinivalue_line(
        "markers", "long: takes half a minute or more of real time; runs with ORV_LONG_TESTS=1 only")
    config.addinivalue_line(
        "markers", "without_agent: runs nothing that was built, so one build is enough")
    # Known already where the tests are distributed.
    config.addinivalue_line(
        "markers", "xdist_group: tests that run in one process, because they share a costly scene")


def pytest_collection_modifyitems(items: list[pytest.Item]) -> None:
    if os.environ.get("ORV_LONG_TESTS") == "1":
        return
    for item in items:
        if item.get_closest_marker("long") is not None:
            item.add_marker(pytest.mark.skip(reason="takes long; set ORV_LONG_TESTS=1"))


@pytest.fixture(scope="session")
def desk(tmp_path_factory: pytest.TempPathFactory) -> Iterator[HelpdeskProcess]:
    """The helpdesk as a process."""
    folder = tmp_path_factory.mktemp("desk")
    with HelpdeskProcess(folder / "data", events=folder / "events.log") as process:
        yield process


@pytest.fixture
def admin(desk: HelpdeskProcess, request: pytest.FixtureRequest) -> Iterator[HelpdeskClient]:
    """The helpdesk's admin interface, without leftovers of an earlier test. What the agent sends
    against the protocol's description fails the test."""
    with desk.client() as client:
        client.clear_faults()
        client.clear_requests()
        client.clear_violations()
        yield client
        if request.node.get_closest_marker("breaks_protocol") is None:
            assert client.violations() == []


@pytest.fixture
def mac(tmp_path: Path, desk: HelpdeskProcess,
        request: pytest.FixtureRequest) -> Iterator[SampleMac]:
    """A laptop of its own identity, with settings for the helpdesk. `variant` by parameter."""
    variant = getattr(request, "param", "laptop")
    with SampleMac(tmp_path / "mac", variant) as sample:
        give_identity(sample, request.node.nodeid)
        sample.write_settings(serverBaseUrl=desk.url, viewerToken=desk.viewer_token)
        yield sample


@pytest.fixture
def start_agent(mac: SampleMac, desk: HelpdeskProcess,
                admin: HelpdeskClient) -> Iterator[Callable[..., AgentProcess]]:
    """start_agent(*arguments) runs the agent; what still runs at the end is killed. It ends before
    the admin interface is asked for violations."""
    started: list[AgentProcess] = []

    def start(*arguments: str, ca_file: str | None = desk.ca_file, **options) -> AgentProcess:
        started.append(AgentProcess(mac, ca_file, *arguments, **options))
        return started[-1]

    yield start
    for process in started:
        process.kill()


@pytest.fixture
def agent(start_agent: Callable[..., AgentProcess]) -> AgentProcess:
    """The agent, running."""
    return start_agent()


@pytest.fixture
def device_uid(mac: SampleMac) -> str:
    """What the agent calls this Mac."""
    return device_uid_of(mac)


@pytest.fixture(scope="module")
def device(tmp_path_factory: pytest.TempPathFactory, desk: HelpdeskProcess,
           request: pytest.FixtureRequest) -> Iterator[Device]:
    """One Mac for all tests of a file, connected; it ends properly after the last of them. Nothing
    but a wake-up makes it fetch commands, however long a test takes."""
    name = request.node.nodeid
    shared = Device(tmp_path_factory.mktemp("device") / "mac", name, desk,
                    commandPollIntervalSeconds=3600)
    try:
        with desk.client() as client:
            client.wait_until_connected(shared.uid)
        yield shared
        shared.agent.stop()
    finally:
        shared.stop()


@pytest.fixture(scope="module")
def contents(tmp_path_factory) -> Callable[..., bytes]:
    """contents(**parts) is a package of the new version."""
    folder = tmp_path_factory.mktemp("packages")
    return lambda version=NEW, **parts: package(folder, version, **parts)


@pytest.fixture
def offer(admin, desk) -> Iterator[Callable[..., str]]:
    """offer(content) publishes a package and is its URL; `serving` as the helpdesk has it."""
    published = []

    def publish(content: bytes, serving: dict | None = None) -> str:
        published.append(admin.publish_package(content, NEW))
        if serving:
            admin.change_package(published[-1], serving=serving)
        return f"{desk.url}/packages/{published[-1]}/new.pkg"

    yield publish
    for number in published:
        admin.withdraw_package(number)
