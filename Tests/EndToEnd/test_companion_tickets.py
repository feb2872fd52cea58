"""The companion command line as a customer: logging in, opening tickets, reading the answers."""

from __future__ import annotations

import hashlib
import json
import stat
from pathlib import Path

import pytest

import companion as companion_module
from companion import Companion

EMAIL = "anna@firma.example"
PASSWORD = "zażółć\"gęślą"


@pytest.fixture
def wsparo(mac, desk, admin) -> Companion:
    admin.create_customer(EMAIL, "Anna Żak", PASSWORD)
    return Companion(mac.root, desk.ca_file)


@pytest.fixture
def start(wsparo: Companion):
    yield from companion_module.started(wsparo)


@pytest.fixture
def logged_in(wsparo: Companion) -> Companion:
    answer = wsparo.run("login", "--email", EMAIL, input=PASSWORD + "\n")
    assert (answer.returncode, answer.stderr) == (0, "")
    assert answer.stdout == f"Zalogowano: Anna Żak ({EMAIL}).\n"
    return wsparo


def open_ticket(wsparo: Companion, admin, subject: str, *more: str) -> dict:
    """The new ticket as the helpdesk has it."""
    answer = wsparo.run("ticket", "new", "--subject", subject, "--description", "Opis", "--name",
                        "Anna Żak", "--email", EMAIL, *more)
    assert answer.returncode == 0, answer.stderr
    found = [one for one in admin.tickets() if one["ticket_number"] in answer.stdout]
    assert len(found) == 1
    assert f"/tickets/{found[0]['public_id']}\n" in answer.stdout
    return found[0]


def test_the_session_is_for_its_owner_alone(logged_in):
    file = logged_in.session_file()
    assert stat.S_IMODE(file.stat().st_mode) == 0o600
    assert PASSWORD not in file.read_text()
    assert logged_in.run("logout").returncode == 0
    assert not file.exists()


def test_the_password_is_not_shown_while_typed(wsparo):
    terminal = wsparo.at_terminal("login")
    terminal.wait_for("E-mail: ")
    terminal.type(EMAIL + "\n")
    terminal.wait_for("Hasło: ")
    terminal.type(PASSWORD + "\n")
    assert terminal.end() == 0
    assert "Zalogowano: Anna Żak" in terminal.shown
    assert PASSWORD not in terminal.shown


def test_a_wrong_password(wsparo):
    answer = wsparo.run("login", "--email", EMAIL, input="nie to\n")
    assert (answer.returncode, answer.stdout) == (5, "")
    assert answer.stderr == "wsparo: Nieprawidłowy e-mail lub hasło.\n"
    assert not wsparo.session_file().exists()


def test_a_login_without_what_it_needs(wsparo):
    assert wsparo.run("login").returncode == 2
    assert wsparo.run("login", "--email", EMAIL).returncode == 2
    answer = wsparo.run("login", "--email", EMAIL, "--password", "x")
    assert answer.returncode == 2
    assert "Hasła nie podaje się w wierszu poleceń" in answer.stderr


def test_a_ticket_with_large_attachments(wsparo, admin, tmp_path):
    picture = tmp_path / "zrzut „ekranu” 😀.png"
    picture.write_bytes(bytes(range(256)) * (20 * 4096))  # 20 MB
    small = tmp_path / "log.txt"
    small.write_text("")
    subject = "Nie działa \"drukarka\" 🖨️ <b> & \\"
    found = open_ticket(wsparo, admin, subject, "--attach", str(picture), "--attach", str(small),
                        "--cc", "szef@firma.example", "--priority", "high")
    body = found["body"]
    assert body["subject"] == subject
    assert body["description"] == "<p>Opis</p>"
    assert (body["cc_emails"], body["priority"]) == (["szef@firma.example"], "high")
    assert [one["filename"] for one in found["attachments"]] == [picture.name, "log.txt"]
    assert found["attachments"][0]["sha256"] == hashlib.sha256(picture.read_bytes()).hexdigest()


def test_a_ticket_of_a_registered_device_names_it(agent, admin, wsparo, device_uid):
    agent.wait_for_log("Heartbeat sent successfully.")
    found = open_ticket(wsparo, admin, "Z urządzenia")
    assert found["body"]["device_uid"] == device_uid
    assert found["body"]["support_id"] == agent.mac.read_state()["supportId"]


def test_a_revoked_device_token_costs_neither_the_ticket_nor_the_state(start_agent, admin, wsparo,
                                                                       mac, device_uid):
    agent = start_agent()
    agent.wait_for_log("Heartbeat sent successfully.")
    agent.stop()
    before = mac.read_state()
    admin.revoke_device_token(device_uid)
    open_ticket(wsparo, admin, "Po odwołaniu")
    assert mac.read_state() == before


def test_a_ticket_can_be_filled_in_at_the_terminal(logged_in, admin):
    terminal = logged_in.at_terminal("ticket", "new")
    for question, reply in (("Temat: ", "Ekran"), ("Opis", "gaśnie\nco godzinę\n."),
                            ("Imię i nazwisko [Anna Żak]: ", ""), (f"E-mail [{EMAIL}]: ", ""),
                            ("Telefon", "600")):
        terminal.wait_for(question)
        terminal.type(reply + "\n")
    assert terminal.end() == 0, terminal.shown
    found = max(admin.tickets(), key=lambda one: one["ticket_number"])
    body = found["body"]
    assert (body["subject"], body["phone"]) == ("Ekran", "600")
    assert body["description"] == "<p>gaśnie<br>co godzinę</p>"
    assert (body["customer_name"], body["customer_email"]) == ("Anna Żak", EMAIL)


