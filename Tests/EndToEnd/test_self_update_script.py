"""The updater script itself, run where the sample Mac is "/": what each failure ends with, what
becomes of planted files and of interrupted updates."""

from __future__ import annotations

import json
import os
from pathlib import Path
from typing import Iterator

import pytest

from update_mac import (APP, APP_PROGRAM, BACKUPS, DAEMON, DAEMON_JOB, DAEMON_TARGET,
                        MENU_BAR_TARGET, NEW, OLD, RUNTIME, SCRIPT, STATUS, UPDATES, UpdateMac,
                        installed, program)
from update_outcomes import (FAILED, NO_CONNECTION, NOT_HEALTHY, NOT_SERVED, NOT_TRUSTED, NOT_WHOLE,
                             TOO_SLOW, WRONG_HASH, WRONG_SIZE, expect_failure)

pytestmark = [pytest.mark.without_agent, pytest.mark.skipif(
    os.geteuid() != 0, reason="needs root to enter the sample Mac")]

@pytest.fixture(scope="module")
def shared(tmp_path_factory, desk) -> Iterator[UpdateMac]:
    """Where updates fail: each leaves it as it found it."""
    with installed(tmp_path_factory.mktemp("macs") / "shared", desk) as mac:
        yield mac


@pytest.fixture
def unchanged(shared: UpdateMac) -> Iterator[UpdateMac]:
    shared.place(STATUS).unlink(missing_ok=True)
    yield shared
    for tool in ("curl", "tar", "launchctl", "installer"):
        shared.mend_tool(tool)
    shared.assert_works(OLD)
    shared.assert_tidy()


@pytest.fixture
def own(tmp_path: Path, desk) -> Iterator[UpdateMac]:
    """A Mac that the test may change."""
    with installed(tmp_path / "mac", desk) as mac:
        yield mac


# The download

@pytest.mark.parametrize(("code", "message"), [
    (6, NO_CONNECTION), (28, TOO_SLOW), (35, NOT_TRUSTED), (51, NOT_TRUSTED),
    (23, FAILED),  # no space left
])
def test_a_download_that_fails(unchanged, code, message):
    unchanged.write_script(url="https://localhost:1/new.pkg", content=b"x")
    unchanged.break_tool("/usr/bin/curl", code)
    expect_failure(unchanged, code, message, f"Update failed with exit code {code}.",
                   "No previous installation backup to restore.")


def test_a_server_that_cannot_be_reached(unchanged):
    unchanged.write_script(url="https://localhost:1/new.pkg", content=b"x")
    expect_failure(unchanged, 7, NO_CONNECTION)


def test_a_package_that_is_not_served(unchanged, offer, contents):
    content = contents()
    unchanged.write_script(url=offer(content, {"mode": "missing"}), content=content)
    expect_failure(unchanged, 22, NOT_SERVED)


def test_a_server_that_is_not_trusted(unchanged, offer, contents):
    content = contents()
    unchanged.write_script(url=offer(content), content=content)
    expect_failure(unchanged, 60, NOT_TRUSTED, CURL_CA_BUNDLE="/etc/ssl/certs/ca-certificates.crt")


def test_a_download_that_is_cut_off(unchanged, offer, contents):
    content = contents()
    unchanged.write_script(url=offer(content, {"mode": "truncated"}), content=content)
    expect_failure(unchanged, 18, FAILED, "Update failed with exit code 18.")


def test_a_download_that_leaves_nothing(unchanged):
    unchanged.write_script(url="https://localhost:1/new.pkg", content=b"x")
    unchanged.fault("curl", "exit 0\n")
    expect_failure(unchanged, 40, NOT_WHOLE, "Downloaded package is missing.")


# The package

@pytest.mark.parametrize("difference", [-1, 1])
def test_a_package_of_another_size(unchanged, offer, contents, difference):
    content = contents()
    expected = len(content) + difference
    unchanged.write_script(url=offer(content), content=content, size=expected)
    expect_failure(unchanged, 41, WRONG_SIZE,
                   f"Package size mismatch: expected {expected} got {len(content)}",
                   "No previous installation backup to restore.")


def test_a_package_with_another_hash(unchanged, offer, contents):
    content = contents()
    unchanged.write_script(url=offer(content), content=content, sha256="0" * 64)
    output = expect_failure(unchanged, 42, WRONG_HASH)
    assert f"SHA-256 mismatch: expected {'0' * 64} got " in output


def test_a_package_that_changes_between_verification_and_installation(unchanged, offer, contents):
    content = contents()
    unchanged.write_script(url=offer(content), content=content)
    package_place = f"{UPDATES}/Wsparo-Brenvox-macOS-{NEW}.pkg"
    unchanged.fault("tar", 'case "$1" in -c*)\n'
          f'printf X | "$real/dd" of="{package_place}" conv=notrunc 2> /dev/null\n'
          f'"$real/touch" -d "next year" "{package_place}" ;;\nesac\n')
    unchanged.forget_calls()
    expect_failure(unchanged, 42, WRONG_HASH)
    assert unchanged.tool_calls("installer") == []


