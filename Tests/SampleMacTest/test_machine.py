"""The Mac as a whole: its files, its two variants, and what a test can do to it."""

import json
import os
import pathlib
import plistlib
import shutil
import statistics
import subprocess
import time

import pytest

BUILD = pathlib.Path(__file__).resolve().parent.parent / "SampleMac/build"
TOOLS = BUILD.parent / "tools"


def processor_seconds(*command):
    """What a program's run costs. Not the time on the wall: other tests run beside this one."""
    before = os.times()
    result = subprocess.run(command, capture_output=True, text=True, check=True)
    after = os.times()
    return result, (after.children_user + after.children_system
                    - before.children_user - before.children_system)


def test_building_is_quick_and_writes_the_settings(tmp_path):
    result, work = processor_seconds(
        BUILD, tmp_path / "mac", "--variant", "desktop", "--helpdesk", "https://localhost:8443",
        "--viewer-token", "żeton", "--set", "heartbeatIntervalSeconds=60", "--set", "note=not json")
    yardsticks = [processor_seconds("/usr/bin/python3", "-c", "import asyncio")[1] for _ in range(5)]
    assert work < 7 * statistics.median(yardsticks)
    assert result.stdout == f"{tmp_path / 'mac'}\n"
    settings = json.loads((tmp_path / "mac/Library/Application Support/Wsparo Brenvox"
                           / "wsparo.settings.json").read_text())
    assert settings["serverBaseUrl"] == "https://localhost:8443"
    assert settings["viewerToken"] == "żeton"
    assert settings["heartbeatIntervalSeconds"] == 60
    assert settings["auditIntervalMinutes"] == 60
    assert settings["note"] == "not json"


def test_building_into_a_folder_of_something_else_is_refused(tmp_path):
    (tmp_path / "mine.txt").write_text("precious")
    result = subprocess.run([BUILD, tmp_path], capture_output=True, text=True, check=False)
    assert (result.returncode, result.stderr) == (1, f"build: {tmp_path} is not empty\n")
    assert os.listdir(tmp_path) == ["mine.txt"]


def test_links_stay_inside(laptop):
    for name in ("etc", "tmp", "var"):
        assert os.readlink(laptop.root / name) == f"private/{name}"
    assert laptop.place("/etc/hostname").read_text() == "MacBook-Anny.local\n"
    assert laptop.place("/tmp").stat().st_mode & 0o7777 == 0o1777


def test_who_the_machine_is(laptop, desktop):
    version = plistlib.loads(
        laptop.place("/System/Library/CoreServices/SystemVersion.plist").read_bytes())
    assert version["ProductVersion"] == "15.6.1"
    assert laptop.place("/etc/machine-info").read_text() == \
        'PRETTY_HOSTNAME="MacBook Anny Żółkiewskiej"\n'
    assert desktop.place("/sys/class/dmi/id/product_serial").read_text() == "H4GD93JTQ1\n"
    hardware = desktop.run("/usr/sbin/system_profiler", "SPHardwareDataType", "-json").stdout
    assert json.loads(hardware)["SPHardwareDataType"][0]["serial_number"] == "H4GD93JTQ1"


def test_who_sits_at_the_screen(laptop, desktop):
    def console_owner(mac):
        uid = mac.place("/dev/console").stat().st_uid
        accounts = (line.split(":") for line in mac.place("/etc/passwd").read_text().splitlines())
        return next(name for name, _, number, *_ in accounts if int(number) == uid)

    assert console_owner(laptop) == "anna"
    assert console_owner(desktop) == "root"


def test_the_real_shells_run(laptop):
    for shell in ("/bin/zsh", "/bin/bash", "/bin/sh"):
        assert laptop.run(shell, "-c", "echo $((6 * 7))").stdout == "42\n"
    assert laptop.run("/usr/bin/tar", "--version").returncode == 0


def information(mac, path):
    return plistlib.loads(mac.place(f"{path}/Contents/Info.plist").read_bytes())


def test_applications_of_all_kinds(laptop, desktop):
    assert information(laptop, "/Applications/Google Chrome.app")["CFBundleIdentifier"] == \
        "com.google.Chrome"
    assert information(laptop, "/System/Applications/Utilities/Terminal.app")["CFBundleName"] == \
        "Terminal"
    first_bytes = {laptop.place(f"/Applications/{name}.app/Contents/Info.plist").read_bytes()[:6]
                   for name in ("Firefox", "Safari")}
    assert first_bytes == {b"<?xml ", b"bplist"}
    for damaged in ("Ucięta Lista", "Pusta Lista", "Ucięta Binarna", "Śmieci"):
        with pytest.raises(Exception, match=""):
            information(laptop, f"/Applications/{damaged}.app")
    assert information(laptop, "/Applications/Lista Tablica.app") == ["CFBundleName", "tablica"]
    assert laptop.place("/Applications/Przeglądarka.app").resolve().name == "Firefox.app"
    assert not laptop.place("/Applications/Donikąd.app").exists()
    assert len(os.listdir(laptop.place("/Applications"))) > 36
    assert not desktop.place("/Applications/RustDesk.app").exists()


def test_configuration_of_the_remote_tools(laptop, desktop):
    assert "\nad.anynet.id=1083427195\n" in laptop.place("/Users/anna/.anydesk/system.conf").read_text()
    folder = laptop.place("/Users/anna/Library/Preferences/com.carriez.RustDesk")
    assert "\nid = '271846093'\n" in (folder / "RustDesk.toml").read_text()
    assert not desktop.place("/Users/recepcja/.anydesk").exists()


