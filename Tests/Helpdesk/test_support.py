"""Chat, tickets, customers and update packages."""

from __future__ import annotations

import asyncio
import base64
import contextlib
import hashlib
import re
import sqlite3
import time
from pathlib import Path

import aiohttp
import pytest

from helpdesk.client import HelpdeskError

MANIFEST = (
    "/api/agent/viewer/updates/manifest"
    "?platform=macos&architecture=arm64&current_version=0.2.55&channel=stable"
)


async def registered(device):
    await device.register()
    return device.authorization


def reply(conversation, text="Już sprawdzam", number="A"):
    return {
        "text": text,
        "sender": "Ola",
        "public_id": conversation,
        "client_message_id": f"0D5C1C0E-0000-4000-8000-00000000000{number}",
        "sent_at": "2026-11-15T21:22:14Z",
    }


def test_a_consultants_message_goes_out_and_the_reply_is_kept_once(admin, act, uid):
    token = act(registered)
    sent = admin.send_chat(uid, "Dzień dobry", sender="Konsultantka Ewa")

    async def story(device):
        [command] = (await device.pending()).json
        conversation = command["payload"]["public_id"]
        path = f"/api/agent/devices/{uid}/chat-messages"
        answers = [await device.post(path, reply(conversation)) for _ in range(3)]
        answers.append(await device.post(path, reply(conversation, "I jeszcze jedno", "B")))
        return command, answers

    command, answers = act(story, token)

    assert command["command_type"] == "user_notify"
    assert command["payload"]["message"] == "Dzień dobry"
    assert command["payload"]["sender"] == "Konsultantka Ewa"
    assert command["payload"]["chat_message_id"] == sent["id"]
    assert sent["conversation"] == command["payload"]["public_id"] == f"device-{uid}"
    assert [answer.status for answer in answers] == [200] * 4
    replies = admin.wait_for_chat_replies(sent["conversation"], count=2)
    assert [entry["text"] for entry in replies] == ["Już sprawdzam", "I jeszcze jedno"]
    assert [entry["deliveries"] for entry in replies] == [3, 1]
    messages = admin.conversation(sent["conversation"])
    assert [entry["direction"] for entry in messages] == ["from_consultant"] + ["from_user"] * 2
    assert admin.violations() == []


def test_a_reply_in_an_unknown_conversation_opens_it(admin, act, uid):
    async def story(device):
        await device.register()
        path = f"/api/agent/devices/{uid}/chat-messages"
        return await device.post(path, reply("conv/ąę?"))

    assert act(story).status == 200
    assert admin.conversation("conv/ąę?")[0]["sender"] == "Ola"
    assert "conv/ąę?" in [entry["public_id"] for entry in admin.conversations()]


def draft(uid, email="jan@firma.example", number="1", attachments=()):
    return {
        "device_uid": uid,
        "support_id": None,
        "client_request_id": f"6F9619FF-8B86-D011-B42D-00C04FC964F{number}",
        "customer_name": "Jan Próbny",
        "customer_email": email,
        "cc_emails": [],
        "phone": "+48 600 000 000",
        "subject": "Nie drukuje \"nic\" 🖨️",
        "description": "<p>Od rana.</p>",
        "priority": "normal",
        "ticket_type": "incident",
        "source_metadata": {
            "client_app": {
                "platform": "macos",
                "agent_version": "0.2.55",
                "submitted_at": "2026-11-15T21:22:14Z",
            }
        },
        "attachments": list(attachments),
    }


def test_a_ticket_with_attachments_is_kept_once_per_request(admin, act, uid):
    data = bytes(range(256)) * 4096
    attachments = [
        {
            "filename": "zrzut ekranu.png",
            "content_type": "image/png",
            "data_base64": base64.b64encode(data).decode(),
            "inline_placeholder": "img-1",
        },
        {"filename": "pusty.txt", "content_type": "text/plain", "data_base64": ""},
    ]

    async def story(device):
        await device.register()
        body = draft(uid, attachments=attachments)
        return [(await device.post("/api/agent/tickets", body)).json for _ in range(2)]

    first, second = act(story)

    assert first == second
    assert first["status"] == "open"
    [ticket] = [t for t in admin.tickets() if t["public_id"] == first["public_id"]]
    assert ticket["ticket_number"] == first["ticket_number"]
    assert ticket["body"]["subject"] == "Nie drukuje \"nic\" 🖨️"
    names = [(entry["filename"], entry["inline_placeholder"]) for entry in ticket["attachments"]]
    assert names == [("zrzut ekranu.png", "img-1"), ("pusty.txt", None)]
    assert ticket["attachments"][0]["sha256"] == hashlib.sha256(data).hexdigest()
    assert admin.ticket_attachment(first["public_id"], 0) == data
    assert admin.violations() == []


