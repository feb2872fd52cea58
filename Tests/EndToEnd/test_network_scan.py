"""Scans of real networks: the helpdesk, the agent and this test in a network namespace of their own,
five hosts in another."""

from __future__ import annotations

import contextlib
import os
import resource
from dataclasses import dataclass
from typing import Any, Iterator

import own_network
import pytest
from device import Device
from helpdesk.client import HelpdeskClient
from helpdesk.process import HelpdeskProcess
from samplemac import SampleMac

pytestmark = pytest.mark.xdist_group("network scan")

OWN = own_network.OWN_ADDRESS.partition("/")[0]
USUAL_DESCRIPTORS = 256  # what launchd gives
RAISED_DESCRIPTORS = 4096


@dataclass
class Office:
    """A connected device, and the hardware address of all its neighbours."""
    device: Device
    admin: HelpdeskClient
    neighbours_address: str

    def scan(self, **payload: Any) -> dict[str, Any]:
        return self.device.run(self.admin, "ip_scan", payload)


@contextlib.contextmanager
def few_descriptors() -> Iterator[None]:
    """What is started meanwhile begins with a low limit, as on a Mac."""
    before, most = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (USUAL_DESCRIPTORS, most))
    try:
        yield
    finally:
        resource.setrlimit(resource.RLIMIT_NOFILE, (before, most))


@pytest.fixture(scope="module")
def office(tmp_path_factory: pytest.TempPathFactory) -> Iterator[Office]:
    if reason := own_network.why_impossible():
        pytest.skip(reason)
    folder = tmp_path_factory.mktemp("office")
    with own_network.own_network(), own_network.neighbours() as address, \
            HelpdeskProcess(folder / "desk", events=folder / "events.log") as desk:
        with few_descriptors():
            device = Device(folder / "mac", "office", desk, prepare=SampleMac.use_real_network,
                            chatPollIntervalSeconds=1)
        try:
            with desk.client() as admin:
                admin.wait_until_connected(device.uid)
                yield Office(device, admin, address)
                assert admin.violations() == []
            device.agent.stop()
        finally:
            device.stop()


def test_the_hosts_that_answer_are_found(office):
    result = office.scan()

    assert (result["network_count"], result["host_count"]) == (1, 6)
    network = result["networks"][0]
    hosts = network.pop("hosts")
    assert network == {"interface": "en5", "local_ip": OWN, "network": "10.77.0.0",
                       "cidr": own_network.NETWORK, "scanned_hosts": 254}
    assert [host["ip"] for host in hosts] == [OWN, *own_network.HOSTS], "in ascending order"
    for host in hosts:
        assert host["status"] == "up"
        assert 0 < host["latency_ms"] < 350
    assert [host.get("mac") for host in hosts] == [None] + [office.neighbours_address] * 5
    assert [host.get("hostname") for host in hosts] == ["router.biuro.example"] + [None] * 5


def test_names_are_not_looked_up_unless_wanted(office):
    office.device.mac.forget_calls()
    result = office.scan(resolve_hostnames=False, max_prefix_length=30)
    assert [host["ip"] for host in result["networks"][0]["hosts"]] == [OWN]
    assert "hostname" not in result["networks"][0]["hosts"][0]
    assert office.device.mac.tool_calls("dscacheutil") == []


def test_a_low_limit_of_descriptors_only_slows_the_scan_down(office):
    pid = office.device.agent.pid
    open_now = len(os.listdir(f"/proc/{pid}/fd"))
    usual, most = resource.prlimit(pid, resource.RLIMIT_NOFILE)
    assert usual == min(RAISED_DESCRIPTORS, most), "by the agent itself, at its start"
    resource.prlimit(pid, resource.RLIMIT_NOFILE, (open_now + 100, most))
    try:
        result = office.scan(timeout_ms=100)
    finally:
        resource.prlimit(pid, resource.RLIMIT_NOFILE, (usual, most))
    assert [host["ip"] for host in result["networks"][0]["hosts"]] == [OWN, *own_network.HOSTS]


def test_every_network_is_scanned_in_its_turn(office):
    with own_network.lonely_interface("en6", "10.99.3.6/16"), \
            own_network.lonely_interface("en7", "10.98.0.1/24", is_up=False):
        result = office.scan(max_prefix_length=30)
    found = {network["cidr"]: [host["ip"] for host in network["hosts"]]
             for network in result["networks"]}
    assert found == {"10.77.0.0/30": [OWN], "10.99.3.4/30": ["10.99.3.6"]}
    assert [network["interface"] for network in result["networks"]] == ["en5", "en6"]


def test_other_commands_do_not_wait_for_a_scan(office):
    mac, admin, uid = office.device.mac, office.admin, office.device.uid
    # The hosts' hardware addresses are asked for until the test lets go.
    mac.replace_tool("/usr/sbin/arp", 'until [ -e "$sample/enough" ]; do "$real/sleep" 0.02; done\n')
    asked_before = len(mac.tool_calls("arp"))
    scan = admin.queue_command(uid, "ip_scan", {"max_prefix_length": 30})
    # Fetched with the scan, the notice would have to wait for its turn.
    admin.wait_until(lambda: len(mac.tool_calls("arp")) > asked_before or None, 10, "answering host")

    notice = admin.queue_command(uid, "user_notify", {"title": "Spokojnie"}, wake="none")
    assert admin.wait_for_command(notice)["status"] == "completed"

    (mac.sample / "enough").touch()
    assert admin.wait_for_command(scan)["result"]["host_count"] == 1
    reported = [entry["path"] for entry in admin.requests("command_status")]
    of_scan, of_notice = (f"/api/agent/device-commands/{identifier}/status"
                          for identifier in (scan, notice))
    assert reported.index(of_notice) < reported.index(of_scan)
