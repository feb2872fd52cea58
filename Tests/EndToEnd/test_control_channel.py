"""The control socket: what is said on it, in which order, and how it ends."""

from __future__ import annotations

import json
from dataclasses import dataclass
from typing import Callable, Optional

import pytest
from device import Device
from helpdesk.client import HelpdeskClient

MEBIBYTE = 1 << 20


def hold_up(device, admin, name: str):
    """Queues a command that runs until the returned file exists; the command's id with it."""
    begun, gate = device.mac.place(f"/tmp/{name}-begun"), device.mac.place(f"/tmp/{name}")
    identifier = admin.queue_command(device.uid, "shell", {
        "shell": "sh", "command": f"touch {begun}; until [ -e {gate} ]; do sleep 0.02; done"})
    device.agent.wait_until(begun.exists, "running command")
    return gate, identifier


def wait_for_marker(device, admin, socket: dict, name: str) -> str:
    """The log, once everything that was sent before has been handled."""
    admin.send_message(socket["id"], {"type": name})
    return device.agent.wait_for_log(f"Control WSS message type={name}\n")


def test_the_hello_says_who_speaks_and_what_it_can(device, admin):
    socket = device.open_socket(admin)
    said = admin.socket(socket["id"])["received"]
    assert said[0]["json"] == {
        "type": "hello",
        "device_uid": device.uid,
        "support_id": device.mac.read_state()["supportId"],
        "hostname": "MacBook-Anny.local",
        "agent_version": "0.2.55",
        "status": "online",
        "capabilities": {
            "remote": True, "webrtc": True, "clipboard": True, "pre_login": False,
            "platform": "macos", "screen_capture": "ScreenCaptureKit",
            "permissions_required": ["screen_recording", "accessibility", "input_monitoring"],
        },
    }
    assert socket["authorization"] == f"Device {device.mac.read_state()['deviceToken']}"
    assert len(said) == 1
    log = device.mac.read_log()
    assert "[INFO] Control WSS connecting: wss://localhost:" in log
    assert "[INFO] Control WSS ready.\n" in log


@pytest.mark.parametrize("message, logged", [
    ({"type": "news", "text": "x"}, "[INFO] Control WSS message type=news\n"),
    ({"hello": "you"}, "[INFO] Control WSS message type=message\n"),
    ({"type": 17, "session": {}}, "[INFO] Control WSS message type=message\n"),
    ({"type": None}, "[INFO] Control WSS message type=message\n"),
    ({"type": "control-ready"}, "[INFO] Control WSS ready.\n"),
    ({"type": "remote_session.requested"}, "[WARN] Malformed remote_session.requested event.\n"),
    ({"type": "remote_session.requested", "session": {"public_id": 5}},
     "[WARN] Malformed remote_session.requested event.\n"),
    ({"type": "agent_command.queued", "command_type": 5},
     "[INFO] Control WSS wake-up received for command type=-\n"),
])
def test_each_kind_of_message_is_logged_and_survived(device, admin, message, logged):
    socket = device.open_socket(admin)
    before = device.mac.read_log().count(logged)
    admin.send_message(socket["id"], message)
    device.agent.wait_for_log(logged, before + 1)
    assert device.open_socket(admin)["id"] == socket["id"]


def test_an_acknowledged_heartbeat_is_not_worth_a_line(device, admin):
    socket = device.open_socket(admin)
    wait_for_marker(device, admin, socket, "before-ack")
    admin.send_message(socket["id"], {"type": "heartbeat-ack"})
    log = wait_for_marker(device, admin, socket, "after-ack")
    between = log.partition("type=before-ack\n")[2]
    lines = [line for line in between.splitlines() if "Control WSS" in line]
    assert [line.split("] ")[1] for line in lines] == ["Control WSS message type=after-ack"]


def test_a_wake_up_without_a_type_wakes_all_the_same(device, admin):
    socket = device.open_socket(admin)
    identifier = admin.queue_command(device.uid, "shell", {"command": "echo hi"}, wake="none")
    admin.send_message(socket["id"], {"type": "agent_command.queued"})
    assert admin.wait_for_command(identifier)["result"]["stdout"] == "hi\n"


