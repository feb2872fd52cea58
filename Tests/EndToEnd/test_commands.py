"""Commands from the consultant's queue to the result, over the wake-up and over the poll."""

from __future__ import annotations

import signal
from collections import Counter

import pytest
from agent_process import AgentProcess
from device import Device
from helpdesk.process import HelpdeskProcess

TRUNCATED = "\n...[output truncated by Wsparo Brenvox]..."

EACH_TYPE = [
    ("force_audit", {}, {"audit_sent": True}),
    ("ip_scan", {"timeout_ms": 100, "max_prefix_length": 30}, {"scanner": "orv-viewer-macos"}),
    ("shell", {"command": "echo dzień dobry"}, {"stdout": "dzień dobry\n", "exit_code": 0}),
    ("file_list", {"path": "/Users"}, {"path": "/Users", "parent_path": "/"}),
    ("file_download", {"path": "/etc/hostname"}, {"file_name": "hostname"}),
    ("file_upload", {"target_path": "/tmp/x", "content_base64": "", "overwrite": True},
     {"target_path": "/tmp/x", "size_bytes": 0}),
]


def statuses(command: dict) -> list[str]:
    return [entry["status"] for entry in command["history"]]


def shell(command: str, **payload: object) -> tuple[str, dict]:
    return "shell", {"command": command, "shell": "sh", **payload}


@pytest.mark.parametrize("command_type, payload, expected", EACH_TYPE,
                         ids=[entry[0] for entry in EACH_TYPE])
def test_a_wake_up_brings_the_result(device, admin, command_type, payload, expected):
    command = admin.run_command(device.uid, command_type, payload)
    assert statuses(command) == ["queued", "woken", "completed"]
    assert command["result"].items() >= expected.items()
    assert command["deliveries"] == 1


def test_a_forced_audit_sends_the_whole_inventory(device, admin):
    before = admin.device(device.uid)["inventory_count"]
    device.run(admin, "force_audit")
    assert admin.device(device.uid)["inventory_count"] == before + 1
    assert "Inventory sent successfully. reason=force_audit" in device.mac.read_log()


def test_a_forced_audit_that_fails_says_so(device, admin):
    admin.fail("register", "status", status=422)
    assert device.run(admin, "force_audit") == {"audit_sent": False}


@pytest.mark.parametrize("command_type", ["Shell", "reboot", "shell "])
def test_an_unknown_type_is_refused_by_name(device, admin, command_type):
    command = admin.run_command(device.uid, command_type, {"command": "echo hi"})
    assert statuses(command) == ["queued", "woken", "failed"]
    assert command["result"] == {"error": f"Unsupported macOS command {command_type}"}


def test_the_log_tells_what_was_fetched_and_why(device, admin):
    admin.run_commands(device.uid, [shell("true"), shell("true")], wake="once")
    log = device.mac.read_log()
    assert "[INFO] Control WSS wake-up received for command type=shell\n" in log
    assert "[INFO] Processing 2 pending commands. reason=control type=all\n" in log


def test_commands_of_one_fetch_run_in_their_order(device, admin):
    file = device.mac.place("/tmp/order")
    # The earlier a command, the longer it takes: side by side they would end the other way round.
    wanted = [shell(f"sleep 0.{4 - number}; echo {number} >> {file}") for number in range(4)]
    commands = admin.run_commands(device.uid, wanted, wake="once")
    assert file.read_text().split() == ["0", "1", "2", "3"]
    ends = [command["history"][-1]["at"] for command in commands]
    assert ends == sorted(ends)
    pending = [entry for entry in admin.requests("pending_commands")
               if "command_type" not in entry["path"]]
    assert len(pending) == 1


def test_a_command_that_fails_stops_no_other(device, admin):
    commands = admin.run_commands(device.uid, [
        ("shell", {"command": "true", "shell": "fish"}), ("file_download", {}), ("no such", None),
        ("file_list", {"path": "/nowhere"}), ("shell", None), shell("exit 3")], wake="once")
    assert [command["result"].get("error") for command in commands] == [
        "Unsupported macOS shell: fish", "Path cannot be empty.",
        "Unsupported macOS command no such", "Directory not found: /nowhere",
        "Command cannot be empty.", None]
    assert commands[-1]["result"]["exit_code"] == 3
    log = device.mac.read_log()
    assert f"[ERROR] Command handling failed id={commands[0]['id']} type=shell: " in log
    assert log.count("Unsupported macOS command") == 0, "no failure of this device"


@pytest.mark.parametrize("name, proof", [
    ("zsh", 'echo "${ZSH_VERSION:+zsh}" "$0"; setopt | grep -c .; [[ -o login ]] && echo login'),
    ("bash", 'echo "${BASH_VERSION:+bash}"; shopt -q login_shell && echo login'),
    ("sh", 'echo "sh${ZSH_VERSION:+zsh}"; echo login'),
])
def test_the_real_shells_run_as_login_shells(device, admin, name, proof):
    result = device.run(admin, "shell", {"shell": f" {name.upper()}\n", "command": proof})
    lines = result["stdout"].split()
    assert (lines[0], lines[-1]) == (name, "login")
    assert (result["shell"], result["executable"]) == (name, f"/bin/{name}")
    assert result["command"] == proof