def test_a_ticket_without_device_is_accepted_and_bad_base64_is_not(act, uid):
    broken = {"filename": "a", "content_type": "b", "data_base64": "no\nBase64"}

    async def story(device):
        good = await device.post("/api/agent/tickets", draft(None, number="2"))
        body = draft(None, number="3", attachments=[broken])
        return good, await device.post("/api/agent/tickets", body)

    good, bad = act(story)

    assert (good.status, bad.status) == (200, 422)


def test_customers_are_notified_of_answers_page_by_page(admin, act, helpdesk):
    admin.create_customer("ewa@strony.example", "Ewa Nowa", "hasło🔑")

    async def open_ticket(device):
        device.authorization = f"Bearer {helpdesk.viewer_token}"
        body = draft(None, email="EWA@strony.example", number="4")
        return (await device.post("/api/agent/tickets", body)).json

    ticket = act(open_ticket)
    ids = [admin.answer_ticket(ticket["public_id"], f"Odpowiedź {n}") for n in range(3)]

    async def follow(device):
        login = {"email": "ewa@strony.example", "password": "hasło🔑"}
        session = (await device.post("/api/customer/session", login)).json
        headers = {"X-Customer-Session": session["access_token"]}
        pages, cursor = [], 0
        while not pages or pages[-1]["has_more"]:
            path = f"/api/customer/ticket-notifications?after_message_id={cursor}&limit=2"
            pages.append((await device.get(path, headers=headers)).json)
            cursor = pages[-1]["cursor"]
        path = f"/api/customer/ticket-notifications?after_message_id={cursor}&limit=2"
        return session, pages, (await device.get(path, headers=headers)).json

    session, pages, after = act(follow, None)

    assert session["customer"]["full_name"] == "Ewa Nowa"
    assert [[item["message_id"] for item in page["items"]] for page in pages] == [ids[:2], ids[2:]]
    assert pages[0]["items"][0]["ticket_number"] == ticket["ticket_number"]
    assert pages[0]["items"][0]["message_text"] == "Odpowiedź 0"
    assert after == {"items": [], "cursor": ids[-1], "has_more": False}
    assert admin.violations() == []


def test_an_organisations_tickets_are_seen_by_those_who_may(admin, act, helpdesk):
    firm = {"organization_name": "Firma X"}
    admin.create_customer("autor@x.example", "Autor", "a", **firm)
    admin.create_customer("kolega@x.example", "Kolega", "b", **firm)
    admin.create_customer(
        "szef@x.example", "Szef", "c", can_view_organization_tickets=True, **firm
    )

    async def story(device):
        device.authorization = f"Bearer {helpdesk.viewer_token}"
        body = draft(None, email="autor@x.example", number="5")
        ticket = (await device.post("/api/agent/tickets", body)).json
        admin.answer_ticket(ticket["public_id"], "Odpowiedź")
        device.authorization = None
        seen = {}
        for name, password in (("autor", "a"), ("kolega", "b"), ("szef", "c")):
            login = {"email": f"{name}@x.example", "password": password}
            session = (await device.post("/api/customer/session", login)).json
            path = "/api/customer/ticket-notifications?after_message_id=0&limit=9"
            headers = {"X-Customer-Session": session["access_token"]}
            seen[name] = len((await device.get(path, headers=headers)).json["items"])
        return seen

    assert act(story) == {"autor": 1, "kolega": 0, "szef": 1}


def test_wrong_passwords_and_sessions_are_refused(admin, act):
    admin.create_customer("adam@firma.example", "Adam", "tajne")

    async def story(device):
        path = "/api/customer/ticket-notifications?after_message_id=0&limit=1"
        wrong = {"X-Customer-Session": "wrong"}
        return [
            await device.post("/api/customer/session", {"email": "adam@firma.example",
                                                        "password": "inne"}),
            await device.post("/api/customer/session", {"email": "nikt", "password": "tajne"}),
            await device.get(path),
            await device.get(path, headers=wrong),
        ]

    answers = act(story, None)

    assert [(answer.status, answer.detail) for answer in answers] == [
        (401, "Invalid email or password"),
        (401, "Invalid email or password"),
        (401, "Missing customer session"),
        (401, "Invalid customer session"),
    ]


