"""Answers that fail on demand, ports with something wrong, and the record of requests."""

from __future__ import annotations

import asyncio
import base64
import socket
import ssl

import aiohttp
import pytest

from helpdesk.client import HelpdeskClient, HelpdeskError
from pretend_device import HEARTBEAT, play


async def registered(device):
    await device.register()
    return device.authorization


async def beat(device):
    return await device.heartbeat()


async def register_and_beat(device):
    await device.register()
    return await device.heartbeat()


def test_the_next_answers_fail_and_then_all_is_well(admin, act, uid):
    token = act(registered)
    admin.fail("heartbeat", "status", count=2, skip=1, status=503, body={"detail": "busy"})

    async def story(device):
        return [(await device.heartbeat()).status for _ in range(4)]

    assert act(story, token) == [200, 503, 503, 200]
    assert admin.pending_faults() == []
    assert admin.device(uid)["heartbeat_count"] == 2
    assert [entry["fault"] for entry in admin.requests("heartbeat")] == [
        None, "status", "status", None,
    ]


def test_a_fault_can_strike_after_the_request_took_effect(admin, act, uid):
    token = act(registered)
    admin.fail("heartbeat", "drop", handled=True)

    with pytest.raises(aiohttp.ServerDisconnectedError):
        act(beat, token)

    assert admin.device(uid)["heartbeat_count"] == 1


def test_bodies_headers_and_texts_of_any_kind_can_be_answered(admin, act):
    admin.fail("heartbeat", "status", status=401, body={"detail": "Invalid device token"})
    admin.fail("heartbeat", "status", status=500, body="[" * 10_000)
    admin.fail("heartbeat", "status", status=429, headers={"Retry-After": "7"})

    async def story(device):
        answers = [await device.heartbeat() for _ in range(2)]
        async with device.session.post(device.url + HEARTBEAT) as response:
            return [answer.text for answer in answers], response.headers["Retry-After"]

    assert act(story) == (['{"detail": "Invalid device token"}', "[" * 10_000], "7")


@pytest.mark.parametrize(
    ("kind", "error"),
    [
        ("drop", aiohttp.ServerDisconnectedError),
        ("reset", aiohttp.ClientOSError),
        ("garbage", aiohttp.ClientError),
        ("truncate", aiohttp.ClientPayloadError),
    ],
)
def test_connections_break_as_ordered(admin, act, kind, error):
    token = act(registered)
    admin.fail("heartbeat", kind)

    with pytest.raises(error):
        act(beat, token)


def test_a_silent_endpoint_is_silent_and_a_late_one_late(admin, act):
    token = act(registered)
    admin.fail("heartbeat", "silent")
    admin.fail("heartbeat", "delay", seconds=0.1)

    async def story(device):
        with pytest.raises(asyncio.TimeoutError):
            await asyncio.wait_for(device.heartbeat(), 0.1)
        return await device.heartbeat()

    assert act(story, token).status == 200
    silent, late = admin.requests("heartbeat")
    assert silent["status"] is None
    assert late["answered_at"] - late["at"] > 0.09


def test_bodies_can_trickle_and_be_endless(admin, act):
    token = act(registered)
    admin.fail("heartbeat", "trickle", seconds=0.005)
    admin.fail("heartbeat", "endless", bytes=5_000_000)
    admin.fail("heartbeat", "endless")

    async def story(device):
        trickled = await device.heartbeat()
        long = await device.heartbeat()
        async with device.session.post(device.url + HEARTBEAT) as response:
            piece = await response.content.readexactly(20_000_000)
        return trickled.json, len(long.text), len(piece)

    assert act(story, token) == ({"status": "ok"}, 5_000_000, 20_000_000)


def test_redirects_lead_where_they_are_told_to(admin, act, helpdesk):
    token = act(registered)
    elsewhere = helpdesk.url.replace("localhost", "127.0.0.1") + HEARTBEAT
    admin.fail("heartbeat", "redirect", status=307, location=elsewhere)

    async def story(device):
        body = {"device_uid": device.uid, "hostname": "a", "agent_version": "1.0"}
        return await device.post(HEARTBEAT, body, allow_redirects=True)

    act(story, token)

    here, there = admin.requests("heartbeat")
    assert (here["status"], here["host"].split(":")[0]) == (307, "localhost")
    assert there["host"].split(":")[0] == "127.0.0.1"


def test_any_endpoint_can_be_meant_and_unknown_ones_are_refused(admin, act):
    admin.fail("*", "status", status=599)

    async def story(device):
        return await device.register()

    assert act(story).status == 599
    for endpoint, kind in (("hartbeat", "status"), ("heartbeat", "explode")):
        with pytest.raises(HelpdeskError) as refused:
            admin.fail(endpoint, kind)
        assert refused.value.status == 422


