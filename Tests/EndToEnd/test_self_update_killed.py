"""The updater script, killed before each of its commands in turn: whatever it leaves behind, the
next update finds or makes a whole version that runs, be it the old or the new one."""

from __future__ import annotations

import os
import plistlib
import shutil
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Any, Callable, Iterable

import pytest

from update_mac import APP, DAEMON_JOB, MENU_BAR_JOB, NEW, OLD, UpdateMac, installed, program

pytestmark = [pytest.mark.long, pytest.mark.without_agent, pytest.mark.skipif(
    os.geteuid() != 0, reason="needs root to enter the sample Mac")]

NOT_REACHABLE = "https://localhost:1/new.pkg"

# What bash reads before the script: it counts the commands that can change anything outside bash,
# notes them, and ends the script before the one whose number it was given. Which command it is, only
# its line tells: in a trap, BASH_COMMAND goes on naming the one that failed. A process that was killed
# leaves what it has started alone, and so does this.
STEPS = r"""
unset BASH_ENV
mapfile -t script_lines < "$0"
step=0
at_command() {
    local line=${script_lines[$1 - 1]}
    [ "$BASH_SUBSHELL" -eq 0 ] || return 0
    case $line in
        # Predecessors are not even there.
        *'"$folder/$name"'*) return 0 ;;
        *'$('* | *'/bin/sleep '* | *'/bin/launchctl print '* | */usr/bin/grep* | *='"'* | '}') return 0 ;;
        *' /bin/'* | *' /usr/'* | *'"$1" --version'* | *'"$LSREGISTER" -f'*) ;;
        *) return 0 ;;
    esac
    step=$((step + 1))
    printf '%s\n' "${line#"${line%%[! ]*}"}" >> /.sample/steps
    if [ "$step" -eq "$KILL_BEFORE" ]; then kill -9 "$$"; fi
    return 0
}
set -T
trap 'at_command "$LINENO"' DEBUG
"""


class Story:
    """One way in which an update goes; each run of it happens on a Mac of its own."""

    def __init__(self, folder: Path, desk: Any, content: bytes, url: str) -> None:
        self._folder = folder
        self._desk = desk
        self._content = content
        self._url = url
        self.begins_half_installed = False
        self.is_attempt_only = False
        self.next_succeeds = False
        self.machine_restarts = False

    def commands(self) -> list[str]:
        """The script's commands when nothing ends it early."""
        with self._mac("whole") as mac:
            self._run(mac, 0)
            return steps_of(mac)

    def broken_ends(self, numbers: Iterable[int]) -> list[str]:
        """Of the runs killed before these commands, those after which no version works."""
        with ThreadPoolExecutor(max(os.cpu_count() or 1, 2)) as workers:
            return [end for end in workers.map(self._killed, numbers) if end]

    def _killed(self, number: int) -> str:
        with self._mac(str(number)) as mac:
            self._run(mac, number)
            if self.machine_restarts:
                mac.restart()
            if self.next_succeeds:
                mac.write_script(url=self._url, content=self._content)
            else:
                mac.write_script(url=NOT_REACHABLE, content=b"x")
            done = mac.run_script()
            try:
                assert done.returncode == (0 if self.next_succeeds else 7)
                version = whole_version(mac)
                assert version == NEW if self.next_succeeds else version in (OLD, NEW)
                mac.assert_tidy()
            except AssertionError as error:
                return f"killed before {number}, {steps_of(mac)[-1]}: {error}\n{done.stdout}"
        shutil.rmtree(mac.root)
        return ""

    def _mac(self, name: str) -> UpdateMac:
        mac = installed(self._folder / name, self._desk)
        if self.begins_half_installed:
            mac.leave_half_installed(self._url, self._content)
        (mac.sample / "steps.sh").write_text(STEPS)
        return mac

    def _run(self, mac: UpdateMac, kill_before: int) -> None:
        url = NOT_REACHABLE if self.is_attempt_only else self._url
        mac.write_script(url=url, content=self._content)
        mac.run_script(BASH_ENV="/.sample/steps.sh", KILL_BEFORE=str(kill_before))


def steps_of(mac: UpdateMac) -> list[str]:
    return (mac.sample / "steps").read_text().splitlines()


def whole_version(mac: UpdateMac) -> str:
    """Of all that is installed and of what runs, which must be one."""
    bundle = plistlib.loads(mac.place(f"{APP}/Contents/Info.plist").read_bytes())
    for path in (DAEMON_JOB, MENU_BAR_JOB):
        assert plistlib.loads(mac.place(path).read_bytes())["Label"] == Path(path).stem
    versions = {*mac.versions(), bundle["CFBundleShortVersionString"]}
    assert len(versions) == 1, versions
    version = versions.pop()
    mac.wait_until(lambda: mac.running_version() == version, f"process of {version}", 5)
    return version


@pytest.fixture
def story(tmp_path, desk, contents, offer) -> Callable[..., Story]:
    """story(**parts) is about updates to a package of these parts."""

    def tell(**parts: Any) -> Story:
        content = contents(**parts)
        return Story(tmp_path / "macs", desk, content, offer(content))

    return tell


def everywhere(commands: list[str]) -> range:
    """The numbers of all commands."""
    return range(1, len(commands) + 1)


def here_and_there(commands: list[str], count: int) -> list[int]:
    """The numbers of so many commands, the last among them."""
    return sorted({round(len(commands) * (i + 1) / count) for i in range(count)})


def expect_commands(commands: list[str], *needed: str) -> None:
    """What has not been done has not been cut short either."""
    for words in needed:
        assert any(words in command for command in commands), words


def test_an_update_that_succeeds(story):
    update = story()
    commands = update.commands()
    expect_commands(commands, "/usr/bin/curl", "/usr/bin/tar -cpf", "/usr/sbin/installer",
                    '/bin/mv "$BACKUP_ROOT"')
    assert update.broken_ends(everywhere(commands)) == []


def test_an_update_that_goes_back(story):
    update = story(daemon=program(NEW, answer="true"))
    commands = update.commands()
    expect_commands(commands, "/usr/sbin/installer", "/usr/bin/tar -xpf", "/bin/cp -p",
                    '/bin/mv "$BACKUP_ROOT"')
    installing = next(number for number, command in enumerate(commands, 1)
                      if command.startswith("/usr/sbin/installer"))
    numbers = [installing + number for number in everywhere(commands[installing:])]
    assert update.broken_ends(numbers) == []


def test_what_undoes_an_interrupted_update(story):
    attempt = story()
    attempt.begins_half_installed = attempt.is_attempt_only = True
    commands = attempt.commands()
    expect_commands(commands, "/usr/bin/tar -xpf", "/bin/cp -p", "/bin/launchctl bootstrap")
    assert attempt.broken_ends(everywhere(commands)) == []


def test_the_next_update_succeeds(story):
    update = story()
    update.next_succeeds = True
    assert update.broken_ends(here_and_there(update.commands(), 5)) == []


def test_the_machine_restarts_in_between(story):
    update = story()
    update.machine_restarts = True
    assert update.broken_ends(here_and_there(update.commands(), 5)) == []