def test_zsh_is_what_runs_when_none_is_named(device, admin):
    result = device.run(admin, "shell", {"command": " echo $ZSH_VERSION | cut -c1 ", "shell": 5})
    assert result["stdout"].strip().isdigit()
    assert result["command"] == " echo $ZSH_VERSION | cut -c1 "


def test_output_and_errors_never_mix(device, admin):
    result = device.run(admin, *shell("echo out; echo err >&2; exit 7"))
    assert (result["stdout"], result["stderr"], result["exit_code"]) == ("out\n", "err\n", 7)
    assert result["timed_out"] is False


def test_a_command_that_takes_too_long_is_told_to_end(device, admin):
    result = device.run(admin, *shell("echo before; exec sleep 60", timeout_seconds="1"))
    assert (result["timed_out"], result["stdout"]) == (True, "before\n")
    assert result["exit_code"] == signal.SIGTERM
    assert result["duration_ms"] >= 1000


def test_a_command_that_ignores_that_is_killed(device, admin):
    stubborn = "trap '' TERM; echo before; while :; do :; done"
    result = device.run(admin, *shell(stubborn, timeout_seconds=0))
    assert (result["timed_out"], result["stdout"]) == (True, "before\n")
    assert result["exit_code"] == signal.SIGKILL
    assert result["duration_ms"] >= 1300


def test_a_child_in_the_background_holds_nothing_up(device, admin):
    file = device.mac.place("/tmp/background")
    result = device.run(
        admin, *shell(f"sleep 60 & echo $! > {file}; echo started", timeout_seconds=1))
    assert (result["stdout"], result["timed_out"], result["exit_code"]) == ("started\n", False, 0)
    device.run(admin, *shell(f"kill $(cat {file})"))


@pytest.mark.parametrize("signal_name, number", [("KILL", 9), ("TERM", 15), ("SEGV", 11)])
def test_an_end_by_a_signal_shows_its_number(device, admin, signal_name, number):
    result = device.run(admin, *shell(f"kill -{signal_name} $$"))
    assert (result["exit_code"], result["timed_out"]) == (number, False)


def test_output_is_cut_by_the_character(device, admin):
    flag = "🇵🇱"
    exactly = device.run(admin, *shell(f"yes '{flag}' | head -1000 | tr -d '\\n'",
                                       max_output_chars=10))
    assert exactly["stdout"] == flag * 1000
    one_more = device.run(admin, *shell(f"yes '{flag}' | head -1001 | tr -d '\\n' >&2",
                                        max_output_chars=1000))
    assert one_more["stderr"] == flag * 1000 + TRUNCATED
    assert one_more["stdout"] == ""


def test_bytes_that_are_no_text_give_none(device, admin):
    result = device.run(admin, *shell("echo good; printf '\\377\\n'; echo also good >&2"))
    assert (result["stdout"], result["stderr"]) == ("", "also good\n")


def test_much_output_does_not_make_the_daemon_grow(device, admin):
    device.run(admin, *shell("head -c 1000000 /dev/zero | tr '\\0' x"))
    before = device.agent.resident_bytes()
    result = device.run(admin, *shell("head -c 200000000 /dev/zero | tr '\\0' x"), timeout=60)
    assert len(result["stdout"]) == 200_000 + len(TRUNCATED)
    assert device.agent.resident_bytes() - before < 24 << 20


def test_the_daemon_runs_on_where_its_working_folder_is_gone(mac, desk, admin, tmp_path,
                                                             device_uid):
    folder = tmp_path / "gone"
    folder.mkdir()
    agent = AgentProcess(mac, desk.ca_file, cwd=folder)
    try:
        admin.wait_until_connected(device_uid)
        folder.rmdir()
        for name in ("zsh", "bash", "sh"):
            order = {"shell": name, "command": "cd /; echo here"}
            command = admin.run_command(device_uid, "shell", order)
            assert command["result"]["stdout"] == "here\n", name
    finally:
        agent.kill()


def test_wake_ups_in_a_row_run_each_command_once(device, admin):
    file = device.mac.place("/tmp/once")
    wanted = [shell(f"echo {number} >> {file}") for number in range(40)]
    identifiers = admin.queue_commands(device.uid, wanted, wake="each")
    for _ in range(100):
        admin.wake_device(device.uid, command_type="shell")
    for identifier in identifiers:
        command = admin.wait_for_command(identifier, 30)
        assert statuses(command) == ["queued", "woken", "completed"]
    assert Counter(file.read_text().split()) == Counter(str(number) for number in range(40))


@pytest.mark.parametrize("count", [200, pytest.param(1000, marks=pytest.mark.long)])
def test_many_commands_at_once_each_have_their_result(device, admin, count):
    wanted = [shell(f"echo {number}") for number in range(count)]
    commands = admin.run_commands(device.uid, wanted, timeout=120, wake="once")
    assert [command["result"]["stdout"] for command in commands] == [
        f"{number}\n" for number in range(count)]
    assert {command["deliveries"] for command in commands} == {1}
    assert {len(command["history"]) for command in commands[1:]} == {2}


