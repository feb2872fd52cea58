"""What the helpdesk knows of a Mac: both sample Macs, key by key."""

from __future__ import annotations

import calendar
import json
import os
import subprocess
import sys
import time
from dataclasses import dataclass
from typing import Any, Iterator

import pytest
from agent_process import AgentProcess
from device import device_uid_of, give_identity
from helpdesk.process import HelpdeskProcess
from sample_equipment import PERIPHERALS, REMOTE, software
from samplemac import SampleMac, ToolCall

pytestmark = [pytest.mark.xdist_group("inventory"), pytest.mark.skipif(
    sys.platform == "darwin", reason="a Mac tells its own facts")]

PAGE_BYTES = 16384
MOUNTS = """\
/dev/disk3s1s1 / apfs rw 0 0
devfs /dev devtmpfs rw 0 0
/dev/disk4s1 /Volumes/Kopia\\040zapasowa hfs rw 0 0
/dev/disk4s1 /Volumes hfs rw 0 0
/dev/disk9s1 /Volumes/Odłączony hfs rw 0 0
"""
CAPABILITIES = {
    "capabilities": {
        "screen_capture": True, "webrtc": True, "input": True, "clipboard": "NSPasteboard",
    },
    "notes": ["requires GoogleWebRTC XCFramework",
              "Accessibility/Input Monitoring permissions required"],
}


@dataclass
class Sent:
    """A Mac and what the helpdesk stored of it after one inventory and one heartbeat."""
    mac: SampleMac
    device: dict[str, Any]
    viewer_token: str
    calls: list[ToolCall]  # of the agent alone
    now: float

    @property
    def inventory(self) -> dict[str, Any]:
        return self.device["inventory"]

    @property
    def heartbeat(self) -> dict[str, Any]:
        return self.device["heartbeat"]

    def answer(self, tool: str, *arguments: str) -> str:
        return self.mac.run(tool, *arguments).stdout.strip()

    def profiler(self, data_type: str) -> Any:
        return json.loads(self.answer("/usr/sbin/system_profiler", data_type, "-json"))


@pytest.fixture(scope="module", params=["laptop", "desktop"])
def sent(tmp_path_factory: pytest.TempPathFactory, desk: HelpdeskProcess,
         request: pytest.FixtureRequest) -> Iterator[Sent]:
    with SampleMac(tmp_path_factory.mktemp("inventory") / "mac", request.param) as mac:
        give_identity(mac, request.node.nodeid + request.param)
        mac.write_settings(serverBaseUrl=desk.url, viewerToken=f" {desk.viewer_token} ")
        for folder in ("/proc/self", "/Volumes/Kopia zapasowa"):
            mac.place(folder).mkdir(parents=True)
        mac.place("/proc/self/mounts").write_text(MOUNTS)
        uid = device_uid_of(mac)
        status, _, error = AgentProcess(mac, desk.ca_file, "--once").wait()
        assert (status, error) == (0, ""), mac.read_log()
        with desk.client() as client:
            assert [one for one in client.violations() if one["device_uid"] == uid] == []
            yield Sent(mac, client.device(uid), desk.viewer_token, mac.tool_calls(), time.time())


def seconds(timestamp: str) -> int:
    return calendar.timegm(time.strptime(timestamp, "%Y-%m-%dT%H:%M:%SZ"))


def boot_seconds(sent: Sent) -> int:
    answer = sent.answer("/usr/sbin/sysctl", "-n", "kern.boottime")
    return int(answer.split("sec = ")[1].split(",")[0])


def used_bytes(sent: Sent) -> int:
    rows = sent.answer("/usr/bin/vm_stat").splitlines()[1:]
    pages = {name: int(count.strip(" .")) for name, _, count in (row.rpartition(":") for row in rows)}
    return PAGE_BYTES * (pages["Pages active"] + pages["Pages wired down"]
                         + pages["Pages occupied by compressor"])


def machine_addresses() -> list[str]:
    interfaces = json.loads(subprocess.run(["ip", "-json", "address"], check=True,
                                           capture_output=True, text=True).stdout)
    addresses = [entry["local"] for interface in interfaces
                 for entry in interface["addr_info"]]
    return sorted(address for address in addresses if not address.startswith("127."))


def hardware_addresses(sent: Sent) -> list[str]:
    words = sent.answer("/sbin/ifconfig", "-a").split()
    return list(dict.fromkeys(words[i + 1] for i, word in enumerate(words) if word == "ether"))


def expected_battery(sent: Sent) -> dict[str, Any]:
    if sent.mac.variant.battery is None:
        return {"source": "pmset", "present": False}
    return {"source": "pmset", "present": True, "percent": 83, "state": "discharging",
            "time_remaining": "5:12"}