# The installation

def test_a_backup_that_fails(unchanged, offer, contents):
    content = contents()
    unchanged.write_script(url=offer(content), content=content)
    unchanged.fault("tar", 'case "$1" in -c*) echo "tar: Write failed" >&2; exit 1 ;; esac\n')
    unchanged.forget_calls()
    expect_failure(unchanged, 1, FAILED, "tar: Write failed",
                   "No previous installation backup to restore.")
    assert unchanged.tool_calls("installer") == []


@pytest.mark.parametrize("script", ["preinstall", "postinstall"])
def test_an_installer_that_fails(unchanged, offer, contents, script):
    content = contents(scripts={script: "#!/bin/bash\nexit 3\n"})
    unchanged.write_script(url=offer(content), content=content)
    output = expect_failure(unchanged, 1, FAILED, "Update failed with exit code 1.")
    assert f"Restoring previous Wsparo Brenvox installation from {BACKUPS}/{OLD}-" in output


def test_a_file_that_is_no_package(unchanged, offer):
    content = b"<html>Not a package</html>"
    unchanged.write_script(url=offer(content), content=content)
    expect_failure(unchanged, 1, FAILED)


CRASHES = "exit 1\n"


@pytest.mark.parametrize(("parts", "line"), [
    ({"bundle_version": "9.9"},
     f"Installed app version mismatch: expected {NEW} got 9.9"),
    ({"bundle_version": ""},
     f"Installed app version mismatch: expected {NEW} got empty"),
    ({"app": program(NEW, answer="echo 9.9")},
     f"Installed app binary version mismatch: expected {NEW} got 9.9"),
    ({"app": program(NEW, answer="true")},
     f"Installed app binary version mismatch: expected {NEW} got empty"),
    ({"daemon": program("9.9")},
     f"Installed daemon binary version mismatch: expected {NEW} got 9.9"),
    ({"daemon": program(NEW, answer='exec "/.sample/real/sleep" 1000')},
     f"Installed daemon binary version mismatch: expected {NEW} got empty"),
    ({"daemon": program(NEW, CRASHES)}, "New daemon did not reach running state."),
    ({"scripts": {"postinstall": f"#!/bin/bash\nrm '{APP_PROGRAM}'\n"}},
     "New app executable is missing."),
    ({"scripts": {"postinstall": f"#!/bin/bash\nchmod 644 '{DAEMON}'\n"}},
     "New daemon executable is missing."),
])
def test_a_new_version_that_does_not_run(unchanged, offer, contents, parts, line):
    content = contents(**parts)
    unchanged.write_script(url=offer(content), content=content)
    output = expect_failure(unchanged, 43, NOT_HEALTHY, line,
                            "New installation healthcheck failed.")
    assert "Update failed with exit code" not in output
    assert unchanged.is_running(MENU_BAR_TARGET)


def test_modes_and_owners_come_back(unchanged, offer, contents):
    content = contents(daemon=program("9.9"))
    unchanged.write_script(url=offer(content), content=content)
    expect_failure(unchanged, 43, NOT_HEALTHY)
    for path, mode in ((DAEMON, 0o755), (DAEMON_JOB, 0o644), (APP_PROGRAM, 0o755)):
        facts = unchanged.place(path).stat()
        assert (facts.st_mode & 0o7777, facts.st_uid, facts.st_gid) == (mode, 0, 0), path


def test_a_bootstrap_that_is_refused_is_tried_again(unchanged, offer, contents):
    content = contents(daemon=program("9.9"))
    unchanged.write_script(url=offer(content), content=content)
    count = unchanged.sample / "refused"
    count.unlink(missing_ok=True)
    unchanged.fault("launchctl", 'if [ "$1 $2" = "bootstrap system" ]; then\n'
          '    echo x >> "$sample/refused"\n'
          '    [ "$("$real/grep" -c x "$sample/refused")" -gt 4 ] || exit 5\n'
          'fi\n')
    expect_failure(unchanged, 43, NOT_HEALTHY)
    assert count.read_text() == "x\n" * 5


# The way back fails

def test_a_restore_that_fails_says_so_and_keeps_the_backup(own, offer, contents):
    content = contents(daemon=program("9.9"))
    own.write_script(url=offer(content), content=content)
    own.fault("tar", 'case "$1" in -x*) exit 1 ;; esac\n')
    output = expect_failure(own, 43, NOT_HEALTHY, "Could not restore the previous app bundle.",
                            "Previous app bundle was not restored.")
    assert "The previous installation could not be restored. Its backup stays: " in output
    assert own.version_of(DAEMON) == OLD and own.is_running(DAEMON_TARGET)

    # The next update has the means again, and finds what was left.
    own.mend_tool("tar")
    own.write_script(url="https://localhost:1/new.pkg", content=b"x")
    expect_failure(own, 7, NO_CONNECTION, "An earlier update was interrupted.")
    own.assert_works(OLD)
    own.assert_tidy()


