"""Inside: the sample Mac is "/", and nothing of it reaches the machine around it."""

import os
import subprocess
import sys
import time

import pytest

from test_launchd import LABEL, TARGET, alive, field, job, until

inside = pytest.mark.skipif(os.geteuid() != 0, reason="needs root to enter the sample Mac")


@pytest.fixture
def entered(mac):
    mac.entered = True
    return mac


def shell(mac, script, *arguments, **options):
    return mac.enter("/bin/bash", "-c", script, "bash", *arguments, **options)


@inside
def test_the_macs_paths_are_absolute(mac):
    seen = shell(mac, "cat /etc/hostname; /usr/bin/uname -m; /usr/bin/stat -f %Su /dev/console;"
                      "ls -d /Applications/Firefox.app; /bin/zsh -lc 'echo zsh'; whoami; pwd")
    assert (seen.returncode, seen.stderr) == (0, "")
    assert seen.stdout.splitlines()[:-1] == [
        "MacBook-Anny.local", "arm64", "anna", "/Applications/Firefox.app", "zsh", "root"]
    assert len(mac.tool_calls("uname")) == 1


@inside
def test_what_is_written_stays_in_the_sample(mac):
    name = f"slad-{os.getpid()}"
    shell(mac, 'echo x > "/tmp/$1"; echo x > "/Library/$1"; echo x > "/usr/$1"', name)
    assert mac.place(f"/private/tmp/{name}").exists() and mac.place(f"/Library/{name}").exists()
    for place in (f"/tmp/{name}", f"/Library/{name}", f"/usr/{name}"):
        assert not os.path.exists(place)
    with open("/proc/self/mounts", encoding="utf-8") as mounts:
        assert str(mac.root) not in mounts.read()


@inside
def test_what_a_test_needs_of_the_machine_shows_through(mac, tmp_path):
    (tmp_path / "ca.pem").write_text("cert")
    (tmp_path / "folder").mkdir()
    (tmp_path / "folder/x").write_text("x")
    seen = shell(mac, 'cat "$1" "$2/x"', str(tmp_path / "ca.pem"), str(tmp_path / "folder"),
                 keep=(tmp_path / "ca.pem", tmp_path / "folder"))
    assert seen.stdout == "certx"


@inside
def test_faults_and_removals_hold_inside_too(mac):
    mac.remove_tool("/usr/bin/curl")
    mac.replace_tool("/usr/bin/tar", 'echo "tar of $("$real/basename" "$2")"\n')
    mac.break_tool("/usr/sbin/installer", 9)
    mac.break_tool("/bin/cp", 8)
    assert shell(mac, "/usr/bin/curl --version").returncode == 127
    assert shell(mac, "/usr/bin/tar -cf /a/b").stdout == "tar of b\n"
    assert shell(mac, "/usr/sbin/installer").returncode == 9
    assert shell(mac, "cp a b; echo $?; /bin/cp a b; echo $?").stdout == "8\n8\n"


@inside
def test_a_program_is_only_where_a_mac_has_it(mac):
    seen = shell(mac, "command -v cp sleep bash tar installer; ls /usr/bin/cp /usr/bin/bash")
    assert seen.stdout.split() == ["/bin/cp", "/bin/sleep", "/bin/bash", "/usr/bin/tar",
                                   "/usr/sbin/installer"]
    assert seen.returncode == 2


@inside
def test_the_wrapped_programs_of_the_machine_do_not_call_themselves(mac):
    mac.delay_tool("/usr/bin/tar", 0.01)
    assert "tar" in shell(mac, "/usr/bin/tar --version").stdout
    assert shell(mac, "echo x > /tmp/f; /usr/bin/stat -f %z /tmp/f").stdout == "2\n"
    assert shell(mac, "/usr/bin/id -u anna; /usr/bin/id -u").stdout == "501\n0\n"


@inside
def test_jobs_live_inside(entered):
    job(entered, 'cat /etc/hostname > "$HOME/out"; exec sleep 60', RunAtLoad=True)
    done = entered.launchctl("bootstrap", "system", f"/Library/LaunchDaemons/{LABEL}.plist")
    assert (done.returncode, done.stderr) == (0, "")
    until(lambda: entered.place("/var/root/out").exists()
          and entered.place("/var/root/out").read_text() == "MacBook-Anny.local\n")
    pid = int(field(entered, "pid"))
    assert entered.run("/bin/launchctl", "bootout", TARGET).returncode == 0
    until(lambda: not alive(pid))


