"""The updater script where the machine or the network around it is at fault: bad connections, a full
disk, a clock that jumps, an installer that outlives the script that started it."""

from __future__ import annotations

import os
import subprocess
from pathlib import Path
from typing import Iterator
from urllib.parse import urlsplit

import pytest

from update_mac import (APP_PROGRAM, BACKUPS, MENU_BAR_TARGET, NEW, OLD, UPDATES, UpdateMac, installed,
                        program)
from update_outcomes import (FAILED, NO_CONNECTION, NOT_HEALTHY, NOT_TRUSTED, TOO_SLOW, expect_failure)

pytestmark = [pytest.mark.without_agent, pytest.mark.skipif(
    os.geteuid() != 0, reason="needs root to enter the sample Mac")]

NOT_REACHABLE = "https://localhost:1/new.pkg"


@pytest.fixture(scope="module")
def patient(tmp_path_factory, desk) -> Iterator[UpdateMac]:
    """Where downloads fail, so that nothing ever changes."""
    with installed(tmp_path_factory.mktemp("macs") / "patient", desk) as mac:
        yield mac


@pytest.fixture
def mac(tmp_path: Path, desk) -> Iterator[UpdateMac]:
    with installed(tmp_path / "mac", desk) as one:
        yield one


def expect_unharmed(mac: UpdateMac) -> None:
    mac.mend_tool("curl")
    mac.assert_works(OLD)
    mac.assert_tidy()
    assert mac.is_running(MENU_BAR_TARGET)


# The network

@pytest.mark.parametrize(("kind", "code"), [
    ("plain-http", 35), ("old-tls", 35), ("expired", 60), ("wrong-host", 60), ("unknown-ca", 60),
])
def test_a_server_that_cannot_be_trusted(patient, admin, offer, contents, kind, code):
    content = contents()
    path = urlsplit(offer(content)).path
    listener = admin.open_listener(kind)
    host = urlsplit(listener["url"]).hostname
    patient.write_script(url=f"https://{host}:{listener['port']}{path}", content=content)
    expect_failure(patient, code, NOT_TRUSTED, f"Update failed with exit code {code}.")
    admin.close_listener(listener["id"])
    expect_unharmed(patient)


@pytest.mark.parametrize("slowness", ["silent", "trickling"])
def test_a_server_that_takes_too_long(patient, admin, desk, offer, contents, slowness):
    """curl's own limits, shortened."""
    content = contents()
    if slowness == "silent":
        url = f"https://localhost:{admin.open_listener('silent')['port']}/new.pkg"
    else:
        url = offer(content, {"mode": "slow", "bytes_per_second": 10})
    patient.write_script(url=url, content=content)
    patient.fault("curl", 'set -- "$@" --max-time 0.5 --retry 0\n')
    expect_failure(patient, 28, TOO_SLOW)
    for listener in admin.listeners():
        if listener["kind"] == "silent":
            admin.close_listener(listener["id"])
    expect_unharmed(patient)


def test_a_download_is_not_led_away_to_plain_http(patient, admin, offer, contents):
    content = contents()
    url = offer(content)
    listener = admin.open_listener("plain-http")
    admin.fail("package", "redirect", location=listener["url"] + urlsplit(url).path)
    patient.write_script(url=url, content=content)
    expect_failure(patient, 1, FAILED, "Update failed with exit code 1.")
    admin.close_listener(listener["id"])
    assert len(admin.requests("package")) == 1
    expect_unharmed(patient)


def test_a_busy_server_is_asked_again(mac, admin, offer, contents):
    content = contents()
    mac.write_script(url=offer(content), content=content)
    mac.fault("curl", 'set -- "$@" --retry-delay 1\n')
    admin.fail("package", "status", status=503)
    done = mac.run_script()
    assert done.returncode == 0, done.stdout
    assert len(admin.requests("package")) == 2
    mac.assert_works(NEW)


# The disk

MEBIBYTE = 1 << 20
BALLAST = os.urandom(2 * MEBIBYTE)
DISK = "24m"


@pytest.fixture
def small_mac(tmp_path: Path, desk) -> Iterator[UpdateMac]:
    """On a disk of its own, with an application of two megabytes."""
    place = tmp_path / "mac"
    place.mkdir()
    subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={DISK},mode=755", "tmpfs", place], check=True)
    try:
        with UpdateMac(place, desk.ca_file) as mac:
            mac.hurry()
            mac.install(ballast=BALLAST)
            yield mac
    finally:
        subprocess.run(["umount", "--lazy", place], check=True)


def fill_disk_before(mac: UpdateMac, tool: str, when: str, leaving: int) -> None:
    """At the run of the tool whose arguments begin so, all but the last bytes are taken."""
    mac.fault(tool, f'case "$*" in {when}*)\n'
              '    "$real/dd" if=/dev/zero of=/Library/filler bs=4096 2> /dev/null\n'
              f'    /.real/usr/bin/truncate --size=-{leaving} /Library/filler ;;\nesac\n')