@pytest.mark.parametrize(
    ("kind", "reason"),
    [
        ("wrong-host", "Hostname mismatch"),
        ("expired", "certificate has expired"),
        ("unknown-ca", "unable to get local issuer"),
    ],
)
def test_faulty_identities_are_refused_before_anything_is_said(admin, act, kind, reason):
    listener = admin.open_listener(kind)

    with pytest.raises(aiohttp.ClientConnectorCertificateError, match=reason):
        act(register_and_beat, url=listener["url"])

    assert admin.requests() == []
    admin.close_listener(listener["id"])


def test_old_tls_is_refused(admin, act):
    listener = admin.open_listener("old-tls")

    with pytest.raises(aiohttp.ClientConnectorSSLError):
        act(register_and_beat, url=listener["url"])


@pytest.mark.filterwarnings("ignore:ssl.TLSVersion.TLSv1 is deprecated")
def test_old_tls_really_is_spoken(admin, helpdesk):
    listener = admin.open_listener("old-tls")
    context = ssl.create_default_context(cafile=helpdesk.ca_file)
    context.minimum_version = ssl.TLSVersion.TLSv1
    context.set_ciphers("ALL:@SECLEVEL=0")

    with socket.create_connection(("127.0.0.1", listener["port"])) as raw:
        with context.wrap_socket(raw, server_hostname="localhost") as tls:
            assert tls.version() == "TLSv1.1"


def test_the_plain_port_answers_and_says_so_in_the_record(admin, act):
    listener = admin.open_listener("plain-http")

    assert listener["url"].startswith("http://")
    assert act(register_and_beat, url=listener["url"]).status == 200
    assert {entry["listener"] for entry in admin.requests()} == {"plain-http"}


@pytest.mark.parametrize("kind", ["silent", "closing"])
def test_ports_that_accept_and_say_nothing(admin, act, kind):
    listener = admin.open_listener(kind)

    async def story(device):
        with pytest.raises((asyncio.TimeoutError, aiohttp.ClientError)) as failure:
            await asyncio.wait_for(device.register(), 0.2)
        return failure.type

    failure = act(story, url=listener["url"])

    assert (failure is asyncio.TimeoutError) == (kind == "silent")
    [described] = [entry for entry in admin.listeners() if entry["id"] == listener["id"]]
    assert described["connections"] >= 1


def test_a_closed_listener_refuses_connections(admin):
    listener = admin.open_listener("plain-http")
    admin.close_listener(listener["id"])

    with pytest.raises(ConnectionRefusedError):
        socket.create_connection(("127.0.0.1", listener["port"])).close()


def test_localhost_is_served_on_every_loopback_address(helpdesk, uid):
    port = helpdesk.url.rsplit(":", 1)[1]
    hosts = ["localhost", "127.0.0.1"] + (["[::1]"] if socket.has_ipv6 else [])
    for host in hosts:
        token = f"Bearer {helpdesk.viewer_token}"
        url = f"https://{host}:{port}"
        assert play(url, helpdesk.ca_file, uid, token, registered).startswith("Device ")


def test_requests_are_recorded_word_for_word(admin, act, uid):
    act(register_and_beat)

    register, heartbeat = admin.requests()

    assert (register["endpoint"], heartbeat["endpoint"]) == ("register", "heartbeat")
    assert register["path"] == "/api/agent/devices/register"
    assert register["authorization_scheme"] == "Bearer"
    assert heartbeat["authorization"].startswith("Device ")
    assert uid in register["body"]
    assert register["connection"] == heartbeat["connection"]
    assert ["Accept", "application/json"] in heartbeat["headers"]
    assert register["status"] == 200
    act(register_and_beat)
    assert admin.requests()[-1]["connection"] != register["connection"]
    assert admin.wait_for_requests("heartbeat", count=1, after=heartbeat["id"])


def test_waiting_for_what_never_comes_is_a_timeout(admin):
    with pytest.raises(TimeoutError, match="3 requests of heartbeat"):
        admin.wait_for_requests("heartbeat", count=3, timeout=0.05)


def test_the_admin_interface_wants_its_token(helpdesk):
    with HelpdeskClient(helpdesk.ready["admin_url"], "wrong") as stranger:
        with pytest.raises(HelpdeskError) as refused:
            stranger.devices()

    assert refused.value.status == 401


def test_bytes_beneath_a_closed_socket_are_refused(admin, act, uid):
    async def story(device):
        await device.register()
        async with device.control():
            return admin.wait_for_socket("control", lambda s: s["device_uid"] == uid)["id"]

    number = act(story)
    admin.wait_for_socket("control", lambda s: s["id"] == number and not s["open"])

    with pytest.raises(HelpdeskError) as refused:
        admin.socket_action(number, "send_raw", base64=base64.b64encode(b"x").decode())
    assert refused.value.status == 409