def test_messages_come_in_every_wrapping(device, admin):
    socket = device.open_socket(admin)
    number = socket["id"]
    admin.send_binary(number, b'{"type": "binary"}')
    admin.send_fragments(number, [b'{"type"', b"", b': "frag', b'ments"}'])
    admin.send_fragments(number, [b'{"type": ', b'"binary-fragments"}'], binary=True)
    admin.send_text(number, ' \n{"type": "za\\u017c\\u00f3\\u0142\\u0107 \\ud83d\\udc22"} ')
    log = wait_for_marker(device, admin, socket, "last-wrapping")
    for name in ("binary", "fragments", "binary-fragments", "zażółć 🐢"):
        assert f"[INFO] Control WSS message type={name}\n" in log


def test_a_mebibyte_is_not_too_much(device, admin):
    socket = device.open_socket(admin)
    head = '{"type": "mebibyte", "padding": "'
    admin.send_text(socket["id"], head + "x" * (MEBIBYTE - len(head) - 2) + '"}')
    device.agent.wait_for_log("[INFO] Control WSS message type=mebibyte\n")
    assert device.open_socket(admin)["id"] == socket["id"]


def test_pings_are_answered_while_a_command_runs(device, admin):
    socket = device.open_socket(admin)
    gate, identifier = hold_up(device, admin, "ping-gate")
    admin.socket_action(socket["id"], "ping")
    device.agent.wait_until(lambda: admin.socket(socket["id"])["pongs"] > socket["pongs"], "pong")
    assert not admin.command(identifier)["final"]
    gate.touch()
    assert admin.wait_for_command(identifier)["status"] == "completed"


def test_messages_wait_for_the_one_before_and_keep_their_order(device, admin):
    socket = device.open_socket(admin)
    gate, identifier = hold_up(device, admin, "order-gate")
    for number in range(200):
        admin.send_message(socket["id"], {"type": f"waiting-{number}"})
    admin.socket_action(socket["id"], "ping")
    assert "type=waiting-" not in device.mac.read_log()
    gate.touch()
    admin.wait_for_command(identifier)
    log = device.agent.wait_for_log("Control WSS message type=waiting-199\n")
    order = [line.rpartition("-")[2] for line in log.splitlines() if "type=waiting-" in line]
    assert order == [str(number) for number in range(200)]


def test_a_connection_that_breaks_while_a_command_runs_is_replaced_before_its_end(device, admin):
    socket = device.open_socket(admin)
    gate, identifier = hold_up(device, admin, "replace-gate")
    admin.send_message(socket["id"], {"type": "said-before-the-break"})
    admin.socket_action(socket["id"], "ping")
    device.agent.wait_until(lambda: admin.socket(socket["id"])["pongs"] > socket["pongs"], "pong")
    admin.socket_action(socket["id"], "reset")
    again = device.open_socket(admin, after=socket["id"])
    assert not admin.command(identifier)["final"]
    gate.touch()
    assert admin.wait_for_command(identifier)["status"] == "completed"
    device.agent.wait_for_log("Control WSS message type=said-before-the-break\n")
    assert device.open_socket(admin)["id"] == again["id"]


def test_a_close_in_good_order_is_followed_at_once(device, admin):
    socket = device.open_socket(admin)
    failures = device.mac.read_log().count("Control WSS disconnected")
    admin.close_socket(socket["id"], 1001)
    device.open_socket(admin, after=socket["id"])
    assert device.mac.read_log().count("Control WSS disconnected") == failures


def test_the_end_of_the_process_is_a_proper_goodbye(start_agent, admin, device_uid):
    agent = start_agent()
    admin.wait_until_connected(device_uid)
    [socket] = admin.sockets("control", device_uid)
    agent.stop()
    ended = admin.wait_until(
        lambda: found if not (found := admin.socket(socket["id"]))["open"] else None, 5, "close")
    assert ended["close_code"] == 1001