@pytest.mark.parametrize(("tool", "when", "leaving", "codes"), [
    ("curl", "", 256 << 10, {23}),
    ("tar", "-c", 256 << 10, {1, 2}),  # as its maker likes
    ("installer", "", 256 << 10, {1}),
    # Room to open the package, but not to put its files in place.
    ("installer", "", 5 * MEBIBYTE, {1}),
], ids=["download", "backup", "opening", "installation"])
def test_a_disk_that_gets_full(small_mac, offer, contents, tool, when, leaving, codes):
    content = contents(ballast=os.urandom(4 * MEBIBYTE))
    small_mac.write_script(url=offer(content), content=content)
    fill_disk_before(small_mac, tool, when, leaving)
    done = small_mac.run_script()
    assert small_mac.place("/Library/filler").stat().st_size > 0
    assert done.returncode in codes, done.stdout
    assert (small_mac.status()["phase"], small_mac.status()["message"]) == ("failed", FAILED)
    small_mac.assert_works(OLD)
    small_mac.assert_tidy()
    ballast = small_mac.place(APP_PROGRAM).parents[1] / "Resources/Ballast"
    assert ballast.read_bytes() == BALLAST


# The clock

def test_a_clock_that_jumps_back_and_forth_stops_no_update(mac, offer, contents):
    content = contents()
    mac.replace_tool("/bin/date", 'echo x >> "$sample/dates"\n'
                     'if [ $(($("$real/grep" -c x "$sample/dates") % 2)) -eq 0 ]; then\n'
                     '    exec "$real/date" -d 2001-01-01 "$@"\nfi\n'
                     'exec "$real/date" -d 2038-01-01 "$@"\n')
    backup = mac.leave_half_installed(offer(content), content)
    mac.write_script(url=NOT_REACHABLE, content=b"x")
    assert f"installation from {BACKUPS}/{backup.name}\n" in expect_failure(mac, 7, NO_CONNECTION)
    mac.assert_works(OLD)
    mac.write_script(url=offer(content), content=content)
    done = mac.run_script()
    assert done.returncode == 0, done.stdout
    mac.assert_works(NEW)
    mac.assert_tidy()


# What outlives its script

def test_an_installer_that_outlives_its_script_is_waited_for(mac, offer, contents):
    """It goes on writing the new version; what is then restored stays."""
    content = contents()
    mac.write_script(url=offer(content), content=content)
    mac.fault("installer", 'exec > /dev/null 2>&1\nkill -9 "$PPID"\n"$real/sleep" 1\n')
    assert mac.run_script().returncode == -9
    mac.mend_tool("installer")
    assert mac.version_of(APP_PROGRAM) == OLD, "the installer is still at work"
    mac.delay_tool("pgrep", 0)
    mac.write_script(url=NOT_REACHABLE, content=b"x")
    expect_failure(mac, 7, NO_CONNECTION, "An earlier update was interrupted.")
    mac.assert_works(OLD)
    mac.assert_tidy()
    assert len(mac.tool_calls("pgrep")) > 1


def test_a_job_of_launchd_that_is_stopped_is_made_good_by_the_next(mac, offer, contents):
    """Ordered away in the middle of an installation, as a further update does."""
    content = contents(scripts={"postinstall": "#!/bin/bash\nexec /.sample/real/sleep 1000\n"})
    mac.write_script(url=offer(content), content=content)
    job = mac.place(f"{UPDATES}/pl.brenvox.wsparo.updater.plist")
    assert mac.launchctl("bootstrap", "system", f"{UPDATES}/{job.name}").returncode == 0
    mac.wait_until(lambda: mac.version_of(APP_PROGRAM) == NEW, "unpacked files")
    assert mac.launchctl("bootout", f"system/{job.stem}").returncode == 0
    mac.enter("/usr/bin/pkill", "-f", "real/sleep 1000")
    mac.write_script(url=NOT_REACHABLE, content=b"x")
    expect_failure(mac, 7, NO_CONNECTION, "An earlier update was interrupted.")
    mac.assert_works(OLD)
    mac.assert_tidy()


def test_an_update_is_whole_again_after_two_failures_in_a_row(mac, offer, contents):
    bad, good = contents(daemon=program("9.9")), contents()
    for _ in range(2):
        mac.write_script(url=offer(bad), content=bad)
        expect_failure(mac, 43, NOT_HEALTHY)
        mac.assert_works(OLD)
    mac.write_script(url=offer(good), content=good)
    assert mac.run_script().returncode == 0
    mac.assert_works(NEW)
    mac.assert_tidy()