def test_the_agents_files(mac):
    assert mac.read_state() is None and mac.read_log() == ""
    file = mac.write_settings(serverBaseUrl="https://example.test", chatPollIntervalSeconds=1)
    assert json.loads(file.read_text())["chatPollIntervalSeconds"] == 1
    file.with_name("wsparo.state.json").write_text('{"deviceUid": "mac-1"}')
    assert mac.read_state() == {"deviceUid": "mac-1"}
    log = mac.place("/Library/Logs/Wsparo Brenvox/wsparo.log")
    log.parent.mkdir()
    log.write_bytes(b"2026-01-01T00:00:00Z [INFO] \xff\n")
    assert mac.read_log() == "2026-01-01T00:00:00Z [INFO] \ufffd\n"


def test_a_canned_answer(mac):
    mac.replace_tool("/usr/bin/vm_stat", output=b"\x00\xffbinary", error="hm\n", code=3)
    result = mac.run("vm_stat", text=False, errors=None)
    assert (result.stdout, result.stderr, result.returncode) == (b"\x00\xffbinary", b"hm\n", 3)
    assert len(mac.tool_calls("vm_stat")) == 1


def test_a_script_of_ones_own(mac):
    mac.replace_tool("/usr/bin/curl", 'echo "instead of $("$real/basename" "$1")"\n')
    assert mac.run("/usr/bin/curl", "/a/b").stdout == "instead of b\n"
    assert mac.tool_calls("curl")[0].arguments == ("/a/b",)
    mac.replace_tool("/usr/bin/curl", "#!/bin/sh\necho verbatim\n")
    assert mac.run("/usr/bin/curl").stdout == "verbatim\n"


def test_a_missing_tool(mac):
    mac.remove_tool("/usr/bin/pmset")
    with pytest.raises(FileNotFoundError):
        mac.run("/usr/bin/pmset", "-g", "batt")


def test_a_slow_tool_answers_late_and_is_quick_again_when_mended(mac):
    mac.delay_tool("/usr/bin/uname", 0.6)
    before = time.monotonic()
    assert mac.run("/usr/bin/uname", "-m").stdout == "arm64\n"
    assert 0.6 <= time.monotonic() - before
    mac.mend_tool("/usr/bin/uname")
    before = time.monotonic()
    mac.run("/usr/bin/uname", "-m")
    assert time.monotonic() - before < 0.6


def test_the_machines_own_programs_can_be_slow_too(mac):
    mac.delay_tool("/usr/bin/tar", 0.05)
    assert "tar" in mac.run("/usr/bin/tar", "--version").stdout
    assert len(mac.tool_calls("tar")) == 1


def test_a_hanging_tool_stays(mac):
    mac.hang_tool("fdesetup")
    with pytest.raises(subprocess.TimeoutExpired):
        mac.run("/usr/bin/fdesetup", "status", timeout=0.1)


def test_a_stubborn_tool_survives_a_polite_end(mac):
    mac.hang_tool("fdesetup", ignores_termination=True)
    with subprocess.Popen([mac.place("/usr/bin/fdesetup"), "status"]) as process:
        while not mac.tool_calls("fdesetup"):
            time.sleep(0.005)
        # Recorded just before the signal is switched off: look at what the process says of itself.
        ignored = pathlib.Path(f"/proc/{process.pid}/status")
        while not int(ignored.read_text().split("SigIgn:\t")[1].split()[0], 16) & (1 << 14):
            time.sleep(0.005)
        process.terminate()
        with pytest.raises(subprocess.TimeoutExpired):
            process.wait(0.05)
        process.kill()


def test_a_broken_tool_fails_at_once(mac):
    mac.break_tool("csrutil", 9, "zepsute: 'tak'\n")
    result = mac.run("/usr/bin/csrutil", "status")
    assert (result.returncode, result.stdout, result.stderr) == (9, "", "zepsute: 'tak'\n")


def test_one_more_application(mac):
    mac.add_application("Nowy Program", identifier="pl.example.nowy", version="9",
                        authorities=("Developer ID Application: Nowa Firma (ABCDEFGHIJ)",))
    assert information(mac, "/Applications/Nowy Program.app")["CFBundleVersion"] == "9"
    shown = mac.run("/usr/bin/codesign", "-d", "--verbose=4", "/Applications/Nowy Program.app")
    assert "Authority=Developer ID Application: Nowa Firma (ABCDEFGHIJ)" in shown.stderr
    mac.remove_application("Nowy Program")
    assert not mac.place("/Applications/Nowy Program.app").exists()


def test_services_appear_and_vanish(mac):
    mac.show_service("system", "pl.example.usluga", "not running")
    text = mac.run("/bin/launchctl", "print", "system/pl.example.usluga").stdout
    assert "\tstate = not running\n" in text
    mac.hide_service("system", "pl.example.usluga")
    assert mac.run("/bin/launchctl", "print", "system/pl.example.usluga").returncode == 113


@pytest.mark.skipif(shutil.which("shellcheck") is None, reason="shellcheck is not installed")
def test_shellcheck_has_nothing_to_say_about_the_tools():
    scripts = [path for path in TOOLS.rglob("*")
               if path.is_file() and path.read_bytes().startswith(b"#!/bin/sh")]
    assert len(scripts) > 20
    subprocess.run(["shellcheck", "-s", "dash", "-S", "style", "-e",
                    # the common part is found at run time and sets what they use; a || b reads well
                    "SC1090,SC1091,SC2154,SC2015,SC2034", *scripts], check=True)