def test_a_server_that_closes_at_once_does_not_make_it_spin(start_agent, admin, mac, device_uid):
    agent = start_agent()
    admin.wait_until_connected(device_uid)
    for count in (1, 2):
        socket = admin.wait_for_socket(
            "control", lambda found: found["device_uid"] == device_uid and found["ready"])
        assert len(admin.sockets("control", device_uid)) == count
        admin.close_socket(socket["id"])
    agent.wait_for_log("[ERROR] Control WSS disconnected: ")
    assert "The server closed the WebSocket with code 1000" in mac.read_log()
    assert mac.read_log().count("Control WSS connecting") == 2


def test_a_server_that_cannot_be_trusted_hears_no_hello(start_agent, admin, mac, desk, device_uid):
    start_agent("--once").wait()
    listener = admin.open_listener("unknown-ca")
    mac.write_settings(serverBaseUrl=listener["url"], viewerToken=desk.viewer_token)
    agent = start_agent()
    log = agent.wait_for_log("[ERROR] Control WSS disconnected: ")
    admin.close_listener(listener["id"])
    assert "(serverCertificateUntrusted)" in log.partition("Control WSS disconnected")[2]
    assert admin.requests("control") == []


PROTOCOL = "The server violated the WebSocket protocol"
NO_OBJECT = "WebSocket JSON object expected."
HUNG_UP = "The server ended the connection without closing the WebSocket"


@dataclass(frozen=True)
class Fault:
    """What is done to an open connection, a socket as the helpdesk describes it; what the log says
    of its end; the close code that the helpdesk sees, where it sees one (who breaks the protocol
    is left without waiting for an answer); and what the user is told."""

    strike: Callable[[HelpdeskClient, dict], object]
    words: str
    code: Optional[int] = None
    issue: str = "temporarilyUnavailable"


def sends(text: str) -> Callable[[HelpdeskClient, dict], object]:
    return lambda admin, socket: admin.send_text(socket["id"], text)


def sends_raw(data: bytes) -> Callable[[HelpdeskClient, dict], object]:
    return lambda admin, socket: admin.send_raw(socket["id"], data)


def does(action: str, **details: object) -> Callable[[HelpdeskClient, dict], object]:
    return lambda admin, socket: admin.socket_action(socket["id"], action, **details)


def drops_within_a_message(admin: HelpdeskClient, socket: dict) -> None:
    admin.send_raw(socket["id"], b"\x81\x05{")
    admin.socket_action(socket["id"], "drop")


def deactivates_for_a_moment(admin: HelpdeskClient, socket: dict) -> None:
    admin.deactivate_device(socket["device_uid"])
    admin.reactivate_device(socket["device_uid"])


FAULTS = {
    "text that is no JSON": Fault(sends("dzień dobry"), "Not valid JSON at byte", 1001),
    "an empty message": Fault(sends(""), "Not valid JSON", 1001),
    "an array": Fault(sends("[{}]"), NO_OBJECT, 1001),
    "deep nesting": Fault(sends('{"a":' * 20_000), "JSON nested deeper than 512 levels.", 1001),
    "invalid UTF-8": Fault(sends_raw(b"\x81\x02\xc3\x28"), PROTOCOL),
    "an unknown kind of frame": Fault(sends_raw(b"\x83\x00"), PROTOCOL),
    "a byte over a mebibyte": Fault(sends(" " * (MEBIBYTE + 1)),
                                    "The server sent a message over the limit"),
    "a reset": Fault(does("reset"), "(networkConnectionLost)"),
    "a drop": Fault(does("drop"), HUNG_UP),
    "a drop within a message": Fault(drops_within_a_message, HUNG_UP),
    "an error code": Fault(does("close", code=1011, reason="internal error"),
                           "The server closed the WebSocket with code 1011"),
    "no code": Fault(sends_raw(b"\x88\x00"), "The server closed the WebSocket without a code"),
    "a rejection without reasons": Fault(sends('{"type": "control-rejected"}'), "HTTP 401", 1001),
    "a rejection with odd reasons": Fault(
        sends('{"type": "control-rejected", "status_code": "410", "detail": ["x"]}'),
        "HTTP 401", 1001),
    "a revoked token": Fault(lambda admin, socket: admin.revoke_device_token(socket["device_uid"]),
                             "HTTP 401", issue="invalidDeviceToken"),
    "a deactivated device": Fault(deactivates_for_a_moment, "HTTP 410", issue="deviceDeactivated"),
}


