"""The companion's diagnosis: each thing that can be wrong is named, and what to do about it."""

from __future__ import annotations

import json
import time
from email.utils import formatdate

import pytest

from companion import Companion

CONFIG = "/Library/Application Support/Wsparo Brenvox"


@pytest.fixture
def wsparo(mac, desk) -> Companion:
    return Companion(mac.root, desk.ca_file)


def wrong_lines(answer) -> list[str]:
    """What is wrong, each with its advice."""
    assert answer.returncode == 1, answer.stdout
    lines = answer.stdout.splitlines()
    return [f"{line[6:]} | {lines[number + 1].strip()}" for number, line in enumerate(lines)
            if line.startswith("ŹLE")]


def register(mac, **more: object) -> None:
    """As the agent would, without being one."""
    state = {"deviceUid": "mac-00000000000000000000000000000001", "supportId": "WB-1",
             "hostname": "mac.local",
             "lastHeartbeatAt": time.strftime("%Y-%m-%dT%H:%M:%SZ", time.gmtime()), **more}
    mac.place(f"{CONFIG}/wsparo.state.json").write_text(json.dumps(state))
    mac.place("/Library/Logs/Wsparo Brenvox").mkdir(parents=True, exist_ok=True)


def test_all_is_well_beside_a_running_agent(agent, admin, wsparo, device_uid, desk):
    agent.wait_for_log("Heartbeat sent successfully.")
    agent.wait_until(lambda: "lastHeartbeatAt" in (agent.mac.read_state() or {}), "heartbeat")
    answer = wsparo.run("doctor")
    assert answer.returncode == 0, answer.stdout
    lines = answer.stdout.splitlines()
    assert [line.split(":")[0][6:].split(" /")[0] for line in lines[:-1]] == [
        "Ustawienia", "Rejestracja", "Nazwa serwera", "TLS", "HTTPS", "Poświadczenia", "Zegar",
        "Kanał sterowania", "Folder", "Folder", "Folder", "Dziennik"]
    assert all(line.startswith("ok ") for line in lines[:-1])
    assert "Poświadczenia: serwer je przyjął (token urządzenia)" in answer.stdout
    assert "Kanał sterowania: otwarty i przyjęty" in answer.stdout
    assert lines[-1] == "Wszystko w porządku."
    for token in (agent.mac.read_state()["deviceToken"], desk.viewer_token):
        assert token not in answer.stdout
    assert "All is well." in wsparo.run("doctor", environment={"LANG": "en_US"}).stdout


def test_a_mac_without_anything(tmp_path):
    answer = Companion(tmp_path).run("doctor")
    assert len(wrong_lines(answer)) == 4  # settings, registration, folder, log
    assert "Nie znaleziono ustawień" in answer.stdout
    assert "HTTPS" not in answer.stdout


@pytest.mark.parametrize("kind, reason", [
    ("wrong-host", "certyfikat jest dla innego serwera"),
    ("expired", "certyfikat wygasł"),
    ("unknown-ca", "certyfikat wystawił urząd, który nie jest zaufany"),
])
def test_a_certificate_that_is_not_accepted(admin, mac, wsparo, kind, reason):
    register(mac)
    listener = admin.open_listener(kind)
    mac.write_settings(serverBaseUrl=listener["url"], viewerToken="x")
    answer = wsparo.run("doctor")
    [wrong] = wrong_lines(answer)
    assert wrong.startswith(f"TLS: serwer localhost:{listener['port']}: {reason} | ")
    assert "-     Kanał sterowania: pominięto" in answer.stdout
    admin.close_listener(listener["id"])


def test_a_server_that_is_down_or_unknown(mac, wsparo):
    register(mac)
    mac.write_settings(serverBaseUrl="https://localhost:9", viewerToken="x")
    [wrong] = wrong_lines(wsparo.run("doctor"))
    assert wrong.startswith("HTTPS: Connection refused")
    mac.write_settings(serverBaseUrl="https://nowhere.invalid", viewerToken="x")
    answer = wsparo.run("doctor")
    [wrong] = wrong_lines(answer)
    assert wrong.startswith("Nazwa serwera: nowhere.invalid (")
    assert answer.stdout.count("pominięto") == 5


@pytest.mark.breaks_protocol
def test_credentials_that_the_server_refuses(mac, wsparo, desk):
    register(mac)
    mac.write_settings(serverBaseUrl=desk.url, viewerToken="wrong-token")
    answer = wsparo.run("doctor")
    credentials, control = wrong_lines(answer)
    assert credentials.startswith("Poświadczenia: serwer je odrzucił (HTTP 401) | Token Wsparo")
    assert control.startswith("Kanał sterowania: serwer odrzucił te poświadczenia (HTTP 401) | ")
    assert "wrong-token" not in answer.stdout


def test_a_control_upgrade_that_is_refused(admin, mac, wsparo):
    register(mac)
    admin.fail("control", "status", status=403)
    [wrong] = wrong_lines(wsparo.run("doctor"))
    assert wrong.startswith("Kanał sterowania: The server refused the WebSocket upgrade with HTTP "
                            "403")


def test_a_clock_that_nobody_sets(admin, mac, wsparo):
    register(mac)
    later = formatdate(time.time() + 3600, usegmt=True)
    admin.fail("update_manifest", "status", status=200, headers={"Date": later})
    wrong = wrong_lines(wsparo.run("doctor"))
    assert [line for line in wrong if line.startswith("Zegar: różnica z serwerem -3")]


def test_a_server_in_trouble(admin, mac, wsparo):
    register(mac)
    admin.fail("update_manifest", "status", status=502)
    wrong = wrong_lines(wsparo.run("doctor"))
    assert wrong[0].startswith("HTTPS: serwer ma chwilowy problem (HTTP 502) | ")


def test_folders_with_wrong_modes(mac, wsparo):
    register(mac)
    runtime = mac.place(f"{CONFIG}/runtime")
    runtime.mkdir(exist_ok=True)
    runtime.chmod(0o700)
    wrong = wrong_lines(wsparo.run("doctor"))
    assert any(line.endswith(f'| sudo chmod 1777 "{CONFIG}/runtime"') for line in wrong)


def test_ctrl_c_ends_the_diagnosis(admin, mac, wsparo):
    register(mac)
    listener = admin.open_listener("silent")
    mac.write_settings(serverBaseUrl=listener["url"], viewerToken="x")
    running = wsparo.start("doctor")
    running.wait_for("Nazwa serwera")
    assert running.interrupt() == 130
    running.kill()
    admin.close_listener(listener["id"])