def test_a_customers_session_ends_with_its_time(admin, act, helpdesk):
    admin.create_customer("stara@sesja.example", "Stara Sesja", "x")
    database = Path(helpdesk.ca_file).parents[1] / "helpdesk.sqlite3"

    async def story(device):
        login = {"email": "stara@sesja.example", "password": "x"}
        session = (await device.post("/api/customer/session", login)).json
        with contextlib.closing(sqlite3.connect(database)) as connection, connection:
            ended = "UPDATE customer_sessions SET expires_at = '2020-01-01T00:00:00Z'"
            connection.execute(ended)
        path = "/api/customer/ticket-notifications?after_message_id=0&limit=1"
        return await device.get(path, headers={"X-Customer-Session": session["access_token"]})

    assert act(story, None).detail == "Invalid customer session"


PACKAGE = b"package " * 50_000


@pytest.fixture
def package(admin):
    package_id = admin.publish_package(PACKAGE, "0.2.56")
    yield package_id
    admin.withdraw_package(package_id)


async def offered(device):
    await device.register()
    return (await device.get(MANIFEST)).json


async def downloaded(device):
    manifest = await offered(device)
    async with device.session.get(manifest["url"]) as response:
        return response.status, await response.read()


def test_nothing_on_offer_is_an_empty_version(act):
    manifest = act(offered)

    assert manifest["version"] == ""
    assert manifest["platform"] == "macos"


def test_a_published_package_is_offered_and_served(admin, act, package, helpdesk):
    manifest = act(offered)

    assert manifest["version"] == "0.2.56"
    assert manifest["sha256"] == hashlib.sha256(PACKAGE).hexdigest()
    assert manifest["size_bytes"] == len(PACKAGE)
    assert re.fullmatch(re.escape(helpdesk.url) + r"/packages/\d+/[^/]+\.pkg", manifest["url"])
    assert act(downloaded) == (200, PACKAGE)
    assert admin.violations() == []


def test_the_newest_package_of_the_kind_is_offered(admin, act, package):
    newer = admin.publish_package(b"x", "0.2.57", "Wsparo nowe.pkg")
    other = admin.publish_package(b"x", "0.9", architecture="x86_64")

    manifest = act(offered)

    admin.withdraw_package(newer)
    admin.withdraw_package(other)
    assert manifest["version"] == "0.2.57"
    assert manifest["url"].endswith("/Wsparo%20nowe.pkg")
    assert act(offered)["version"] == "0.2.56"


def test_a_manifest_can_lie_and_lack_keys(admin, act, package):
    changes = {"sha256": "0" * 64, "size_bytes": 1, "url": "https://example.org/a.pkg"}
    admin.change_package(package, manifest={**changes, "mandatory": None})

    manifest = act(offered)

    assert {key: manifest[key] for key in changes} == changes
    assert "mandatory" not in manifest


@pytest.mark.parametrize(
    ("serving", "status"), [({"mode": "missing"}, 404), ({"mode": "status", "status": 502}, 502)]
)
def test_a_package_can_be_refused(admin, act, package, serving, status):
    admin.change_package(package, serving=serving)

    assert act(downloaded)[0] == status


def test_a_package_can_come_slowly_or_half(admin, act, package):
    admin.change_package(package, serving={"mode": "slow", "bytes_per_second": 2_000_000})
    begin = time.monotonic()
    assert act(downloaded) == (200, PACKAGE)
    assert 0.15 < time.monotonic() - begin

    admin.change_package(package, serving={"mode": "truncated"})
    with pytest.raises(aiohttp.ClientPayloadError):
        act(downloaded)


def test_a_package_on_its_way_slowly_can_be_hurried(admin, act, package):
    admin.change_package(package, serving={"mode": "slow", "bytes_per_second": 1})

    async def hurried_once_begun(device):
        manifest = await offered(device)
        async with device.session.get(manifest["url"]) as response:
            first = await response.content.readexactly(1)
            normal = {"mode": "normal"}
            await asyncio.to_thread(admin.change_package, package, serving=normal)
            return first + await response.read()

    assert act(hurried_once_begun) == PACKAGE


def test_serving_in_an_unknown_way_and_unknown_packages_are_refused(admin, package):
    with pytest.raises(HelpdeskError) as unknown_way:
        admin.change_package(package, serving={"mode": "sideways"})
    with pytest.raises(HelpdeskError) as unknown_package:
        admin.change_package(987654, serving={"mode": "slow"})

    assert (unknown_way.value.status, unknown_package.value.status) == (422, 404)
