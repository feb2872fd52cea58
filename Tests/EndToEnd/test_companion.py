"""The companion command line beside the agent: status, chat and updates."""

from __future__ import annotations

import json
import os
import re
import shutil
import stat
import subprocess
import tempfile
from pathlib import Path

import pytest

import companion as companion_module
from companion import NOBODY, Companion

MANUAL = Path(__file__).resolve().parents[2] / "docs/man/wsparo.1"
CONFIG = "/Library/Application Support/Wsparo Brenvox"
STATE = f"{CONFIG}/wsparo.state.json"
UPDATE_STATUS = f"{CONFIG}/runtime/update-status.json"
UPDATE_REQUEST = f"{CONFIG}/runtime/update-request.json"
CHAT = "/Users/Shared/Wsparo Brenvox/remote-chat"
REGISTERED = {"deviceUid": "mac-1", "supportId": "WB-77", "hostname": "mac.local",
              "deviceToken": "secret-device", "lastHeartbeatAt": "2026-03-01T09:12:02Z"}


@pytest.fixture
def wsparo(tmp_path: Path) -> Companion:
    """On a Mac without anything."""
    return Companion(tmp_path / "mac")


@pytest.fixture
def start(wsparo: Companion):
    yield from companion_module.started(wsparo)


@pytest.fixture
def on_mac(mac, desk) -> Companion:
    """On the Mac of the agent."""
    return Companion(mac.root, desk.ca_file)


def put(wsparo: Companion, path: str, content: object) -> Path:
    place = wsparo.root / path.lstrip("/")
    place.parent.mkdir(parents=True, exist_ok=True)
    place.write_text(content if isinstance(content, str) else json.dumps(content))
    return place


def incoming(wsparo: Companion, number: int, text: str, conversation: str = "r1") -> None:
    """A message as the daemon leaves it: whole, or not there."""
    message = {"id": f"ID{number}", "publicId": conversation, "direction": "incoming",
               "sender": "Jan Kos", "text": text, "createdAt": "2026-03-01T09:15:02Z"}
    name = f"{conversation}.{1772356502000 + number}.ID{number}.incoming.json"
    put(wsparo, f"{CHAT}/new", message).rename(wsparo.root / CHAT.lstrip("/") / name)


def test_status_of_a_device_that_is_not_registered(wsparo):
    answer = wsparo.run("status")
    assert answer.returncode == 3
    assert answer.stdout == ""
    assert answer.stderr.startswith("wsparo: To urządzenie nie jest jeszcze zarejestrowane")
    assert json.loads(wsparo.run("status", "--json").stdout)["registered"] is False


def test_status_beside_a_running_agent(agent, admin, on_mac, device_uid):
    agent.wait_for_log("Heartbeat sent successfully.")
    agent.wait_until(lambda: "lastHeartbeatAt" in (agent.mac.read_state() or {}), "heartbeat")
    answer = on_mac.run("status")
    assert answer.returncode == 0, answer.stderr
    assert "urządzenie zarejestrowane" in answer.stdout
    assert "Ostatni kontakt:         przed chwilą" in answer.stdout
    assert "Połączenie:              bez problemów" in answer.stdout
    script = on_mac.run("status", "--json")
    facts = json.loads(script.stdout)
    assert facts["deviceUid"] == device_uid
    assert facts["files"] == {"settings": "good", "state": "good", "update": "missing"}
    token = agent.mac.read_state()["deviceToken"]
    assert token not in script.stdout + answer.stdout


def test_status_in_english_and_without_settings(wsparo):
    put(wsparo, STATE, REGISTERED)
    answer = wsparo.run("status", environment={"LC_ALL": "en_US.UTF-8"})
    assert answer.returncode == 0
    assert "Registration:    device registered\n" in answer.stdout
    assert "Server:          unknown (no settings)\n" in answer.stdout


def test_garbage_is_told_and_never_a_crash(wsparo):
    put(wsparo, STATE, "{{{")
    answer = wsparo.run("status")
    assert answer.returncode == 1
    assert "uszkodzony" in answer.stderr
    put(wsparo, STATE, REGISTERED)
    put(wsparo, UPDATE_STATUS, "\x00" * 5000)
    answer = wsparo.run("status")
    assert answer.returncode == 0
    assert "Plik stanu aktualizacji jest nieczytelny" in answer.stdout
    answer = wsparo.run("update", "status")
    assert (answer.returncode, answer.stdout) == (1, "")
    assert "wsparo update check" in answer.stderr


@pytest.fixture
def forbidding():
    """A Mac that everybody may enter, for commands of somebody without rights."""
    folder = Path(tempfile.mkdtemp(prefix="orv-companion-"))
    folder.chmod(0o755)
    yield Companion(folder)
    shutil.rmtree(folder)


def as_nobody() -> dict:
    """Root reads everything, so it becomes somebody else."""
    return {"user": NOBODY, "group": NOBODY, "extra_groups": []} if os.geteuid() == 0 else {}