@pytest.mark.parametrize("kind, details, reports", [
    ("status", {"status": 503}, 1),
    ("drop", {}, 1),
    # The report took effect and only the answer was lost: it arrives twice.
    ("reset", {"handled": True}, 2),
])
def test_a_result_survives_a_bad_moment_of_the_network(device, admin, kind, details, reports):
    admin.fail("command_status", kind, **details)
    command = admin.run_command(device.uid, *shell("echo hi"))
    admin.wait_for_requests("command_status", 2)
    command = admin.wait_until(
        lambda: found if statuses(found := admin.command(command["id"])).count("completed")
        == reports else None, 10, f"{reports} reports")
    assert command["result"]["stdout"] == "hi\n"


def test_a_result_that_cannot_be_told_is_a_failure(device, admin):
    admin.fail("command_status", "status", count=2, status=503)
    command = admin.run_command(device.uid, *shell("echo hi"))
    assert command["status"] == "failed"
    assert command["result"]["error"] == (
        "Serwer jest chwilowo niedostępny lub trwa jego aktualizacja. Spróbuj ponownie za kilka "
        "sekund.")
    device.agent.wait_for_issue("temporarilyUnavailable")
    assert len(admin.requests("command_status")) == 3


@pytest.mark.breaks_protocol
@pytest.mark.parametrize("payload", [[], 17, "text", None, {"command": ["echo"]},
                                     {"command": "true", "timeout_seconds": 10 ** 30,
                                      "max_output_chars": {"much": True}}])
def test_a_payload_of_the_wrong_shape_harms_nobody(device, admin, payload):
    wrong = admin.queue_commands(device.uid, [("shell", payload)])
    assert admin.wait_for_command(wrong[0])["status"] in ("failed", "completed")
    assert device.run(admin, *shell("echo alive"))["stdout"] == "alive\n"


@pytest.mark.parametrize("answer", ["[", "", "null and void", "[" * 10_000],
                         ids=["cut", "empty", "words", "deep"])
def test_an_answer_that_is_no_list_of_commands_is_logged(device, admin, answer):
    before = device.mac.read_log().count("[ERROR] Command polling failed: ")
    admin.fail("pending_commands", "status", status=200, body=answer)
    admin.wake_device(device.uid)
    device.agent.wait_for_log("[ERROR] Command polling failed: ", before + 1)
    assert device.run(admin, *shell("echo alive"))["stdout"] == "alive\n"


def test_what_is_no_command_in_a_list_is_skipped(device, admin):
    identifier = admin.run_command(device.uid, *shell("echo hi"))["id"]
    command = {"id": identifier, "commandType": "shell", "payload": {"command": "echo other"}}
    odd = [{}, {"id": str(identifier), "command_type": "shell"}, {"id": 1.5}, {"id": None}]
    admin.clear_requests()
    # A fetch that was on its way while the command was reported leaves it alone.
    admin.fail("pending_commands", "status", status=200, count=2, body=[*odd, command, {"id": []}])
    admin.wake_device(device.uid)
    admin.wake_device(device.uid)
    device.agent.wait_until(
        lambda: admin.command(identifier)["result"]["stdout"] == "other\n", "second result")
    paths = {entry["path"] for entry in admin.requests("command_status")}
    assert paths == {f"/api/agent/device-commands/{identifier}/status"}


def test_a_daemon_that_is_told_to_end_leaves_its_command_behind(mac, start_agent, admin,
                                                                device_uid):
    agent = start_agent()
    admin.wait_until_connected(device_uid)
    running = mac.place("/tmp/running")
    identifier = admin.queue_command(device_uid, *shell(f"touch {running}; sleep 30"))
    agent.wait_until(running.exists, "running command")
    agent.stop()
    command = admin.command(identifier)
    assert statuses(command) == ["queued", "woken"], "the next start fetches it again"


@pytest.fixture
def polled(tmp_path):
    """A device of a helpdesk of its own, because other tests count their requests, with commands that
    only its poll can find."""
    with HelpdeskProcess(tmp_path / "data", events=tmp_path / "events.log") as desk, \
            desk.client() as admin:
        patient = Device(tmp_path / "mac", "polled", desk, commandPollIntervalSeconds=30)
        try:
            admin.wait_until_connected(patient.uid)
            wanted = [(entry[0], entry[1]) for entry in EACH_TYPE]
            yield patient, admin, admin.queue_commands(patient.uid, wanted, wake="none")
        finally:
            patient.stop()


@pytest.mark.long  # the shortest period of the poll is half a minute
def test_a_poll_brings_the_results_without_a_wake_up(polled):
    patient, admin, identifiers = polled
    for identifier, (command_type, _, expected) in zip(identifiers, EACH_TYPE):
        command = admin.wait_for_command(identifier, 40)
        assert statuses(command) == ["queued", "completed"], command_type
        assert command["result"].items() >= expected.items()
    count = len(EACH_TYPE)
    log = patient.mac.read_log()
    assert f"[INFO] Processing {count} pending commands. reason=timer type=all\n" in log
    assert admin.violations() == []
