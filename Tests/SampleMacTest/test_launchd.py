"""The simulated launchd: jobs with real processes, and the Mac's words and numbers."""

import os
import pathlib
import re
import signal
import subprocess
import time

import pytest

LABEL = "pl.example.praca"
DAEMON = f"/Library/LaunchDaemons/{LABEL}.plist"
TARGET = f"system/{LABEL}"


def until(condition, seconds=3.0):
    """What the condition gives once it holds; processes answer in milliseconds."""
    end = time.monotonic() + seconds
    while not (found := condition()):
        assert time.monotonic() < end, "it never came true"
        time.sleep(0.004)
    return found


def state(mac, target=TARGET):
    shown = mac.launchctl("print", target)
    found = re.search(r"^\tstate = (.+)$", shown.stdout, re.MULTILINE)
    return found[1] if found else shown.returncode


def field(mac, name, target=TARGET):
    found = re.search(rf"^\t{name} = (.+)$", mac.launchctl("print", target).stdout, re.MULTILINE)
    return found[1] if found else None


def job(mac, script, path=DAEMON, label=LABEL, **keys):
    """A job that runs a shell script; `keys` as in its property list."""
    program = mac.place(f"/usr/local/bin/{label}")
    program.write_text(f"#!/bin/sh\n{script}\n")
    program.chmod(0o755)
    mac.write_job(path, {"Label": label, "ProgramArguments": [f"/usr/local/bin/{label}"], **keys})


def alive(pid):
    try:
        os.kill(pid, 0)
    except ProcessLookupError:
        return False
    return True


def test_run_at_load_starts_the_program_with_its_output_in_its_files(mac):
    job(mac, 'echo "label=$XPC_SERVICE_NAME"; echo oops >&2; exec sleep 60', RunAtLoad=True,
        StandardOutPath="/tmp/wyjście.log", StandardErrorPath="/tmp/błędy.log")
    done = mac.launchctl("bootstrap", "system", DAEMON)
    assert (done.returncode, done.stderr) == (0, "")
    assert state(mac) == "running"
    until(lambda: mac.place("/tmp/błędy.log").read_text() == "oops\n")
    assert mac.place("/tmp/wyjście.log").read_text() == f"label={LABEL}\n"
    assert alive(int(field(mac, "pid")))
    assert field(mac, "path") == DAEMON
    assert f"\t\t{LABEL}\n" in mac.launchctl("print", "system").stdout
    assert re.search(rf"^\d+\t.*\t{LABEL}$", mac.launchctl("list").stdout, re.MULTILINE)


def test_without_run_at_load_it_waits_to_be_kickstarted(mac):
    job(mac, "exec sleep 60")
    mac.launchctl("bootstrap", "system", DAEMON)
    assert state(mac) == "not running"
    first = mac.launchctl("kickstart", "-p", TARGET).stdout.strip()
    assert first == field(mac, "pid")
    assert mac.launchctl("kickstart", "-p", TARGET).stdout.strip() == first
    again = mac.launchctl("kickstart", "-kp", TARGET).stdout.strip()
    assert again not in ("", first) and not alive(int(first)) and alive(int(again))
    assert field(mac, "runs") == "2"


def test_the_end_of_a_one_shot_job_is_noted(mac):
    job(mac, "exit 7", RunAtLoad=True)
    mac.launchctl("bootstrap", "system", DAEMON)
    until(lambda: field(mac, "last exit code") == "7")
    assert state(mac) == "not running"


def test_keep_alive_starts_it_again_after_the_throttle(mac):
    mac.set_throttle(0.05)
    job(mac, "echo . >> \"$HOME/runs\"; exit 1", KeepAlive=True)
    mac.launchctl("bootstrap", "system", DAEMON)
    runs = mac.place("/var/root/runs")
    until(lambda: runs.exists() and runs.read_text().count(".") >= 3)


def test_keep_alive_waits_out_the_throttle(mac):
    job(mac, "exit 1", KeepAlive=True)
    mac.launchctl("bootstrap", "system", DAEMON)
    until(lambda: state(mac) == "spawn scheduled")
    assert field(mac, "minimum runtime") == "10"


@pytest.mark.parametrize(("keep_alive", "script", "again"), [
    ({"SuccessfulExit": False}, "exit 0", False),
    ({"SuccessfulExit": False}, "exit 1", True),
    ({"SuccessfulExit": True}, "exit 0", True),
    ({"Crashed": True}, "exit 1", False),
    ({"Crashed": True}, "kill -9 $$", True),
])
def test_keep_alive_on_conditions(mac, keep_alive, script, again):
    job(mac, script, KeepAlive=keep_alive, RunAtLoad=True)
    mac.launchctl("bootstrap", "system", DAEMON)
    until(lambda: field(mac, "last exit code") != "(never exited)")
    assert state(mac) == ("spawn scheduled" if again else "not running")


