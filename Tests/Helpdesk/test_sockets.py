"""The control and signaling sockets: greetings, wake-ups, rejections, faults."""

from __future__ import annotations

import asyncio
import json

import aiohttp
import pytest

from pretend_device import CONTROL, METADATA, beside, shell_result


async def registered(device):
    await device.register()
    return device.authorization


def socket_heartbeat(device, **more):
    return {
        "type": "heartbeat",
        "device_uid": device.uid,
        "support_id": device.support_id,
        "hostname": "makieta.local",
        "agent_version": "0.2.55",
        "status": "online",
        "platform": "macos",
        "sentAt": "2026-11-15T21:22:14Z",
        **more,
    }


def test_hello_is_greeted_and_heartbeats_are_acknowledged(admin, act, uid):
    async def story(device):
        await device.register()
        async with device.control() as socket:
            connected = admin.device(uid)["connected"]
            await socket.send_json(socket_heartbeat(device))
            acknowledged = await socket.receive_json(timeout=5)
            await socket.close(code=1001)
        return connected, acknowledged

    connected, acknowledged = act(story)

    assert connected is True
    assert acknowledged["type"] == "heartbeat-ack"
    socket = admin.wait_for_socket("control", lambda s: s["device_uid"] == uid and not s["open"])
    assert socket["close_code"] == 1001
    received = admin.socket(socket["id"])["received"]
    assert [entry["json"]["type"] for entry in received] == ["hello", "heartbeat"]
    assert admin.device(uid)["connected"] is False
    assert admin.violations() == []


def test_a_queued_command_wakes_the_connected_device_at_once(admin, act, uid):
    async def story(device):
        await device.register()
        async with device.control() as socket:
            order = beside(admin.run_command, uid, "shell", {"command": "echo hi"}, 5)
            answer = asyncio.ensure_future(order)
            wake_up = await socket.receive_json(timeout=5)
            [command] = (await device.pending()).json
            await device.report(command["id"], "completed", shell_result())
            return wake_up, command, await answer

    wake_up, command, answer = act(story)

    assert wake_up == {
        "type": "agent_command.queued",
        "command_id": command["id"],
        "command_type": "shell",
    }
    statuses = [entry["status"] for entry in answer["history"]]
    assert statuses == ["queued", "woken", "completed"]


@pytest.mark.parametrize(("wake", "expected"), [("none", 0), ("once", 1), ("each", 3)])
def test_wake_ups_are_as_many_as_asked_for(admin, act, uid, wake, expected):
    async def story(device):
        await device.register()
        async with device.control() as socket:
            admin.queue_commands(uid, [("shell", {"command": "true"})] * 3, wake=wake)
            await socket.send_json(socket_heartbeat(device))
            types = []
            while not types or types[-1] != "heartbeat-ack":
                types.append((await socket.receive_json(timeout=5))["type"])
            return types

    assert act(story) == ["agent_command.queued"] * expected + ["heartbeat-ack"]


def test_a_device_that_is_not_connected_is_not_woken(admin, act, uid):
    act(registered)

    assert admin.wake_device(uid) is False


@pytest.mark.parametrize(
    ("authorization", "status", "detail"),
    [
        (None, 401, "Missing viewer token"),
        ("Bearer wrong", 401, "Invalid viewer token"),
        ("Device wrong", 401, "Invalid device token"),
        ("viewer", 404, "Device not found"),
    ],
)
def test_hello_without_standing_is_rejected(act, authorization, status, detail):
    async def story(device):
        async with device.control(greet=False) as socket:
            await socket.send_json(device.hello())
            rejection = await socket.receive_json(timeout=5)
            closing = await socket.receive(timeout=5)
            return rejection, closing.type, socket.close_code

    rejection, closing, code = act(story, authorization)

    assert rejection == {"type": "control-rejected", "status_code": status, "detail": detail}
    assert (closing, code) == (aiohttp.WSMsgType.CLOSE, 1008)


@pytest.mark.parametrize(
    ("order", "status", "detail"),
    [
        ("revoke_device_token", 401, "Invalid device token"),
        ("deactivate_device", 410, "Device is deactivated"),
    ],
)
def test_a_connected_device_that_loses_its_standing_is_rejected(
    admin, act, uid, order, status, detail
):
    async def story(device):
        await device.register()
        async with device.control() as socket:
            ordered = asyncio.ensure_future(beside(getattr(admin, order), uid))
            rejection = await socket.receive_json(timeout=5)
            await socket.receive(timeout=5)
            await ordered
            return rejection

    rejection = act(story)

    assert (rejection["status_code"], rejection["detail"]) == (status, detail)


def test_revoking_leaves_a_socket_under_the_viewer_token_alone(admin, act, uid, helpdesk):
    async def story(device):
        await device.register()
        device.authorization = f"Bearer {helpdesk.viewer_token}"
        async with device.control() as socket:
            admin.revoke_device_token(uid)
            await socket.send_json(socket_heartbeat(device))
            return await socket.receive_json(timeout=5)

    assert act(story)["type"] == "heartbeat-ack"


