"""Chat in both directions: the consultant's messages become files, the user's files replies."""

from __future__ import annotations

import json

import pytest

FOLDER = "/Users/Shared/Wsparo Brenvox/remote-chat"


@pytest.fixture
def mac(mac, desk):
    mac.write_settings(serverBaseUrl=desk.url, viewerToken=desk.viewer_token,
                       chatPollIntervalSeconds=1)
    return mac


@pytest.fixture
def uid(agent, admin, device_uid):
    agent.wait_for_log("Heartbeat sent successfully.")
    admin.wait_until_connected(device_uid)
    return device_uid


def files(mac, direction):
    folder = mac.place(FOLDER)
    return sorted(folder.glob(f"*.{direction}.json")) if folder.exists() else []


def reply(mac, conversation, number, text):
    """As the companion application writes it: whole, or not there."""
    folder = mac.place(FOLDER)
    folder.mkdir(parents=True, exist_ok=True)
    message = {"id": f"8B1F0C9A-0000-4000-8000-{number:012}", "publicId": conversation,
               "direction": "outgoing", "sender": "Anna", "text": text,
               "createdAt": "2026-03-01T09:15:02Z"}
    file = folder / f"{conversation}.{1772356502000 + number}.{message['id']}.outgoing.json"
    (folder / "new").write_text(json.dumps(message))
    (folder / "new").rename(file)


def test_a_message_goes_each_way(agent, admin, mac, uid):
    sent = admin.send_chat(uid, "Dzień dobry 🖥️", sender="Jan Kos", conversation="rozmowa-1")
    assert admin.wait_for_command(sent["command_id"])["status"] == "completed"
    [file] = files(mac, "incoming")
    message = json.loads(file.read_text())
    assert (message["publicId"], message["sender"], message["text"]) == (
        "rozmowa-1", "Jan Kos", "Dzień dobry 🖥️")
    assert mac.place(FOLDER).stat().st_mode & 0o7777 == 0o777
    assert file.stat().st_mode & 0o777 == 0o666

    reply(mac, "rozmowa-1", 1, "Drukarka „nie” działa")
    [answer] = admin.wait_for_chat_replies("rozmowa-1")
    assert answer["text"] == "Drukarka „nie” działa"
    agent.wait_until(lambda: not files(mac, "outgoing"), "deletion of the sent file")
    agent.wait_for_log("Remote chat reply sent. id=8B1F0C9A-0000-4000-8000-000000000001 reason=")


def test_a_backlog_arrives_in_order_over_connections_that_are_kept(start_agent, admin, mac):
    for number in range(60, 0, -1):
        reply(mac, "rozmowa-2", number, str(number))
    agent = start_agent()
    replies = admin.wait_for_chat_replies("rozmowa-2", count=60)
    assert [one["text"] for one in replies] == [str(number) for number in range(1, 61)]
    # At any time no more than two requests are on their way: a reply and a poll for notifications.
    connections = {entry["connection"] for entry in admin.requests() if entry["status"] != 101}
    assert len(connections) <= 2
    agent.wait_until(lambda: not files(mac, "outgoing"), "deletion of the sent files")


def test_a_long_queue_of_replies_holds_up_no_command(start_agent, admin, mac, desk, device_uid):
    # The first to ask for the replies to be sent are the commands' fetches, not the polls.
    mac.write_settings(serverBaseUrl=desk.url, viewerToken=desk.viewer_token,
                       chatPollIntervalSeconds=5)
    admin.fail("chat_message", "delay", count=100, seconds=0.5)
    for number in range(100):
        reply(mac, "rozmowa-4", number, str(number))
    start_agent()
    admin.wait_until_connected(device_uid)
    for _ in range(3):
        command = admin.run_command(device_uid, "shell", {"command": "true"})
        assert command["status"] == "completed"
    assert len(files(mac, "outgoing")) > 50
    admin.clear_faults()


def test_a_refused_reply_stays_and_is_tried_again(agent, admin, mac, uid):
    admin.fail("chat_message", "status", status=422)
    reply(mac, "rozmowa-3", 7, "Halo")
    agent.wait_for_log("[ERROR] Remote chat reply send failed id=8B1F0C9A")
    [answer] = admin.wait_for_chat_replies("rozmowa-3")
    assert answer["text"] == "Halo"