def test_a_loaded_job_cannot_be_loaded_twice(mac):
    job(mac, "exec sleep 60", RunAtLoad=True)
    mac.launchctl("bootstrap", "system", DAEMON)
    refused = mac.launchctl("bootstrap", "system", DAEMON)
    assert (refused.returncode, refused.stderr) == (5, "Bootstrap failed: 5: Input/output error\n")


def ignores(pid: int, number: int) -> bool:
    status = pathlib.Path(f"/proc/{pid}/status").read_text()
    return bool(int(status.split("SigIgn:\t")[1][:16], 16) >> (number - 1) & 1)


def test_a_job_that_is_still_ending_cannot_be_loaded_again_yet(mac):
    job(mac, "trap '' TERM; while :; do sleep 0.02; done", RunAtLoad=True, ExitTimeOut=0.3)
    mac.launchctl("bootstrap", "system", DAEMON)
    pid = int(field(mac, "pid"))
    until(lambda: ignores(pid, signal.SIGTERM))
    assert mac.launchctl("bootout", TARGET).returncode == 0
    assert state(mac) == "SIGTERMed"
    assert mac.launchctl("bootstrap", "system", DAEMON).returncode == 5
    until(lambda: state(mac) == 113)
    assert not alive(pid)
    assert mac.launchctl("bootstrap", "system", DAEMON).returncode == 0


def test_bootout_by_label_and_by_file(mac):
    job(mac, "exec sleep 60", RunAtLoad=True)
    mac.launchctl("bootstrap", "system", DAEMON)
    pid = int(field(mac, "pid"))
    assert mac.launchctl("bootout", TARGET).returncode == 0
    assert state(mac) == 113 and not alive(pid)
    gone = mac.launchctl("bootout", TARGET)
    assert (gone.returncode, gone.stderr) == (3, "Boot-out failed: 3: No such process\n")
    mac.launchctl("bootstrap", "system", DAEMON)
    assert mac.launchctl("bootout", "system", DAEMON).returncode == 0
    gone = mac.launchctl("bootout", "system", DAEMON)
    assert (gone.returncode, gone.stderr) == (5, "Boot-out failed: 5: Input/output error\n")


def test_a_service_of_others_can_be_booted_out(mac):
    assert mac.launchctl("bootout", "system/com.carriez.RustDesk_service").returncode == 0
    assert state(mac, "system/com.carriez.RustDesk_service") == 113


def test_what_a_job_leaves_behind_ends_with_it_unless_it_is_to_be_abandoned(mac):
    for label, abandon in (("pl.example.sprzata", False), ("pl.example.zostawia", True)):
        path = f"/Library/LaunchDaemons/{label}.plist"
        job(mac, f"sleep 60 & echo $! > \"$HOME/{label}\"", path, label, RunAtLoad=True,
            AbandonProcessGroup=abandon)
        mac.launchctl("bootstrap", "system", path)
        until(lambda: field(mac, "last exit code", f"system/{label}") == "0")  # noqa: B023
    tidy, abandoned = (int(mac.place(f"/var/root/{name}").read_text())
                       for name in ("pl.example.sprzata", "pl.example.zostawia"))
    until(lambda: not alive(tidy))
    assert alive(abandoned)
    mac.close()
    assert not alive(abandoned)


@pytest.mark.parametrize("content", [b"", b"garbage", b"<plist><array/></plist>",
                                     b"<plist><dict><key>Label</key><string>a/b</string></dict></plist>"])
def test_a_bad_job_file_is_refused(mac, content):
    mac.place(DAEMON).write_bytes(content)
    assert mac.launchctl("bootstrap", "system", DAEMON).returncode == 5
    assert mac.launchctl("bootstrap", "system", "/Library/LaunchDaemons/none.plist").returncode == 5


@pytest.mark.skipif(os.geteuid() != 0, reason="only launchd as root looks at the owner")
def test_a_job_file_that_others_can_write_is_refused(mac):
    job(mac, "exec sleep 60")
    mac.place(DAEMON).chmod(0o664)
    refused = mac.launchctl("bootstrap", "system", DAEMON)
    assert (refused.returncode, refused.stderr) == (
        122, "Bootstrap failed: 122: Path had bad ownership/permissions\n")


@pytest.mark.parametrize("keys", [
    {"ProgramArguments": ["/usr/local/bin/none"]},
    {"StandardOutPath": "/Library/Logs/no such folder/x.log"},
    {"WorkingDirectory": "/no such folder"},
])
def test_a_job_that_cannot_start_is_loaded_all_the_same(mac, keys):
    job(mac, "exit 0", RunAtLoad=True, **keys)
    assert mac.launchctl("bootstrap", "system", DAEMON).returncode == 0
    assert field(mac, "last exit code") == "78: EX_CONFIG"
    assert state(mac) == "not running"


