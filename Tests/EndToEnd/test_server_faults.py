"""What the agent does when the server, the network or the certificate is not as it should be."""

from __future__ import annotations

import pytest

TEMPORARY = "Nie można teraz połączyć się z Centrum Wsparo. Aplikacja spróbuje ponownie automatycznie."


def run_once(start_agent) -> None:
    status, _, error = start_agent("--once").wait(60)
    assert status == 0, error


@pytest.mark.parametrize("kind, told", [
    ("wrong-host", "(serverCertificateUntrusted)"),
    ("expired", "(serverCertificateUntrusted)"),
    ("unknown-ca", "(serverCertificateUntrusted)"),
    # Such a server hangs up during the handshake, which may as well be the network's fault.
    ("old-tls", "Nie udało się połączyć z serwerem."),
])
def test_a_server_that_cannot_be_trusted_learns_nothing(start_agent, mac, admin, desk, kind, told):
    listener = admin.open_listener(kind)
    mac.write_settings(serverBaseUrl=listener["url"], viewerToken=desk.viewer_token)
    run_once(start_agent)
    admin.close_listener(listener["id"])
    assert admin.requests() == [], "no request, so no token, may have been sent"
    assert told in mac.read_log()
    state = mac.read_state()
    assert state["connectionIssue"] == "temporarilyUnavailable"
    assert state["connectionMessage"] == TEMPORARY


def test_a_redirect_to_plain_http_is_not_followed(start_agent, mac, admin):
    listener = admin.open_listener("plain-http")
    admin.fail("*", "redirect", count=2, location=listener["url"] + "/api/agent/devices/register")
    run_once(start_agent)
    admin.close_listener(listener["id"])
    assert [entry["listener"] for entry in admin.requests()] == ["main", "main"]
    assert "(redirectToNonSecureURL)" in mac.read_log()


def test_a_redirect_to_another_host_carries_no_token(start_agent, mac, admin, desk):
    elsewhere = desk.url.replace("localhost", "127.0.0.1")
    assert elsewhere != desk.url
    admin.fail("heartbeat", "redirect", status=307,
               location=elsewhere + "/api/agent/devices/heartbeat")
    run_once(start_agent)
    first, second = admin.requests("heartbeat")
    assert first["authorization_scheme"] == "Device"
    assert second["authorization"] is None


@pytest.mark.parametrize("kind", ["drop", "reset", "truncate"])
def test_a_broken_answer_is_asked_for_once_more(start_agent, mac, admin, kind):
    admin.fail("heartbeat", kind)
    run_once(start_agent)
    assert len(admin.requests("heartbeat")) == 2
    assert "Heartbeat sent successfully." in mac.read_log()


@pytest.mark.parametrize("status", [500, 502, 503, 504])
def test_a_busy_server_is_asked_once_more(start_agent, mac, admin, status):
    admin.fail("heartbeat", "status", status=status)
    run_once(start_agent)
    assert len(admin.requests("heartbeat")) == 2
    assert "Heartbeat sent successfully." in mac.read_log()


def test_a_server_that_stays_busy_is_recorded_for_the_user(start_agent, mac, admin):
    admin.fail("*", "status", count=4, status=503)
    run_once(start_agent)
    log = mac.read_log()
    assert ("[ERROR] Heartbeat failed: Serwer jest chwilowo niedostępny lub trwa jego aktualizacja. "
            "Spróbuj ponownie za kilka sekund.") in log
    assert mac.read_state()["connectionMessage"] == TEMPORARY


def test_a_server_that_is_not_there(start_agent, mac, admin):
    listener = admin.open_listener("closing")
    admin.close_listener(listener["id"])
    mac.write_settings(serverBaseUrl=listener["url"], viewerToken="x")
    run_once(start_agent)
    assert ("Nie udało się połączyć z serwerem. Sprawdź połączenie z Internetem i spróbuj "
            "ponownie.") in mac.read_log()


def test_ten_thousand_nested_arrays_harm_nobody(start_agent, mac, admin):
    admin.fail("register", "status", status=200, body="[" * 10_000 + "]" * 10_000)
    run_once(start_agent)
    assert "Inventory send failed: JSON nested deeper than 512 levels." in mac.read_log()
    run_once(start_agent)
    assert "Heartbeat sent successfully." in mac.read_log()


@pytest.mark.parametrize("status, detail, issue", [
    (401, "Missing viewer token", "missingViewerToken"),
    (401, "Invalid viewer token", "invalidViewerToken"),
    (401, "INVALID DEVICE TOKEN", "invalidDeviceToken"),
    (403, "Device is assigned to another client", "deviceAssignedElsewhere"),
    (403, "Token does not match device", "deviceAssignedElsewhere"),
    (410, "Device is deactivated", "deviceDeactivated"),
    (403, "Forbidden", "temporarilyUnavailable"),
    (404, "Device is deactivated", "temporarilyUnavailable"),
])
def test_a_lasting_problem_is_recorded_as_what_it_is(start_agent, mac, admin, status, detail, issue):
    admin.fail("*", "status", count=2, status=status, body=f'{{"detail": "{detail}"}}')
    run_once(start_agent)
    assert mac.read_state()["connectionIssue"] == issue


def test_a_revoked_device_registers_again_as_the_organisation(start_agent, mac, admin, device_uid):
    run_once(start_agent)
    old_token = mac.read_state()["deviceToken"]
    admin.revoke_device_token(device_uid)
    admin.clear_requests()
    run_once(start_agent)
    new_token = mac.read_state()["deviceToken"]
    assert new_token != old_token
    sent = [entry["authorization_scheme"] for entry in admin.requests("register")]
    assert sent == ["Device", "Bearer"]
    assert admin.requests("heartbeat")[0]["authorization"] == f"Device {new_token}"


def test_no_token_ever_reaches_the_log(start_agent, mac, admin, desk):
    admin.fail("*", "status", count=1, status=401, body='{"detail": "Invalid viewer token"}')
    run_once(start_agent)
    run_once(start_agent)
    log = mac.read_log()
    assert desk.viewer_token not in log
    assert mac.read_state()["deviceToken"] not in log