def test_a_daemon_that_cannot_be_loaded_again_is_a_restore_that_fails(own, offer, contents):
    content = contents(daemon=program("9.9"))
    own.write_script(url=offer(content), content=content)
    own.fault("launchctl", '[ "$1 $2" != "bootstrap system" ] || exit 5\n')
    expect_failure(own, 43, NOT_HEALTHY, "Could not load the previous daemon.")
    own.mend_tool("launchctl")
    new = contents()
    own.write_script(url=offer(new), content=new)
    assert own.run_script().returncode == 0
    own.assert_works(NEW)
    own.assert_tidy()


# An earlier run that was killed

def left_backup(mac: UpdateMac, offer, contents) -> Path:
    content = contents()
    return mac.leave_half_installed(offer(content), content)


def test_an_interrupted_installation_is_undone_before_anything_else(own, offer, contents):
    left_backup(own, offer, contents)
    own.write_script(url="https://localhost:1/new.pkg", content=b"x")
    expect_failure(own, 7, NO_CONNECTION, "An earlier update was interrupted.")
    own.assert_works(OLD)
    own.assert_tidy()


def test_after_an_interrupted_installation_the_next_one_succeeds(own, offer, contents):
    left_backup(own, offer, contents)
    content = contents()
    own.write_script(url=offer(content), content=content)
    done = own.run_script()
    assert done.returncode == 0, done.stdout
    own.assert_works(NEW)
    own.assert_tidy()


def test_a_left_backup_of_an_installation_that_works_is_not_used(own, offer, contents):
    backup = left_backup(own, offer, contents)
    (backup / "unfinished").unlink()
    own.install_files(OLD)
    own.write_script(url="https://localhost:1/new.pkg", content=b"x")
    output = expect_failure(own, 7, NO_CONNECTION)
    assert "Restoring" not in output
    own.assert_works(OLD)
    own.assert_tidy()


def test_files_that_answer_but_do_not_run_are_no_installation(own, offer, contents):
    backup = left_backup(own, offer, contents)
    (backup / "unfinished").unlink()
    own.install_files(NEW, daemon=program(NEW, CRASHES))
    own.write_script(url="https://localhost:1/new.pkg", content=b"x")
    expect_failure(own, 7, NO_CONNECTION, "An earlier update was interrupted.")
    own.assert_works(OLD)


def test_half_a_backup_is_none(own):
    half = own.place(f"{BACKUPS}/{OLD}-20260101000000.partial")
    half.mkdir(parents=True)
    (half / "Wsparo-Brenvox-app.tar").write_bytes(b"half")
    own.write_script(url="https://localhost:1/new.pkg", content=b"x")
    output = expect_failure(own, 7, NO_CONNECTION, "No previous installation backup to restore.")
    assert "interrupted" not in output
    own.assert_works(OLD)
    own.assert_tidy()


# Success

def test_the_new_version_replaces_the_old_one_and_its_predecessors(own, offer, contents):
    content = contents()
    legacy = ["/Library/LaunchDaemons/pl.dalvenor.orvdesk.viewer.daemon.plist",
              "/Library/LaunchAgents/pl.dalvenor.orvdesk.viewer.menubar.plist",
              "/Library/Application Support/Orv-Desk Viewer/viewer.settings.json",
              "/Applications/Orv-Viewer.app/Contents/MacOS/Orv-Viewer",
              "/Applications/Wsparo Brenvox.localized/x", "/Applications/Wsparbox.app/x",
              "/Applications/Centrum Wsparo Brenvox.app/x",
              "/Users/anna/Applications/Wsparbox.app/x",
              "/private/var/db/receipts/pl.dalvenor.orvdesk.viewer.plist"]
    for path in legacy:
        own.place(path).parent.mkdir(parents=True, exist_ok=True)
        own.place(path).write_text("")
    for target, path in (("system", legacy[0]), ("gui/501", legacy[1])):
        own.write_job(path, {"Label": Path(path).stem, "ProgramArguments": ["/usr/bin/true"]})
        assert own.launchctl("bootstrap", target, path).returncode == 0
    kept = own.place("/Library/Wsparbox.app/x")
    kept.parent.mkdir()
    kept.write_text("")
    own.place("/Users/jan/").mkdir()
    own.place("/Users/jan/Applications").symlink_to("/Library")

    own.write_script(url=offer(content), content=content)
    done = own.run_script()
    assert done.returncode == 0, done.stdout
    assert done.stdout.endswith("Update completed.\n")
    assert f"Wsparo Brenvox macOS update {OLD} -> {NEW}, reason=manual ====\n" in done.stdout
    assert own.status()["phase"] == "installed"
    assert own.status()["message"] == (f"Aktualizacja do wersji {NEW} została zainstalowana. "
                                       "Aplikacja uruchamia się ponownie.")
    own.assert_works(NEW)
    own.assert_tidy()
    assert own.is_running(MENU_BAR_TARGET)
    for path in legacy:
        assert not own.place(path).exists(), path
    assert kept.exists(), "a link in a user's folder leads root nowhere"
    for target in ("system/pl.dalvenor.orvdesk.viewer.daemon",
                   "gui/501/pl.dalvenor.orvdesk.viewer.menubar"):
        assert own.run("/bin/launchctl", "print", target).returncode == 113
    assert len(own.tool_calls("lsregister")) == 1