@pytest.fixture(scope="module")
def broken(tmp_path_factory, desk):
    """One connected Mac for each fault, all struck at once, so that they wait side by side; each
    with the socket that broke."""
    devices: dict[str, tuple[Device, dict]] = {}
    folder = tmp_path_factory.mktemp("broken")
    try:
        with desk.client() as admin:
            for number, name in enumerate(FAULTS):
                devices[name] = Device(folder / str(number), name, desk), {}
            for name, (device, _) in devices.items():
                devices[name] = device, device.open_socket(admin)
            for name, (_, socket) in devices.items():
                FAULTS[name].strike(admin, socket)
        yield devices
    finally:
        for device, _ in devices.values():
            device.stop()


@pytest.mark.xdist_group("broken connections")
@pytest.mark.parametrize("name", FAULTS)
def test_a_connection_that_breaks_is_reported_and_opened_again(broken, admin, name):
    (device, socket), fault = broken[name], FAULTS[name]
    ended = device.wait_for_end(admin, socket["id"])
    log = device.agent.wait_for_log("[ERROR] Control WSS disconnected: ")
    told = log.partition("[ERROR] Control WSS disconnected: ")[2].splitlines()[0]
    assert fault.words in told
    assert fault.code in (None, ended["close_code"])
    device.agent.wait_for_issue(fault.issue)
    again = device.open_socket(admin, after=socket["id"])
    assert again["opened_at"] - ended["closed_at"] > 1.5, "it waits two seconds"
    assert device.run(admin, "shell", {"command": "echo alive"})["stdout"] == "alive\n"
    assert len(device.control_sockets(admin)) == 2


@pytest.mark.xdist_group("broken connections")
def test_a_revoked_token_is_dropped_and_the_organisations_used(broken, admin):
    device, socket = broken["a revoked token"]
    assert socket["authorization"].startswith("Device ")
    again = device.open_socket(admin, after=socket["id"])
    assert again["authorization"].startswith("Bearer ")
    assert "deviceToken" not in device.mac.read_state()
    # The next inventory brings a token of its own again, and with it everything is as before.
    device.run(admin, "force_audit")
    assert device.mac.read_state()["deviceToken"]
    assert "connectionIssue" not in device.mac.read_state()


def test_a_deactivated_device_keeps_its_token(broken, admin):
    device, socket = broken["a deactivated device"]
    assert device.open_socket(admin, after=socket["id"])["authorization"] == (
        socket["authorization"])


@pytest.mark.parametrize("status", [403, 503])
def test_a_refused_upgrade_tells_its_status(start_agent, admin, status):
    # One may still meet the last attempt of an agent before this one.
    admin.fail("control", "status", count=3, status=status, body={"detail": "no sockets today"})
    agent = start_agent()
    log = agent.wait_for_log("[ERROR] Control WSS disconnected: ")
    told = log.partition("[ERROR] Control WSS disconnected: ")[2].splitlines()[0]
    assert str(status) in told and "(badServerResponse)" in told
    agent.wait_for_issue("temporarilyUnavailable")


def test_a_thousand_wake_ups_lose_nothing(device, admin):
    socket = device.open_socket(admin)
    identifiers = admin.queue_commands(
        device.uid, [("shell", {"command": "true", "shell": "sh"})] * 20, wake="none")
    wake_up = json.dumps({"type": "agent_command.queued", "command_type": "shell"})
    admin.send_text(socket["id"], wake_up, repeat=1000)
    for identifier in identifiers:
        statuses = [entry["status"] for entry in admin.wait_for_command(identifier)["history"]]
        assert statuses == ["queued", "completed"]
