"""Commands from the queue to the report, with and without a wake-up."""

from __future__ import annotations

import asyncio
import json
import threading
import time

import pytest

from helpdesk.client import HelpdeskError
from pretend_device import shell_result


async def registered(device):
    await device.register()
    return device.authorization


def test_a_command_is_delivered_until_it_is_reported(admin, act, uid):
    token = act(registered)
    command_id = admin.queue_command(uid, "shell", {"command": "echo hi"})

    async def story(device):
        deliveries = [await device.pending(), await device.pending()]
        report = await device.report(command_id, "completed", shell_result())
        return deliveries, report, await device.pending()

    deliveries, report, afterwards = act(story, token)

    expected = [{"id": command_id, "command_type": "shell", "payload": {"command": "echo hi"}}]
    assert [answer.json for answer in deliveries] == [expected, expected]
    assert report.status == 200
    assert afterwards.json == []
    command = admin.command(command_id)
    assert command["status"] == "completed"
    assert command["deliveries"] == 2
    assert command["result"] == shell_result()
    assert [entry["status"] for entry in command["history"]] == ["queued", "completed"]
    assert admin.violations() == []


def test_commands_come_in_the_order_they_were_queued_and_by_type(admin, act, uid):
    token = act(registered)
    ids = admin.queue_commands(
        uid, [("shell", {"command": "a"}), ("user_notify", {}), ("file_list", {"path": "/"})]
    )

    async def story(device):
        return await device.pending(), await device.pending("?command_type=user_notify")

    everything, notifications = act(story, token)

    assert [entry["id"] for entry in everything.json] == ids
    assert [entry["id"] for entry in notifications.json] == [ids[1]]


def test_picked_up_ends_the_delivery_and_the_history_goes_on(admin, act, uid):
    token = act(registered)
    command_id = admin.queue_command(uid, "client_uninstall")
    started = {
        "platform": "macos",
        "uninstall_started": True,
        "remove_viewer": True,
        "remove_rustdesk": False,
        "started_at": "2026-11-15T21:22:14Z",
    }

    async def story(device):
        picked_up = {"platform": "macos", "uninstall_started": False}
        await device.report(command_id, "picked_up", picked_up)
        pending = await device.pending()
        await device.report(command_id, "uninstall_started", started)
        return pending.json

    assert act(story, token) == []
    command = admin.wait_for_command(command_id, timeout=0)
    statuses = [entry["status"] for entry in command["history"]]
    assert statuses == ["queued", "picked_up", "uninstall_started"]
    assert command["result"] == started
    assert admin.violations() == []


def test_waiting_ends_with_the_report(admin, act, uid, helpdesk):
    token = act(registered)

    async def story(device):
        while not (pending := (await device.pending()).json):
            await asyncio.sleep(0.01)
        await device.report(pending[0]["id"], "completed", shell_result())

    thread = threading.Thread(target=act, args=(story, token))
    thread.start()
    command = admin.run_command(uid, "shell", {"command": "echo hi"}, timeout=5)
    thread.join()

    assert command["result"]["stdout"] == "hi\n"


def test_waiting_in_vain_is_a_timeout(admin, act, uid):
    act(registered)

    with pytest.raises(TimeoutError, match="queued"):
        admin.run_command(uid, "shell", {"command": "echo hi"}, timeout=0.05)
    command_id = admin.queue_command(uid, "shell", {"command": "echo hi"})
    with pytest.raises(TimeoutError, match="queued"):
        admin.wait_for_command(command_id, timeout=0.05)


def test_a_report_for_another_devices_command_is_refused(admin, act, uid):
    act(registered)
    command_id = admin.queue_command(uid, "shell", {"command": "echo hi"})

    async def story(device):
        device.uid = "mac-" + "1" * 32
        await device.register()
        known = await device.report(command_id, "completed", shell_result())
        unknown = await device.report(987654321, "completed", shell_result())
        beyond = await device.report(2**70, "completed", shell_result())
        return known, unknown, beyond

    known, unknown, beyond = act(story)

    assert (known.status, known.detail) == (403, "Device token does not match device")
    assert (unknown.status, beyond.status) == (404, 404)
    assert admin.command(command_id)["status"] == "queued"


def test_a_thousand_commands_are_queued_and_delivered_at_once(admin, act, uid):
    token = act(registered)
    begin = time.monotonic()
    ids = admin.queue_commands(uid, [("shell", {"command": f"echo {n}"}) for n in range(1000)])

    async def story(device):
        return [command["id"] for command in (await device.pending()).json]

    assert act(story, token) == ids
    assert admin.device(uid)["commands"] == {"queued": 1000}
    assert time.monotonic() - begin < 5


def test_a_download_of_25_mebibytes_takes_no_seconds(admin, act, uid):
    token = act(registered)
    command_id = admin.queue_command(uid, "file_download", {"path": "/tmp/big"})
    size = 25 << 20
    result = {
        "path": "/tmp/big",
        "file_name": "big",
        "size_bytes": size,
        "content_base64": "A" * ((size + 2) // 3 * 4),
        "collected_at": "2026-11-15T21:22:14Z",
    }
    body = json.dumps({"status": "completed", "result": result}).encode()

    async def story(device):
        begin = time.monotonic()
        path = f"/api/agent/device-commands/{command_id}/status"
        return await device.post(path, body), time.monotonic() - begin

    answer, elapsed = act(story, token)

    assert answer.status == 200
    assert elapsed < 5
    assert admin.command(command_id)["result"]["size_bytes"] == size
    assert admin.violations() == []


def test_orders_for_unknown_devices_and_of_the_wrong_form_are_refused(admin, act, uid):
    with pytest.raises(HelpdeskError) as unknown:
        admin.queue_command("mac-nobody", "shell")
    act(registered)
    with pytest.raises(HelpdeskError) as malformed:
        admin.queue_command(uid, "shell", wake="sometimes")
    with pytest.raises(HelpdeskError) as nowhere:
        admin.assign_device(uid, 987654)

    statuses = [error.value.status for error in (unknown, malformed, nowhere)]
    assert statuses == [404, 422, 422]
