"""Registration, heartbeat, and every row of the authentication table."""

from __future__ import annotations

import hashlib

import pytest

from pretend_device import HEARTBEAT, REGISTER


def test_registration_issues_a_device_token_and_keeps_the_identifier(admin, act, uid):
    async def story(device):
        first = await device.register(hostname="biurko.local")
        heartbeat = await device.heartbeat()
        return first, heartbeat, device.authorization

    first, heartbeat, authorization = act(story)

    assert first.status == 200
    assert first.json["device_uid"] == uid
    assert first.json["support_id"].isdigit()
    assert authorization.startswith("Device ")
    assert heartbeat.status == 200
    device = admin.device(uid)
    assert device["hostname"] == "biurko.local"
    assert device["inventory"]["hostname"] == "biurko.local"
    assert device["heartbeat"]["agent_version"] == "0.2.55"
    assert (device["inventory_count"], device["heartbeat_count"]) == (1, 1)
    assert admin.violations() == []


def test_a_second_registration_keeps_support_id_and_token(act, helpdesk):
    async def story(device):
        first = await device.register()
        device.authorization = f"Bearer {helpdesk.viewer_token}"
        return first.json, (await device.register()).json

    first, second = act(story)

    assert second == first


def test_registration_under_the_device_token_issues_none(act):
    async def story(device):
        await device.register()
        return await device.register()

    second = act(story)

    assert second.status == 200
    assert "device_token" not in second.json


@pytest.mark.parametrize(
    ("authorization", "detail"),
    [
        (None, "Missing viewer token"),
        ("Bearer ", "Missing viewer token"),
        ("Basic abc", "Missing viewer token"),
        ("Bearer wrong", "Invalid viewer token"),
        ("Device wrong", "Invalid device token"),
        ("Device ", "Invalid device token"),
    ],
)
def test_unknown_callers_are_told_what_is_missing(act, authorization, detail):
    async def story(device):
        return [
            await device.register(),
            await device.heartbeat(),
            await device.pending(),
            await device.report(1, "completed", {}),
            await device.get("/api/agent/viewer/updates/manifest"),
            await device.post(f"/api/agent/devices/{device.uid}/chat-messages", {}),
            await device.post("/api/agent/remote/sessions/rs_1/status", {}),
            await device.post("/api/agent/tickets", {}),
        ]

    answers = act(story, authorization)

    assert [(answer.status, answer.detail) for answer in answers] == [(401, detail)] * 8


def test_a_device_token_is_good_for_its_own_device_only(act):
    async def story(device):
        await device.register()
        device.uid = "mac-" + "0" * 32
        return [await device.heartbeat(), await device.register(), await device.pending()]

    answers = act(story)

    expected = (403, "Device token does not match device")
    assert [(answer.status, answer.detail) for answer in answers] == [expected] * 3


def test_another_organisations_token_is_refused(admin, act, uid):
    async def story(device):
        return [await device.register(), await device.heartbeat()]

    act(story)
    token = admin.create_organization("Inna firma")["viewer_token"]

    answers = act(story, f"Bearer {token}")

    expected = (403, "Device is assigned to another client")
    assert [(answer.status, answer.detail) for answer in answers] == [expected] * 2


def test_a_reassigned_device_is_refused_under_its_old_tokens(admin, act, uid, helpdesk):
    async def story(device):
        await device.register()
        admin.assign_device(uid, admin.create_organization("Nowa firma")["id"])
        under_device_token = await device.heartbeat()
        manifest = await device.get("/api/agent/viewer/updates/manifest")
        device.authorization = f"Bearer {helpdesk.viewer_token}"
        return [under_device_token, manifest, await device.register()]

    expected = (403, "Device is assigned to another client")
    assert [(answer.status, answer.detail) for answer in act(story)] == [expected] * 3


def test_a_deactivated_device_is_gone_until_it_is_reactivated(admin, act, uid, helpdesk):
    async def story(device):
        await device.register()
        admin.deactivate_device(uid)
        refused = [await device.heartbeat(), await device.pending(), await device.register()]
        refused.append(await device.get("/api/agent/viewer/updates/manifest"))
        refused.append(await device.post("/api/agent/tickets", {"device_uid": None}))
        device.authorization = f"Bearer {helpdesk.viewer_token}"
        refused.append(await device.heartbeat())
        admin.reactivate_device(uid)
        return refused, await device.heartbeat()

    refused, afterwards = act(story)

    expected = (410, "Device is deactivated")
    assert [(answer.status, answer.detail) for answer in refused] == [expected] * 6
    assert afterwards.status == 200


def test_a_revoked_device_token_is_replaced_by_another_one(admin, act, uid, helpdesk):
    async def story(device):
        first = await device.register()
        admin.revoke_device_token(uid)
        refused = await device.heartbeat()
        device.authorization = f"Bearer {helpdesk.viewer_token}"
        under_viewer_token = await device.heartbeat()
        second = await device.register()
        return first.json, refused, under_viewer_token, second.json

    first, refused, under_viewer_token, second = act(story)

    assert (refused.status, refused.detail) == (401, "Invalid device token")
    assert under_viewer_token.status == 200
    assert second["device_token"] != first["device_token"]
    assert second["support_id"] == first["support_id"]


def test_a_replaced_viewer_token_is_invalid(admin, act):
    organization = admin.create_organization("Firma z nowym tokenem")
    token = admin.replace_viewer_token(organization["id"])

    async def story(device):
        return await device.register()

    assert act(story, f"Bearer {organization['viewer_token']}").detail == "Invalid viewer token"
    assert act(story, f"Bearer {token}").status == 200


def test_a_device_that_never_registered_is_unknown(act):
    async def story(device):
        return [await device.heartbeat(), await device.pending()]

    assert [answer.status for answer in act(story)] == [404, 404]


@pytest.mark.parametrize("body", [b"", b"[]", b"{", b'"text"', b"{}", b'{"device_uid": 7}'])
def test_bodies_that_cannot_be_used_are_refused_and_recorded(admin, act, body):
    async def story(device):
        return [await device.post(REGISTER, body), await device.post(HEARTBEAT, body)]

    assert [answer.status for answer in act(story)] == [422, 422]
    assert len(admin.violations()) == 2


def test_the_servers_own_identifier_goes_first_in_a_heartbeat(admin, act, uid):
    other = "mac-" + hashlib.sha256(b"moved").hexdigest()[:32]

    async def story(device):
        await device.register()
        device.uid = other
        return await device.heartbeat(server_assigned_id=uid)

    assert act(story).status == 200
    assert admin.device(uid)["heartbeat_count"] == 1