def test_agents_live_in_the_domain_of_who_is_logged_in(mac):
    uid = mac.place("/dev/console").stat().st_uid
    agent = f"/Library/LaunchAgents/{LABEL}.plist"
    job(mac, "exec sleep 60", agent, RunAtLoad=True)
    refused = mac.launchctl("bootstrap", "gui/4242", agent)
    assert refused.returncode == 125
    nobody = mac.launchctl("print", "gui/4242")
    assert (nobody.returncode, nobody.stderr) == (
        112, "Bad request.\nCould not find domain for user gui: 4242\n")
    assert mac.launchctl("bootstrap", f"gui/{uid}", agent).returncode == 0
    assert state(mac, f"gui/{uid}/{LABEL}") == "running"
    mac.log_out()
    assert mac.launchctl("print", f"gui/{uid}/{LABEL}").returncode == 112
    domain = mac.log_in("goscinny")
    assert mac.launchctl("bootstrap", domain, agent).returncode == 0


def test_a_disabled_job_stays_out_until_it_is_enabled(mac):
    job(mac, "exec sleep 60")
    assert mac.launchctl("disable", TARGET).returncode == 0
    assert mac.launchctl("bootstrap", "system", DAEMON).returncode == 5
    assert mac.launchctl("enable", TARGET).returncode == 0
    assert mac.launchctl("bootstrap", "system", DAEMON).returncode == 0


@pytest.mark.parametrize(("arguments", "code", "words"), [
    (("print", "system/none"), 113, 'Could not find service "none" in domain for system'),
    (("print", "nonsense"), 64, "Unrecognized target specifier."),
    (("kickstart", "-k", "system/none"), 113, 'Could not find service "none" in domain for system'),
    (("kickstart", "-z", "system/none"), 64, "Usage: launchctl kickstart"),
    (("bootstrap", "system"), 64, "Usage: launchctl bootstrap"),
    (("frobnicate",), 64, "Unrecognized subcommand: frobnicate"),
    (("list", "none"), 113, 'Could not find service "none"'),
    ((), 64, "Usage: launchctl"),
])
def test_refusals(mac, arguments, code, words):
    result = mac.launchctl(*arguments)
    assert result.returncode == code and words in result.stderr


def test_a_restart_brings_the_jobs_back(mac):
    job(mac, "exec sleep 60", RunAtLoad=True)
    mac.launchctl("bootstrap", "system", DAEMON)
    first = int(field(mac, "pid"))
    mac.restart()
    assert not alive(first) and alive(int(field(mac, "pid")))


def test_jobs_see_what_a_test_adds_to_their_environment(mac):
    mac.set_job_environment(SSL_CERT_FILE="/tmp/ca.pem")
    job(mac, 'echo "$SSL_CERT_FILE $WŁASNE" > "$HOME/env"', RunAtLoad=True,
        EnvironmentVariables={"WŁASNE": "tak"})
    mac.launchctl("bootstrap", "system", DAEMON)
    until(lambda: field(mac, "last exit code") == "0")
    assert mac.place("/var/root/env").read_text().startswith("/tmp/ca.pem")


def supervisor_of(mac):
    """Supervisors work in their sample Mac's folder, whoever started them."""
    return [process for process in pathlib.Path("/proc").glob("[0-9]*")
            if works_in(process, mac.sample / "launchd")]


def works_in(process, folder):
    try:
        return os.readlink(process / "cwd") == str(folder)
    except OSError:
        return False


def test_closing_leaves_no_process_behind(mac):
    job(mac, "trap '' TERM; (trap '' TERM; sleep 61) & exec sleep 62", RunAtLoad=True, ExitTimeOut=0.1)
    mac.launchctl("bootstrap", "system", DAEMON)
    pid = int(field(mac, "pid"))
    assert len(supervisor_of(mac)) == 1
    mac.close()
    assert not alive(pid)
    until(lambda: not supervisor_of(mac))
    assert mac.launchctl("print", TARGET).returncode == 113


def test_everything_ends_with_the_owner(mac):
    owner = subprocess.Popen(["sleep", "60"])
    (mac.sample / "owner").write_text(str(owner.pid))
    job(mac, "exec sleep 60", RunAtLoad=True)
    mac.launchctl("bootstrap", "system", DAEMON)
    pid = int(field(mac, "pid"))
    owner.send_signal(signal.SIGKILL)
    owner.wait()
    until(lambda: not alive(pid) and not supervisor_of(mac))