def expected_identifiers(sent: Sent) -> dict[str, str]:
    if not sent.mac.variant.remote_tools:
        return {"rustdesk_status": "not_installed"}
    return {"rustdesk_status": "online", "rustdesk_id": "271846093", "anydesk_id": "1083427195",
            "teamviewer_id": "1402977351"}


def in_both_forms(values: dict[str, str]) -> dict[str, str]:
    camel = {}
    for key, value in values.items():
        first, second = key.split("_")
        camel[first + second.capitalize()] = value
    return {**values, **camel}


def expected_facts(sent: Sent) -> dict[str, Any]:
    """All that is neither equipment nor a list of its own."""
    variant = sent.mac.variant
    major, minor, *patch = variant.system_version.split(".")
    return {
        "device_uid": device_uid_of(sent.mac),
        "hostname": variant.host_name,
        "display_name": variant.computer_name,
        "device_type": "workstation" if variant.battery is None else "laptop",
        "os_name": "macOS",
        "os_version": ".".join([major, minor, *(patch or ["0"])]),
        "os_build": variant.system_build,
        "kernel_version": variant.kernel_release,
        "architecture": "arm64",
        "cpu": variant.chip,
        "cpu_cores": os.sysconf("SC_NPROCESSORS_CONF"),
        "ram_bytes": os.sysconf("SC_PHYS_PAGES") * os.sysconf("SC_PAGESIZE"),
        "ram_used_bytes": used_bytes(sent),
        "mac_addresses": hardware_addresses(sent),
        "logged_in_user": variant.console_user or "",
        "agent_version": "0.2.55",
        "agent_channel": "macos-native",
        "serial_number": variant.serial_number,
        "manufacturer": "Apple",
        "model": variant.model,
        "battery": expected_battery(sent),
        "security": {
            "source": "macos-native", "firewall": variant.firewall,
            "filevault": variant.disk_encryption,
            "sip": "System Integrity Protection status: enabled.",
        },
        "patches": {
            "source": "softwareupdate", "last_update_at": None,
            "pending_raw": sent.answer("/usr/sbin/softwareupdate", "-l"),
        },
        "tags": [],
        "status": "online",
        "health_status": "unknown",
        **in_both_forms(expected_identifiers(sent)),
        **in_both_forms({"viewer_token": sent.viewer_token}),
    }


LOOKED_AT_CLOSELY = {"disks", "ip_addresses", "peripherals", "uptime_seconds", "boot_time",
                     "monitoring", "audit", "software", "remote"}


def test_the_inventory_has_every_key_with_the_macs_value(sent):
    facts = {key: value for key, value in sent.inventory.items() if key not in LOOKED_AT_CLOSELY}
    assert facts == expected_facts(sent)
    assert LOOKED_AT_CLOSELY <= sent.inventory.keys()


def test_the_times_fit_together(sent):
    boot = boot_seconds(sent)
    collected = seconds(sent.inventory["monitoring"]["collected_at"])
    assert seconds(sent.inventory["boot_time"]) == boot
    assert sent.inventory["uptime_seconds"] == collected - boot
    assert sent.inventory["monitoring"]["source"] == "orv-viewer-macos-native"
    assert sent.now - 30 <= collected <= sent.now


def test_the_disks_are_the_mounted_volumes_once_each(sent):
    described = [(disk["name"], disk["mount_point"], disk["file_system"])
                 for disk in sent.inventory["disks"]]
    assert described == [("/", "/", "apfs"), ("Kopia zapasowa", "/Volumes/Kopia zapasowa", "hfs")]
    space = os.statvfs(sent.mac.root)
    for disk in sent.inventory["disks"]:
        assert disk["total_bytes"] == space.f_blocks * space.f_frsize
        assert 0 < disk["free_bytes"] < disk["total_bytes"]
        assert disk["used_bytes"] == disk["total_bytes"] - disk["free_bytes"]


def test_the_addresses_are_the_machines_without_its_loopback(sent):
    assert sorted(sent.inventory["ip_addresses"]) == machine_addresses()
    assert sorted(sent.heartbeat["ip_addresses"]) == machine_addresses()


def test_the_applications_with_their_publishers(sent):
    assert sent.inventory["software"] == software(sent.mac.variant.remote_tools)