@inside
def test_agents_run_as_their_user(entered):
    job(entered, 'id -un > /Users/anna/kto; echo "$HOME" >> /Users/anna/kto', RunAtLoad=True,
        path=f"/Library/LaunchAgents/{LABEL}.plist")
    entered.launchctl("bootstrap", "gui/501", f"/Library/LaunchAgents/{LABEL}.plist")
    until(lambda: field(entered, "last exit code", f"gui/501/{LABEL}") == "0")
    assert entered.place("/Users/anna/kto").read_text() == "anna\n/Users/anna\n"
    assert entered.place("/Users/anna/kto").stat().st_uid == 501


@inside
def test_commands_as_another_user(mac):
    seen = shell(mac, "sudo -u anna whoami; sudo -u '#501' whoami; launchctl asuser 501 whoami;"
                      "sudo -u nikt whoami")
    assert seen.stdout.split() == ["anna", "anna", "root"]
    assert seen.stderr == "sudo: unknown user: nikt\n"


@inside
def test_opening_an_application(mac):
    program = mac.add_application("Okno") / "Contents/MacOS/Okno"
    program.write_text('#!/bin/sh\necho "$@" > /tmp/okno\n')
    assert shell(mac, "open -gj /Applications/Okno.app --args --menubar").returncode == 0
    written = mac.place("/private/tmp/okno")
    until(lambda: written.exists() and written.read_text() == "--menubar\n")
    assert shell(mac, "open /Applications/none.app").returncode == 1


@inside
def test_pkill_only_reaches_the_sample_macs_own_processes(mac):
    number = f"86{os.getpid()}"
    outside = subprocess.Popen(["sleep", number])
    within = subprocess.Popen(mac.enter_command("sleep", number))
    until(lambda: os.readlink(f"/proc/{within.pid}/exe").endswith("/sleep"))
    # The shell that asks has the words on its own command line and must survive.
    asked = shell(mac, 'pkill -f "sleep $1"; echo "$? sleep"; pkill -f "sleep $1"; echo $?', number)
    assert asked.stdout == "0 sleep\n1\n"
    assert within.wait(2) == -15 and outside.poll() is None
    outside.kill()
    outside.wait()


def test_pkill_from_outside_only_reaches_programs_below_the_root(mac):
    program = mac.place("/usr/local/bin/czuwa")
    program.write_text("#!/bin/sh\nwhile :; do sleep 0.01; done\n")
    program.chmod(0o755)
    outside = subprocess.Popen([sys.executable, "-c", "input()", "/usr/local/bin/czuwa"],
                               stdin=subprocess.PIPE)
    within = subprocess.Popen([program])
    assert until(lambda: mac.run("/usr/bin/pkill", "-f", "/usr/local/bin/czuwa").returncode == 0)
    assert within.wait(2) == -15 and outside.poll() is None
    outside.communicate(b"\n")


@inside
def test_entering_is_quick(mac):
    took = []
    for _ in range(5):
        before = time.monotonic()
        assert shell(mac, "true").returncode == 0
        took.append(time.monotonic() - before)
    # The quickest: the machine may be busy with other tests.
    assert min(took) < 0.5


def test_without_the_right_to_mount_it_says_so(mac):
    command = mac.enter_command("true")
    if os.geteuid() == 0:
        command = ["setpriv", "--bounding-set=-sys_admin", "--inh-caps=-sys_admin", *command]
    refused = subprocess.run(command, capture_output=True, text=True, check=False)
    assert refused.returncode == 77
    assert "no mount namespace here, which needs root on Linux" in refused.stderr


def test_only_a_sample_mac_can_be_entered(mac, tmp_path):
    command = mac.enter_command("true")
    command[command.index(str(mac.root))] = str(tmp_path)
    refused = subprocess.run(command, capture_output=True, text=True, check=False)
    assert (refused.returncode, refused.stderr) == (1, f"enter: {tmp_path} is not a sample Mac\n")
