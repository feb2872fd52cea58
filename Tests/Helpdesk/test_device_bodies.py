"""The inventory and the heartbeat: every key is demanded, none is tolerated besides."""

from __future__ import annotations

import copy
from pathlib import Path
from typing import Any, Iterator

import pytest

from device_bodies import HEARTBEAT_BODY, INVENTORY_BODY, NOW
from helpdesk.protocol_check import Schemas, Shape

FOLDER = Path(__file__).resolve().parents[2] / "docs" / "protocol"

# What an object leaves out when the device does not know it.
MAY_BE_UNKNOWN = {("battery", "present"), ("battery", "percent"), ("battery", "state")}
# What the profiler and the tools say is passed on as it comes.
AS_IT_COMES = {"details", "system_profiler"}

Steps = tuple[Any, ...]


@pytest.fixture(scope="module")
def inventory() -> Shape:
    return Shape(Schemas(FOLDER).load("schemas/inventory.json"))


@pytest.fixture(scope="module")
def heartbeat() -> Shape:
    return Shape(Schemas(FOLDER).load("schemas/heartbeat.json"))


def objects_in(value: Any, steps: Steps = ()) -> Iterator[Steps]:
    """The way to every object whose keys are the device's own."""
    if isinstance(value, dict):
        yield steps
        for key, entry in value.items():
            if key not in AS_IT_COMES:
                yield from objects_in(entry, (*steps, key))
    elif isinstance(value, list):
        for index, entry in enumerate(value):
            yield from objects_in(entry, (*steps, index))


def at(value: Any, steps: Steps) -> Any:
    for step in steps:
        value = value[step]
    return value


@pytest.mark.parametrize("steps", objects_in(INVENTORY_BODY), ids=lambda s: "/".join(map(str, s)) or "top")
def test_each_missing_or_surprising_key_of_an_inventory_is_seen(inventory, steps):
    assert inventory.problems(INVENTORY_BODY) == []
    for key in at(INVENTORY_BODY, steps):
        body = copy.deepcopy(INVENTORY_BODY)
        del at(body, steps)[key]
        is_tolerated = (*steps, key) in MAY_BE_UNKNOWN
        assert (inventory.problems(body) == []) == is_tolerated, key
    body = copy.deepcopy(INVENTORY_BODY)
    at(body, steps)["surprise"] = 1
    assert inventory.problems(body)


@pytest.mark.parametrize("key", HEARTBEAT_BODY)
def test_each_missing_key_of_a_heartbeat_is_seen(heartbeat, key):
    assert heartbeat.problems(HEARTBEAT_BODY) == []
    assert heartbeat.problems({k: v for k, v in HEARTBEAT_BODY.items() if k != key})


PERIPHERALS = INVENTORY_BODY["peripherals"]


@pytest.mark.parametrize(
    "change",
    [
        {"device_uid": "mac-XYZ"},
        {"os_version": "14.5"},
        {"cpu_cores": 8.0},
        {"cpu_cores": True},
        {"boot_time": "2026-02-30T00:00:00Z"},
        {"boot_time": "2026-11-15T21:22:14+00:00"},
        {"ip_addresses": ["127.0.0.1"]},
        {"mac_addresses": ["a4:83:e7:00:11:22", "a4:83:e7:00:11:22"]},
        {"logged_in_user": "loginwindow"},
        {"logged_in_user": "root"},
        {"rustdesk_id": "123"},
        {"anydeskId": "123"},
        {"tags": ["a"]},
        {"software": [{"name": "A", "version": "1", "publisher": "", "installed_at": NOW}]},
        {"battery": {"source": "pmset", "present": True, "state": "unknown"}},
        {"peripherals": [{**PERIPHERALS[0], "type": "display"}]},
        {"peripherals": [{**PERIPHERALS[0], "path": "Klawiatura"}]},
        {"peripherals": [{**PERIPHERALS[1], "type": "usb"}]},
        {"peripherals": [{**PERIPHERALS[2], "connection": "network"}]},
        {"peripherals": [{**PERIPHERALS[2], "ip_address": ""}]},
        {"peripherals": [{**PERIPHERALS[2], "category": "scanner"}]},
    ],
)
def test_an_inventory_with_something_wrong_is_seen(inventory, change):
    assert inventory.problems({**INVENTORY_BODY, **change})


@pytest.mark.parametrize(
    "change",
    [
        {"surprise": 1},
        {"logged_in_user": ""},
        {"rustdesk_status": "not_installed"},
        {"cpu_load_percent": 101},
        {"monitoring": {}},
        {"anydesk_id": ""},
        {"rustdeskStatus": "online"},
    ],
)
def test_a_heartbeat_leaves_out_what_it_does_not_know(heartbeat, change):
    assert heartbeat.problems({**HEARTBEAT_BODY, **change})