def test_tools_run_only_for_publishers_that_the_bundles_hide(sent):
    def bundles(tool: str) -> list[str]:
        return [call.arguments[-1].rpartition("/")[2] for call in sent.calls if call.tool == tool]

    looked_at, signatures = bundles("mdls"), bundles("codesign")
    assert {"Steam.app", "Slack.app", "Album Autora.app", "Cyberpismo.app"} <= set(looked_at)
    assert not {"Google Chrome.app", "Safari.app", "Mail.app", "Terminal.app"} & set(looked_at)
    assert "Slack.app" in signatures
    assert "Album Autora.app" not in signatures, "the metadata named somebody"
    for names in (looked_at, signatures):
        assert len(names) == len(set(names)), "once for each bundle"


def items_in(report: Any) -> Iterator[Any]:
    """The profiler's items in the order of the records."""
    for item in report:
        yield item
        yield from items_in(item.get("_items", []))


def test_the_peripherals_with_the_profilers_own_items(sent):
    records = [dict(record) for record in sent.inventory["peripherals"]]
    details = [record.pop("details") for record in records]
    assert records == PERIPHERALS[sent.mac.variant.name]

    usb = sent.profiler("SPUSBDataType")["SPUSBDataType"] \
        or sent.profiler("SPUSBHostDataType")["SPUSBHostDataType"]
    displays = [display for device in sent.profiler("SPDisplaysDataType")["SPDisplaysDataType"]
                for display in device["spdisplays_ndrvs"]]
    printers = [printer for printer in sent.profiler("SPPrintersDataType")["SPPrintersDataType"]
                if "_name" in printer]
    assert details == [*items_in(usb), *displays, *printers]


def test_the_audits_details(sent):
    def listing(folder: str) -> list[str]:
        return sorted(os.listdir(sent.mac.place(folder)))

    assert sent.inventory["audit"] == {
        "system_profiler": sent.profiler("SPHardwareDataType"),
        "local_users": sent.answer("/usr/bin/dscl", ".", "-list", "/Users"),
        "printers": sent.answer("/usr/bin/lpstat", "-p"),
        "launch_daemons": listing("/Library/LaunchDaemons"),
        "launch_agents": listing("/Library/LaunchAgents"),
        "remote_capabilities": CAPABILITIES,
    }


def test_the_remote_desktop_tools(sent):
    assert sent.inventory["remote"] == REMOTE[sent.mac.variant.name]


def test_the_heartbeat_has_what_is_known_and_nothing_else(sent):
    heartbeat = dict(sent.heartbeat)
    assert 0 <= heartbeat.pop("cpu_load_percent") <= 100
    assert 0 <= heartbeat.pop("uptime_seconds") - sent.inventory["uptime_seconds"] < 30
    heartbeat.pop("ip_addresses")
    user = sent.mac.variant.console_user
    identifiers = {key: value for key, value in expected_identifiers(sent).items()
                   if value != "not_installed"}
    assert heartbeat == {
        "device_uid": device_uid_of(sent.mac),
        "server_assigned_id": sent.device["uid"],
        "support_id": sent.device["support_id"],
        "hostname": sent.mac.variant.host_name,
        "agent_version": "0.2.55",
        "agent_channel": "macos-native",
        "status": "online",
        "ram_used_bytes": used_bytes(sent),
        "monitoring": {"update_status": None},
        **({"logged_in_user": user} if user else {}),
        **identifiers,
    }


def test_the_heartbeat_leaves_the_expensive_tools_alone(sent):
    calls = [call.tool for call in sent.calls]
    for tool in ("softwareupdate", "pmset", "ifconfig", "fdesetup", "csrutil", "socketfilterfw"):
        assert calls.count(tool) == 1, tool
    assert calls.count("vm_stat") == 2


def test_a_mac_whose_tools_all_fail_still_sends_every_key(mac, start_agent, admin, device_uid):
    for tool in mac.place("/usr/sbin").iterdir():
        mac.break_tool(f"/usr/sbin/{tool.name}", error="zepsute\n")
    for tool in ("uname", "vm_stat", "pmset", "fdesetup", "csrutil", "dscl", "lpstat", "mdls",
                 "codesign", "defaults", "id"):
        mac.remove_tool(f"/usr/bin/{tool}")
    mac.replace_tool("/sbin/ifconfig", output=b"\xff\xfe ether \x80\n")
    mac.replace_tool("/bin/launchctl", '"$real/head" -c 20000000 /dev/zero\n')
    mac.place("/System/Library/CoreServices/SystemVersion.plist").write_bytes(b"bplist00\x00")
    status, _, error = start_agent("--once").wait()
    assert (status, error) == (0, "")
    inventory = admin.device(device_uid)["inventory"]
    assert inventory["security"]["firewall"] != "unknown"
    assert inventory["security"]["sip"] == "unknown"
    assert inventory["peripherals"] == []
    assert inventory["battery"] == {"source": "pmset"}
    assert "[ERROR]" not in mac.read_log()