def test_whatever_the_device_says_against_the_protocol_is_recorded(admin, act):
    wrong = ["[]", "no JSON", '{"type":"hello"}', '{"type":"other"}', "[" * 100_000]

    async def story(device):
        await device.register()
        async with device.control() as socket:
            for text in wrong:
                await socket.send_str(text)
            await socket.send_bytes(json.dumps(socket_heartbeat(device)).encode())
            await socket.send_json(socket_heartbeat(device, sentAt="2026-11-15T21:22:14.5Z"))
            assert (await socket.receive_json(timeout=5))["type"] == "control-rejected"

    act(story)

    admin.wait_until(
        lambda: True if len(admin.violations()) >= 3 else None, 5, "three violations"
    )
    assert {entry["source"] for entry in admin.violations()} == {"control socket"}


def test_a_binary_frame_and_a_fractional_time_are_violations_but_answered(admin, act):
    async def story(device):
        await device.register()
        async with device.control() as socket:
            await socket.send_bytes(json.dumps(socket_heartbeat(device)).encode())
            await socket.send_json(socket_heartbeat(device, sentAt="2026-11-15T21:22:14.5Z"))
            return [(await socket.receive_json(timeout=5))["type"] for _ in range(2)]

    assert act(story) == ["heartbeat-ack"] * 2
    problems = [entry["problems"][0] for entry in admin.violations()]
    assert problems[0] == "the frame is binary"
    assert "sentAt" in problems[1]


def test_hello_comes_first_and_once(admin, act):
    async def story(device):
        await device.register()
        async with device.control(greet=False) as socket:
            await socket.send_json(socket_heartbeat(device))
            await socket.receive_json(timeout=5)
            await socket.send_json(device.hello())
            return (await socket.receive_json(timeout=5))["type"]

    assert act(story) == "control-ready"
    problems = [entry["problems"] for entry in admin.violations()]
    assert problems == [["hello is the first message and only the first"]] * 2


def on_control(admin, uid, happen, expect):
    """A story that connects, lets `happen` be done to the socket, and expects something."""

    async def story(device):
        await device.register()
        async with device.control() as socket:
            number = admin.wait_for_socket("control", lambda s: s["device_uid"] == uid)["id"]
            happen(number)
            return await expect(device, socket)

    return story


async def next_message(_device, socket):
    return await socket.receive(timeout=5)


@pytest.mark.parametrize(
    ("action", "details", "kind", "data"),
    [
        ("send_text", {"text": "{no JSON"}, aiohttp.WSMsgType.TEXT, "{no JSON"),
        ("send_binary", {"base64": "AP8="}, aiohttp.WSMsgType.BINARY, b"\x00\xff"),
        ("close", {"code": 1001, "reason": "x"}, aiohttp.WSMsgType.CLOSE, 1001),
        ("drop", {}, aiohttp.WSMsgType.CLOSED, None),
        ("reset", {}, aiohttp.WSMsgType.CLOSED, None),
    ],
)
def test_anything_can_be_done_to_an_open_socket(admin, act, uid, action, details, kind, data):
    def happen(number):
        admin.socket_action(number, action, **details)

    message = act(on_control(admin, uid, happen, next_message))

    assert (message.type, message.data) == (kind, data)


def test_fragments_and_messages_of_a_mebibyte_arrive_whole(admin, act, uid):
    pieces = [b'{"type":', b'"frag', b'mented"}']

    async def expect(_device, socket):
        return [await socket.receive(timeout=5) for _ in range(2)]

    def happen(number):
        admin.send_fragments(number, pieces)
        admin.send_text(number, "x" * (1 << 20))

    fragmented, large = act(on_control(admin, uid, happen, expect))

    assert fragmented.json() == {"type": "fragmented"}
    assert large.data == "x" * (1 << 20)


def test_garbage_beneath_the_websocket_breaks_it(admin, act, uid):
    def happen(number):
        admin.send_raw(number, b"\xff\xff\xff\xff this is no frame")

    assert act(on_control(admin, uid, happen, next_message)).type is aiohttp.WSMsgType.ERROR


def test_a_muted_socket_acknowledges_nothing(admin, act, uid):
    async def expect(device, socket):
        await socket.send_json(socket_heartbeat(device))
        await socket.ping()
        number = admin.wait_for_socket("control", lambda s: s["pings"] == 1)["id"]
        admin.socket_action(number, "unmute")
        await socket.send_json(socket_heartbeat(device))
        return await socket.receive_json(timeout=5), admin.socket(number)["received_count"]

    def happen(number):
        admin.socket_action(number, "mute")

    message, received = act(on_control(admin, uid, happen, expect))

    assert message["type"] == "heartbeat-ack"
    assert received == 3


def test_a_paused_socket_reads_nothing_until_it_goes_on(admin, act, uid):
    async def expect(device, socket):
        await socket.send_json(socket_heartbeat(device))
        with pytest.raises(asyncio.TimeoutError):
            await socket.receive(timeout=0.1)
        number = admin.wait_for_socket("control", lambda s: s["device_uid"] == uid)["id"]
        admin.socket_action(number, "resume_reading")
        return await socket.receive_json(timeout=5)

    def happen(number):
        admin.socket_action(number, "pause_reading")

    assert act(on_control(admin, uid, happen, expect))["type"] == "heartbeat-ack"