def test_a_ticket_that_cannot_be_sent(wsparo, admin, tmp_path):
    def status(*more: str) -> int:
        return wsparo.run("ticket", "new", "--subject", "s", "--description", "d", "--name", "n",
                          "--email", EMAIL, *more).returncode

    assert wsparo.run("ticket", "new", "--subject", "s").returncode == 2
    assert status("--attach", str(tmp_path / "nowhere")) == 1
    assert status("--cc", "nobody") == 2
    admin.fail("ticket", "status", status=422, body={"detail": "Za długi temat"})
    answer = wsparo.run("ticket", "new", "--subject", "s", "--description", "d", "--name", "n",
                        "--email", EMAIL)
    assert answer.returncode == 1
    assert answer.stderr == "wsparo: Nie udało się wysłać zgłoszenia: Za długi temat\n"
    admin.fail("ticket", "status", status=503, count=2)
    assert status() == 6
    admin.fail("ticket", "status", status=200, body={"public_id": "x"})
    assert status() == 1


@pytest.mark.breaks_protocol
def test_a_refused_token_is_explained(wsparo, mac, desk):
    mac.write_settings(serverBaseUrl=desk.url, viewerToken="wrong")
    answer = wsparo.run("ticket", "new", "--subject", "s", "--description", "d", "--name", "n",
                        "--email", EMAIL)
    assert answer.returncode == 1
    assert "Token Wsparo jest nieprawidłowy lub wygasł." in answer.stderr


def test_answers_are_shown_once(logged_in, admin):
    found = open_ticket(logged_in, admin, "Pytanie")
    admin.answer_ticket(found["public_id"], "Pierwsza\nodpowiedź")
    shown = logged_in.run("tickets")
    assert shown.returncode == 0
    assert f"{found['ticket_number']}  Pytanie\n    Pierwsza\n    odpowiedź\n" in shown.stdout
    assert logged_in.run("tickets").stdout == "Brak nowych wiadomości.\n"
    admin.answer_ticket(found["public_id"], "Druga")
    [line] = logged_in.run("tickets", "--json").stdout.splitlines()
    assert json.loads(line)["messageText"] == "Druga"
    assert "Pierwsza" in logged_in.run("tickets", "--all").stdout
    assert logged_in.run("tickets").stdout == "Brak nowych wiadomości.\n"


def test_the_cursor_outlives_a_new_login(logged_in, admin):
    found = open_ticket(logged_in, admin, "Kursor")
    admin.answer_ticket(found["public_id"], "x")
    logged_in.run("tickets")
    logged_in.run("login", "--email", EMAIL, input=PASSWORD + "\n")
    assert logged_in.run("tickets").stdout == "Brak nowych wiadomości.\n"


def test_follow_shows_answers_as_they_come(logged_in, admin, start):
    found = open_ticket(logged_in, admin, "Na żywo")
    following = start("tickets", "--follow", "--interval", "1")
    admin.wait_for_requests("ticket_notifications")
    admin.answer_ticket(found["public_id"], "Już działa")
    following.wait_for("Już działa")
    assert following.interrupt() == 0
    assert following.complained() == ""
    assert "Już działa" not in logged_in.run("tickets").stdout


def test_a_session_that_has_ended(logged_in, admin, start):
    admin.fail("ticket_notifications", "status", status=401,
               body={"detail": "Invalid customer session"})
    answer = logged_in.run("tickets")
    assert answer.returncode == 5
    assert answer.stderr == "wsparo: Sesja wygasła. Zaloguj się ponownie: wsparo login\n"
    admin.fail("ticket_notifications", "status", status=401, skip=1)
    following = start("tickets", "--follow", "--interval", "1")
    assert following.wait() == 5


def test_nobody_is_logged_in(wsparo):
    answer = wsparo.run("tickets")
    assert answer.returncode == 5
    assert "Nikt nie jest zalogowany" in answer.stderr


def test_a_session_is_not_shown_to_another_server(logged_in, mac, desk):
    mac.write_settings(serverBaseUrl=desk.url + "/other", viewerToken=desk.viewer_token)
    assert logged_in.run("tickets").returncode == 5


def test_a_session_file_that_is_garbage(logged_in):
    logged_in.session_file().write_text("{")
    answer = logged_in.run("tickets")
    assert answer.returncode == 5
    assert "Zapisana sesja jest nieczytelna" in answer.stderr


def test_a_server_that_is_down(logged_in, mac):
    stored = json.loads(logged_in.session_file().read_text())
    mac.write_settings(serverBaseUrl="https://localhost:9", viewerToken="x")
    stored["serverBaseUrl"] = "https://localhost:9"
    logged_in.session_file().write_text(json.dumps(stored))
    answer = logged_in.run("tickets")
    assert answer.returncode == 6
    assert "nie ma połączenia z serwerem" in answer.stderr
    assert logged_in.run("login", "--email", EMAIL, input="x\n").returncode == 6


def test_without_settings_nothing_is_asked(tmp_path: Path):
    answer = Companion(tmp_path).run("login", "--email", EMAIL, input="x\n")
    assert answer.returncode == 3
    assert "Nie znaleziono ustawień" in answer.stderr