def test_what_may_not_be_read_is_named(forbidding):
    put(forbidding, f"{CONFIG}/wsparo.settings.json", "{}").chmod(0)
    state = put(forbidding, STATE, REGISTERED)
    answer = forbidding.run("status", **as_nobody())
    assert answer.returncode == 0, answer.stderr
    assert "nieznany (ustawienia: brak prawa do odczytu)" in answer.stdout
    answer = forbidding.run("tickets", **as_nobody())
    assert answer.returncode == 4
    assert "Brak prawa do odczytu ustawień" in answer.stderr
    state.chmod(0)
    answer = forbidding.run("status", **as_nobody())
    assert answer.returncode == 4
    assert f"Brak prawa do odczytu stanu agenta ({STATE})" in answer.stderr


@pytest.mark.skipif(os.geteuid() != 0, reason="only root makes folders that are not the user's")
def test_a_request_that_may_not_be_left_is_refused(forbidding):
    put(forbidding, STATE, REGISTERED)
    answer = forbidding.run("update", "check", **as_nobody())
    assert answer.returncode == 4
    assert "Nie można zostawić prośby o aktualizację" in answer.stderr


def test_help_and_version(wsparo):
    assert wsparo.run("--help").stdout.startswith("Użycie: wsparo POLECENIE")
    english = wsparo.run("chat", "send", "-h", environment={"LANG": "en_GB.UTF-8"})
    assert english.stdout.startswith("Usage: wsparo COMMAND")
    assert english.returncode == 0
    version = wsparo.run("--version")
    assert version.stdout == "0.2.55\n"


def test_the_manual_page_tells_what_the_help_tells(wsparo):
    manual = MANUAL.read_text()
    told = wsparo.run("--help", environment={"LANG": "en_US"}).stdout
    for option in set(re.findall(r"(?<=--)[a-z]+", told)):
        assert f"Fl -{option}" in manual, option
    for code in re.findall(r"^  (\d+)  ", told, re.MULTILINE):
        assert f".It {code}\n" in manual, code


@pytest.mark.skipif(shutil.which("groff") is None, reason="groff is not installed")
def test_the_manual_page_is_well_formed():
    made = subprocess.run(["groff", "-mandoc", "-Kutf8", "-Tutf8", "-ww", MANUAL],
                          capture_output=True, encoding="utf-8", check=False)
    assert (made.returncode, made.stderr) == (0, "")
    assert "wsparo" in made.stdout


def test_a_command_line_that_is_not_understood(wsparo):
    answer = wsparo.run("staus")
    assert (answer.returncode, answer.stdout) == (2, "")
    assert answer.stderr == "wsparo: Nieznane polecenie: staus.\nPomoc: wsparo --help\n"
    assert wsparo.run().returncode == 2
    assert wsparo.run("chat", "send", "x").returncode == 2


def test_a_reader_who_has_left_ends_it_quietly(wsparo):
    reading, writing = os.pipe()
    os.close(reading)
    incoming(wsparo, 1, "Dzień dobry")
    for arguments in (["--help"], ["status", "--json"], ["chat", "list"],
                      ["chat", "watch", "--all"]):
        answer = subprocess.run(wsparo.command(*arguments), env=wsparo.environment(),
                                stdout=writing, stderr=subprocess.PIPE, timeout=20, check=False)
        assert (answer.returncode, answer.stderr) == (0, b"")
    os.close(writing)


@pytest.mark.skipif(not os.path.exists("/dev/full"), reason="this system has no full device")
def test_a_full_disk_is_no_success(wsparo):
    with open("/dev/full", "w") as full:
        answer = subprocess.run(wsparo.command("--help"), env=wsparo.environment(), stdout=full,
                                stderr=subprocess.PIPE, timeout=20, check=False)
    assert answer.returncode == 1
    assert b"/dev/stdout" in answer.stderr


def test_colours_are_for_terminals(wsparo):
    put(wsparo, STATE, REGISTERED)
    assert "\033[" not in wsparo.run("status").stdout
    terminal = wsparo.at_terminal("status")
    terminal.end()
    assert "\033[32murządzenie zarejestrowane\033[0m" in terminal.shown
    plain = wsparo.at_terminal("status", NO_COLOR="1")
    plain.end()
    assert "\033[" not in plain.shown


def test_a_chat_goes_both_ways(agent, admin, on_mac, device_uid):
    agent.wait_for_log("Heartbeat sent successfully.")
    sent = admin.send_chat(device_uid, "Dzień dobry 🖥️", sender="Jan Kos", conversation="r-both")
    admin.wait_for_command(sent["command_id"])
    listed = on_mac.run("chat", "list")
    assert "Jan Kos  [r-both]\n    Dzień dobry 🖥️\n" in listed.stdout
    text = "Drukarka „nie” \"działa\" 😡\n\\ <b>"
    answer = on_mac.run("chat", "send", "--conversation", "r-both", "--sender", "Anna", text)
    assert (answer.returncode, answer.stdout) == (0, "Wiadomość czeka na wysłanie przez agenta.\n")
    [reply] = admin.wait_for_chat_replies("r-both")
    assert (reply["text"], reply["sender"]) == (text, "Anna")


