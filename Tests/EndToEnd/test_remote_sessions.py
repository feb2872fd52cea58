"""Remote sessions: from the consultant's request to the reason why there is no picture."""

from __future__ import annotations

import pytest

NO_MEDIA = ("macOS remote media engine needs GoogleWebRTC XCFramework plus ScreenCaptureKit "
            "capture. Signaling works, media is not bundled yet.")

METADATA = {
    "platform": "macos",
    "remote_engine": "screen_capturekit-webrtc",
    "video_codec": "vp8",
    "signaling": "wss",
    "data_channel": "orv-control",
    "screen_recording_permission": "required",
    "accessibility_permission": "required",
    "input_monitoring_permission": "required",
}


def told(reports: list[dict]) -> list[tuple]:
    return [(report["status"], report["error_message"]) for report in reports]


@pytest.fixture
def session(device, admin):
    """session() asks for a session and returns its number and its signaling socket."""

    def ask() -> tuple[str, dict]:
        public_id = admin.request_remote_session(device.uid)
        admin.wait_for_session_status(public_id, "connecting")
        return public_id, admin.wait_for_socket(
            "signaling", lambda socket: socket["session"] == public_id)

    return ask


def test_an_offer_ends_the_session_with_the_reason(device, admin, session):
    public_id, signaling = session()
    assert signaling["authorization"] is None, "the address authorises, no token goes there"
    admin.send_message(signaling["id"], {"type": "offer", "sdp": "v=0"})
    reports = admin.wait_for_session_status(public_id, "failed")
    assert told(reports) == [("agent_ready", None), ("connecting", None), ("failed", NO_MEDIA)]
    assert [report["metadata"] for report in reports] == [METADATA] * 3
    assert device.wait_for_end(admin, signaling["id"])["close_code"] == 1001
    log = device.mac.read_log()
    story = [f"[INFO] Remote session requested: {public_id}\n",
             f"[INFO] Remote signaling connected: {public_id}\n",
             "[INFO] Remote signaling message type=offer\n",
             f"[ERROR] Remote session failed: {NO_MEDIA}\n"]
    places = [log.index(line) for line in story]
    assert places == sorted(places)


def test_without_a_signaling_address_there_is_nothing_to_open(device, admin):
    public_id = admin.request_remote_session(device.uid, signaling=False)
    reports = admin.wait_for_session_status(public_id, "failed")
    assert told(reports) == [("agent_ready", None),
                             ("failed", "Remote session is missing signaling URL.")]
    assert [report["metadata"] for report in reports] == [METADATA] * 2


@pytest.mark.parametrize("message, kind", [
    ('{"type": "candidate"}', "candidate"), ("{}", "message"), ('{"type": 7}', "message"),
    ('{"type": "Offer"}', "Offer")])
def test_other_signaling_messages_are_logged_and_awaited(device, admin, session, message, kind):
    public_id, signaling = session()
    before = device.mac.read_log().count(f"[INFO] Remote signaling message type={kind}\n")
    admin.send_text(signaling["id"], message)
    device.agent.wait_for_log(f"[INFO] Remote signaling message type={kind}\n", before + 1)
    assert admin.socket(signaling["id"])["open"]
    admin.send_message(signaling["id"], {"type": "offer"})
    assert len(admin.wait_for_session_status(public_id, "failed")) == 3


@pytest.mark.parametrize("action, details, words", [
    ("close", {"code": 1000}, "The server closed the WebSocket with code 1000"),
    ("close", {"code": 1008}, "The server closed the WebSocket with code 1008"),
    ("drop", {}, "The server ended the connection without closing the WebSocket"),
    ("send_text", {"text": "[1]"}, "WebSocket JSON object expected."),
    ("send_text", {"text": "{"}, "Not valid JSON"),
])
def test_signaling_that_breaks_is_a_failure(device, admin, session, action, details, words):
    public_id, signaling = session()
    admin.socket_action(signaling["id"], action, **details)
    reports = admin.wait_for_session_status(public_id, "failed")
    assert [report["status"] for report in reports] == ["agent_ready", "connecting", "failed"]
    assert words in reports[-1]["error_message"]
    assert device.open_socket(admin), "the control connection has nothing to do with it"


@pytest.mark.parametrize("address, words", [
    ("{url}/api/remote/sessions/none/signaling?ticket=x", "404"),
    ("{url}/api/remote/sessions/{{session}}/signaling?ticket=wrong", "403"),
    ("{plain}/api/remote/sessions/{{session}}/signaling?ticket={{ticket}}", ""),
    ("wss://localhost:1/x", ""),
])
def test_signaling_that_cannot_be_opened_is_a_failure(device, admin, desk, address, words):
    url = desk.url.replace("https://", "wss://")
    signaling = address.format(url=url, plain=url.replace("wss://", "ws://"))
    public_id = admin.request_remote_session(device.uid, signaling=signaling)
    reports = admin.wait_for_session_status(public_id, "failed")
    assert [report["status"] for report in reports] == ["agent_ready", "failed"]
    assert words in reports[-1]["error_message"] != ""


def test_commands_flow_while_sessions_are_open(device, admin, session):
    first, second = session(), session()
    assert device.run(admin, "shell", {"command": "echo hi"})["stdout"] == "hi\n"
    admin.send_message(second[1]["id"], {"type": "offer"})
    admin.wait_for_session_status(second[0], "failed")
    assert admin.socket(first[1]["id"])["open"], "sessions share nothing"
    admin.send_message(first[1]["id"], {"type": "offer"})
    admin.wait_for_session_status(first[0], "failed")


def test_a_session_outlives_the_control_connection(device, admin, session):
    public_id, signaling = session()
    control = device.open_socket(admin)
    admin.close_socket(control["id"])
    device.open_socket(admin, after=control["id"])
    assert admin.socket(signaling["id"])["open"]
    admin.send_message(signaling["id"], {"type": "offer"})
    assert admin.wait_for_session_status(public_id, "failed")[-1]["error_message"] == NO_MEDIA


def test_a_report_that_is_refused_is_logged_and_the_session_goes_on(device, admin):
    admin.fail("remote_session_status", "status", status=422)
    public_id = admin.request_remote_session(device.uid, signaling=False)
    reports = admin.wait_for_session_status(public_id, "failed")
    assert [report["status"] for report in reports] == ["failed"]
    assert ("[ERROR] Remote session status update failed status=agent_ready: HTTP 422"
            in device.mac.read_log())


def test_the_end_of_the_process_says_goodbye_to_the_session_too(start_agent, admin, device_uid):
    agent = start_agent()
    admin.wait_until_connected(device_uid)
    public_id = admin.request_remote_session(device_uid)
    admin.wait_for_session_status(public_id, "connecting")
    socket = admin.wait_for_socket("signaling", lambda found: found["session"] == public_id)
    agent.stop()
    ended = admin.wait_until(
        lambda: found if not (found := admin.socket(socket["id"]))["open"] else None, 5, "close")
    assert ended["close_code"] == 1001