def test_with_nobody_logged_in(own, offer, contents):
    own.log_out()
    content = contents()
    own.write_script(url=offer(content), content=content)
    own.forget_calls()
    assert own.run_script().returncode == 0
    own.assert_works(NEW)
    own.assert_tidy()
    assert not any("gui/" in word for call in own.tool_calls("launchctl")
                   for word in call.arguments)


def test_a_menu_bar_application_that_launchd_does_not_keep_is_opened(own, offer, contents):
    content = contents(app=program(NEW, 'echo "$@ $(whoami)" >> /Users/anna/opened\nexit 0\n'))
    own.write_script(url=offer(content), content=content)
    own.place("/Users/anna/opened").touch()
    os.chown(own.place("/Users/anna/opened"), 501, 20)
    assert own.run_script().returncode == 0
    opened, = own.tool_calls("open")
    assert opened.arguments == ("-gj", APP, "--args", "--menubar")
    own.wait_until(lambda: own.place("/Users/anna/opened").read_text().endswith(
        "--menubar anna\n"), "application")


def test_what_others_plant_in_the_runtime_folder_is_replaced_not_used(own, offer, contents):
    precious = own.place("/Library/precious")
    precious.write_text("precious")
    folder = own.place("/Library/folder")
    folder.mkdir()
    plants = {
        "a link to a file": lambda place: place.symlink_to("/Library/precious"),
        "a link to nothing": lambda place: place.symlink_to("/Library/nothing"),
        "a link to a folder": lambda place: place.symlink_to("/Library/folder"),
        "a folder": lambda place: (place / "deeper").mkdir(parents=True),
        "a file": lambda place: (place.write_text("{"), os.chown(place, 501, 20)),
    }
    for name, plant in plants.items():
        for target in (STATUS, f"{STATUS}.tmp"):
            own.run("/bin/rm", "-rf", str(own.place(STATUS)))
            own.place(RUNTIME).mkdir(exist_ok=True)
            plant(own.place(target))
            own.write_script(url="https://localhost:1/new.pkg", content=b"x")
            own.fault("curl", "exit 7\n")
            expect_failure(own, 7, NO_CONNECTION)
            assert not own.place(STATUS).is_symlink(), name
            assert precious.read_text() == "precious" and os.listdir(folder) == [], name
            own.assert_tidy()


def test_the_status_is_followed_by_the_user_step_by_step(own, offer, contents):
    content = contents()
    own.write_script(url=offer(content), content=content)
    for tool in ("curl", "installer"):
        own.fault(tool, f'"$real/cat" "$root{STATUS}" > "$root/Library/{tool}"\n')
    assert own.run_script().returncode == 0
    seen = {tool: json.loads(own.place(f"/Library/{tool}").read_text())
            for tool in ("curl", "installer")}
    assert seen["curl"]["phase"] == "downloading"
    assert seen["curl"]["message"] == f"Pobieram aktualizację do wersji {NEW}..."
    assert seen["installer"]["phase"] == "installing"
    assert seen["installer"]["message"] == f"Instaluję aktualizację do wersji {NEW}..."
    assert own.place(STATUS).read_text().startswith('{\n  "phase": "installed",\n  "message": "')


def test_at_any_other_place_the_script_does_nothing(unchanged):
    """Such as that of an agent over a folder that only looks like a Mac."""
    unchanged.write_script(url="https://localhost:1/new.pkg", content=b"x")
    unchanged.place(SCRIPT).rename(unchanged.place("/Library/moved.sh"))
    unchanged.forget_calls()
    done = unchanged.enter("/bin/bash", "/Library/moved.sh")
    assert (done.returncode, done.stdout) == (64, f"This runs from {SCRIPT} only.\n")
    assert unchanged.tool_calls() == [] and not unchanged.place(STATUS).exists()
    unchanged.write_script(url="https://localhost:1/new.pkg", content=b"x")
    expect_failure(unchanged, 7, NO_CONNECTION)