def test_a_device_that_reads_no_more_holds_nobody_up(admin, act, uid, helpdesk):
    async def story(device):
        await device.register()
        async with device.control():
            number = admin.wait_for_socket("control", lambda s: s["device_uid"] == uid)["id"]
            with helpdesk.client() as flooder:
                order = beside(flooder.send_text, number, "x" * 1_000_000, 50)
                flood = asyncio.ensure_future(order)
                filler = "x" * 100_000  # beyond what is buffered without waiting
                while await beside(lambda: admin.wake_device(uid, filler=filler)):
                    pass
                still_flooding = not flood.done()
                admin.socket_action(number, "drop")
                await flood
            return still_flooding

    assert act(story) is True


def test_ten_thousand_messages_go_out_back_to_back(admin, act, uid):
    async def expect(_device, socket):
        return [await socket.receive_str(timeout=5) for _ in range(10_000)]

    def happen(number):
        admin.send_text(number, '{"type":"agent_command.queued"}', repeat=10_000)

    assert len(act(on_control(admin, uid, happen, expect))) == 10_000


def test_the_upgrade_can_be_refused(admin, act):
    admin.fail("control", "status", status=503, body={"detail": "busy"})

    async def story(device):
        with pytest.raises(aiohttp.WSServerHandshakeError) as refused:
            async with device.control():
                pass
        await device.register()
        async with device.control():
            return refused.value.status

    assert act(story) == 503
    assert [entry["status"] for entry in admin.requests("control")][0] == 503


def session_of(message):
    assert message["type"] == "remote_session.requested"
    return message["session"]


def test_a_remote_session_from_request_to_offer(admin, act, uid):
    async def story(device):
        await device.register()
        async with device.control() as control:
            public_id = admin.request_remote_session(uid, metadata={"reason": "test"})
            session = session_of(await control.receive_json(timeout=5))
            path = f"/api/agent/remote/sessions/{session['public_id']}/status"
            await device.post(path, {"status": "agent_ready", "metadata": METADATA})
            url = session["control_urls"]["signaling"]
            async with device.session.ws_connect(url) as signaling:
                await device.post(path, {"status": "connecting", "metadata": METADATA})
                number = admin.wait_for_socket("signaling")["id"]
                admin.send_message(number, {"type": "offer", "sdp": "v=0"})
                offer = await signaling.receive_json(timeout=5)
                await signaling.close(code=1001)
            failed = {"status": "failed", "error_message": "no media", "metadata": METADATA}
            await device.post(path, failed)
            return public_id, session, offer

    public_id, session, offer = act(story)

    assert session["public_id"] == public_id
    assert session["metadata"] == {"reason": "test"}
    assert offer["type"] == "offer"
    reports = admin.wait_for_session_status(public_id, "failed")
    assert [entry["status"] for entry in reports] == ["agent_ready", "connecting", "failed"]
    assert reports[-1]["error_message"] == "no media"
    signaling = admin.wait_for_socket("signaling", lambda s: s["session"] == public_id)
    assert signaling["device_uid"] == uid
    assert admin.violations() == []


def test_a_session_can_be_requested_without_or_with_another_signaling_address(admin, act, uid):
    async def story(device):
        await device.register()
        async with device.control() as control:
            admin.request_remote_session(uid, signaling=False)
            admin.request_remote_session(uid, signaling="wss://localhost:1/{session}")
            return [session_of(await control.receive_json(timeout=5)) for _ in range(2)]

    without, elsewhere = act(story)

    assert without["control_urls"] == {}
    expected = f"wss://localhost:1/{elsewhere['public_id']}"
    assert elsewhere["control_urls"] == {"signaling": expected}


def test_signaling_needs_the_sessions_ticket_and_the_device_only_listens(admin, act, uid):
    async def story(device):
        await device.register()
        async with device.control() as control:
            admin.request_remote_session(uid)
            session = session_of(await control.receive_json(timeout=5))
        url = session["control_urls"]["signaling"]
        refused = []
        for wrong in (url + "x", url.replace("/rs_", "/rs_none")):
            with pytest.raises(aiohttp.WSServerHandshakeError) as error:
                await device.session.ws_connect(wrong)
            refused.append(error.value.status)
        async with device.session.ws_connect(url) as signaling:
            await signaling.send_str("{}")
            await signaling.close()
        return refused

    assert act(story) == [403, 404]
    admin.wait_until(lambda: admin.violations() or None, 5, "violation")
    assert admin.violations()[0]["source"] == "signaling socket"


def test_a_status_for_an_unknown_session_is_refused(act):
    async def story(device):
        await device.register()
        body = {"status": "agent_ready", "metadata": METADATA}
        return await device.post("/api/agent/remote/sessions/rs_none/status", body)

    assert act(story).status == 404


def test_the_control_path_answers_upgrades_only(act):
    async def story(device):
        await device.register()
        return await device.get(CONTROL)

    assert act(story).status == 400