def test_what_waits_to_be_sent_is_listed_as_such(wsparo):
    wsparo.run("chat", "send", "--conversation=a/b", "--sender=Anna", "-",
               input="pierwszy\ndrugi\n")
    listed = wsparo.run("chat", "list")
    assert listed.stdout.endswith("  Anna  [a/b]  (czeka na wysłanie)\n    pierwszy\n    drugi\n")
    [line] = wsparo.run("chat", "list", "--json").stdout.splitlines()
    assert json.loads(line)["text"] == "pierwszy\ndrugi"
    assert stat.S_IMODE((wsparo.root / CHAT.lstrip("/")).stat().st_mode) == 0o777
    assert wsparo.run("chat", "list", "--conversation", "x").stdout == "Brak wiadomości.\n"


def test_messages_that_cannot_be_sent_are_refused(wsparo):
    def send(conversation, text, **options):
        return wsparo.run("chat", "send", "--conversation", conversation, text,
                          **options).returncode

    assert send("", "x") == 2
    assert send("r", " \n") == 2
    assert send("r", "-", input="\x01" * 300_000) == 2
    assert send("r" * 300, "x") == 1
    assert not list((wsparo.root / CHAT.lstrip("/")).glob("*outgoing*"))


def test_what_strangers_put_into_the_chat_folder_is_skipped(wsparo):
    folder = put(wsparo, f"{CHAT}/r.1.A.incoming.json", "{").parent
    os.mkfifo(folder / "r.2.B.incoming.json")
    secret = put(wsparo, "/secret", {"text": "secret"})
    (folder / "r.3.C.incoming.json").symlink_to(secret)
    (folder / "r.4.D.incoming.json").mkdir()
    incoming(wsparo, 5, "\033[2Jdobra")
    listed = wsparo.run("chat", "list")
    assert listed.returncode == 0
    assert listed.stdout == "2026-03-01 09:15  Jan Kos  [r1]\n    \ufffd[2Jdobra\n"


def test_watch_shows_messages_as_they_come(wsparo, start):
    incoming(wsparo, 1, "stara")
    watching = start("chat", "watch")
    whole = start("chat", "watch", "--all", "--json")
    whole.wait_for("stara")
    number = 2
    # The first may come before it watches, and then counts as old.
    while "nowa" not in watching.printed():
        incoming(wsparo, number, f"nowa {number}")
        whole.wait_for(f"nowa {number}")
        number += 1
    incoming(wsparo, number, "inna", conversation="r2")
    watching.wait_for("inna")
    assert "stara" not in watching.printed()
    assert json.loads(whole.wait_for("inna").splitlines()[-1])["id"] == f"ID{number}"
    assert watching.interrupt() == 0
    assert whole.interrupt() == 0
    assert watching.complained() + whole.complained() == ""


def test_watch_waits_for_a_folder_that_is_not_there_yet(wsparo, start):
    watching = start("chat", "watch", "--all")
    incoming(wsparo, 1, "pierwsza")
    watching.wait_for("pierwsza")
    shutil.rmtree(wsparo.root / CHAT.lstrip("/"))
    incoming(wsparo, 2, "druga")
    watching.wait_for("druga")
    assert watching.interrupt() == 0


def test_update_check_finds_nothing_newer(agent, admin, on_mac):
    agent.wait_for_log("Heartbeat sent successfully.")
    answer = on_mac.run("update", "check")
    assert answer.returncode == 0, answer.stderr
    assert answer.stdout.startswith("Poproszono agenta o sprawdzenie aktualizacji.\n")
    assert answer.stdout.splitlines()[-1].startswith("brak nowszej wersji: ")
    status = on_mac.run("update", "status")
    assert status.returncode == 0
    assert "Etap:                  brak nowszej wersji" in status.stdout
    assert json.loads(on_mac.run("update", "status", "--json").stdout)["phase"] == "no_update"


def test_update_check_that_fails(agent, admin, on_mac):
    agent.wait_for_log("Heartbeat sent successfully.")
    admin.fail("update_manifest", "status", status=403, count=1)
    answer = on_mac.run("update", "check")
    assert answer.returncode == 1
    assert answer.stdout.splitlines()[-1].startswith("nie powiodła się: Nie udało się")
    assert on_mac.run("update", "status").returncode == 1


def test_update_check_without_an_agent(wsparo):
    answer = wsparo.run("update", "check", "--wait", "1")
    assert answer.returncode == 1
    assert "Agent nie odebrał prośby w ciągu 1 s." in answer.stderr
    assert not (wsparo.root / UPDATE_REQUEST.lstrip("/")).exists()
    answer = wsparo.run("update", "status")
    assert (answer.returncode, answer.stdout) == (0, "Aktualizacja: nie było jeszcze żadnej\n")


def test_update_check_can_be_left(wsparo, start):
    asking = start("update", "check")
    asking.wait_for("Poproszono")
    assert asking.interrupt() == 130
    assert "Agent kontynuuje" in asking.complained()
    assert (wsparo.root / UPDATE_REQUEST.lstrip("/")).exists()
