"""A sample Mac with one version installed, packages of other versions, and the updater script as
the agent writes it."""

from __future__ import annotations

import hashlib
import json
import os
import plistlib
import re
import shutil
import subprocess
import time
from pathlib import Path
from typing import Any, Callable, Optional, Union

from samplemac import SampleMac
from samplemac.package import write_package

SUPPORT = "/Library/Application Support/Wsparo Brenvox"
RUNTIME = f"{SUPPORT}/runtime"
STATUS = f"{RUNTIME}/update-status.json"
REQUEST = f"{RUNTIME}/update-request.json"
DAILY_CHECK = f"{RUNTIME}/last-automatic-update-check.json"
UPDATES = f"{SUPPORT}/updates"
SCRIPT = f"{UPDATES}/wsparo-updater.sh"
JOB = f"{UPDATES}/pl.brenvox.wsparo.updater.plist"
BACKUPS = f"{SUPPORT}/update-backups"
LOG = "wsparo-update.log"
DAEMON = f"{SUPPORT}/WsparoAgent"
APP = "/Applications/Wsparo Brenvox.app"
APP_PROGRAM = f"{APP}/Contents/MacOS/Wsparo Brenvox"
DAEMON_JOB = "/Library/LaunchDaemons/pl.brenvox.wsparo.daemon.plist"
MENU_BAR_JOB = "/Library/LaunchAgents/pl.brenvox.wsparo.menubar.plist"
DAEMON_TARGET = "system/pl.brenvox.wsparo.daemon"
MENU_BAR_TARGET = "gui/501/pl.brenvox.wsparo.menubar"
UPDATER_TARGET = "system/pl.brenvox.wsparo.updater"

OLD, NEW = "0.2.55", "0.3.0"

_GOLDEN = Path(__file__).resolve().parents[1] / "Golden/UpdaterScript.sh"
_CA_FILE = "/private/etc/test-ca.pem"

# What a version of the agent and of its application do in most tests: say which they are, and run.
_RUNS = 'SAMPLE_VERSION={version} exec "/.sample/real/sleep" 100000\n'


def program(version: str, runs: str = _RUNS, *, answer: Optional[str] = None) -> str:
    """The text of an executable; `answer` is the command line that answers to --version."""
    return ("#!/bin/sh\n" f"if [ \"$1\" = --version ]; then {answer or f'echo {version}'}; exit; fi\n"
            + runs.replace("{version}", version))


def write_version(folder: Path, version: str, *, daemon: Union[str, bytes, None] = None,
                  app: Optional[str] = None, bundle_version: Optional[str] = None,
                  ballast: bytes = b"") -> Path:
    """Everything that a package of this version puts below "/"; `ballast` makes the application
    larger."""
    files = {DAEMON: daemon or program(version), APP_PROGRAM: app or program(version),
             f"{APP}/Contents/Resources/Ballast": ballast}
    for path, content in files.items():
        place = folder / path.lstrip("/")
        place.parent.mkdir(parents=True, exist_ok=True)
        # What runs keeps its old file.
        place.unlink(missing_ok=True)
        place.write_bytes(content if isinstance(content, bytes) else content.encode())
        place.chmod(0o755)
    lists = {
        f"{APP}/Contents/Info.plist": {
            "CFBundleIdentifier": "pl.brenvox.wsparo", "CFBundleExecutable": "Wsparo Brenvox",
            "CFBundleShortVersionString": version if bundle_version is None
            else bundle_version},
        DAEMON_JOB: {"Label": Path(DAEMON_JOB).stem, "ProgramArguments": [DAEMON],
                     "RunAtLoad": True, "KeepAlive": True},
        MENU_BAR_JOB: {"Label": Path(MENU_BAR_JOB).stem, "RunAtLoad": True,
                       "ProgramArguments": [APP_PROGRAM, "--menubar"]},
    }
    for path, values in lists.items():
        place = folder / path.lstrip("/")
        place.parent.mkdir(parents=True, exist_ok=True)
        place.write_bytes(plistlib.dumps(values))
        place.chmod(0o644)
    return folder


def package(folder: Path, version: str, scripts: Optional[dict[str, str]] = None,
            **parts: Any) -> bytes:
    """A package of a version, as an installer takes it; `parts` as in write_version."""
    payload = folder / f"payload-{version}"
    shutil.rmtree(payload, ignore_errors=True)
    write_version(payload, version, **parts)
    return write_package(folder / "new.pkg", "pl.brenvox.wsparo", version, payload,
                         scripts).read_bytes()


def _quoted(text: str) -> str:
    return "'" + text.replace("'", "'\"'\"'") + "'"


class UpdateMac(SampleMac):
    """Entered: the script names the Mac's own paths."""

    def __init__(self, path: Path, ca_file: str, **options: object) -> None:
        super().__init__(path, entered=True, **options)
        self.place(_CA_FILE).write_bytes(Path(ca_file).read_bytes())
        self.set_job_environment(**self._environment())
        self.set_throttle(0.2)

    @staticmethod
    def _environment() -> dict[str, str]:
        """What launchd's jobs see: whom to trust, and where a sanitizer reports to."""
        reports = ("ASAN_OPTIONS", "UBSAN_OPTIONS", "ASAN_SYMBOLIZER_PATH")
        return {"CURL_CA_BUNDLE": _CA_FILE, "SSL_CERT_FILE": _CA_FILE,
                "SSL_CERT_DIR": "/nonexistent",
                **{name: os.environ[name] for name in reports if name in os.environ}}

    def hurry(self, second: float = 0.005) -> None:
        """The script's pauses get shorter; what they are for happens quickly here."""
        self.replace_tool("/bin/sleep", "#!/bin/sh\ncase $1 in 3) pause=0.1 ;; 0.*) pause=0.01 ;; "
                          f'*) pause={second} ;; esac\nexec /.sample/real/sleep "$pause"\n')

    def install(self, version: str = OLD, **parts: Any) -> None:
        """The version is installed and runs."""
        self.install_files(version, **parts)
        self.start()

    def start(self) -> None:
        self.launchctl("bootstrap", "system", DAEMON_JOB)
        self.launchctl("bootstrap", "gui/501", MENU_BAR_JOB)
        assert self.is_running(DAEMON_TARGET)

    def install_files(self, version: str, **parts: Any) -> None:
        """Only the files; what runs goes on running."""
        write_version(self.root, version, **parts)

    def write_script(self, *, url: str, content: bytes, version: str = NEW, current: str = OLD,
                     sha256: Optional[str] = None, size: Optional[int] = None) -> None:
        """The script and the job file, for an update to this package."""
        values = {
            "PKG_PATH": f'"{UPDATES}/Wsparo-Brenvox-macOS-{version}.pkg"',
            "PKG_URL": f'"{url}"',
            "EXPECTED_SHA": f'"{sha256 or hashlib.sha256(content).hexdigest()}"',
            "EXPECTED_SIZE": str(len(content) if size is None else size),
            "CURRENT_VERSION_JSON": _quoted(json.dumps(current)),
            "AVAILABLE_VERSION_JSON": _quoted(json.dumps(version)),
            "AVAILABLE_VERSION_RAW": _quoted(version),
            "BACKUP_VERSION": f'"{current}"',
        }
        text = _GOLDEN.read_text()
        for name, value in values.items():
            text, count = re.subn(f"(?m)^  {name}=.*$", lambda _, v=f"  {name}={value}": v, text)
            assert count == 1, name
        script = self.place(SCRIPT)
        script.parent.mkdir(parents=True, exist_ok=True)
        script.write_text(text)
        script.chmod(0o700)
        self.place("/Library/Logs/Wsparo Brenvox").mkdir(parents=True, exist_ok=True)
        self.write_job(JOB, {
            "Label": Path(JOB).stem, "ProgramArguments": ["/bin/bash", SCRIPT], "RunAtLoad": True,
            "AbandonProcessGroup": True,
            "StandardOutPath": f"/Library/Logs/Wsparo Brenvox/{LOG}",
            "StandardErrorPath": f"/Library/Logs/Wsparo Brenvox/{LOG}"})

    def run_script(self, **variables: str) -> subprocess.CompletedProcess:
        """Runs the script to its end; both outputs are in `stdout`."""
        return self.enter("/bin/bash", SCRIPT, stderr=subprocess.STDOUT,
                          stdout=subprocess.PIPE, capture_output=False, timeout=60,
                          env={**os.environ, **self._environment(), **variables})

    def leave_half_installed(self, url: str, content: bytes) -> Path:
        """As a run leaves it that is killed while its installer is at work; the backup's folder."""
        self.write_script(url=url, content=content)
        self.fault("installer", f'"$real/rm" -rf "{APP}/Contents/MacOS"\n'
                   f'"$real/rm" -f "{DAEMON}"\nprintf half > "{DAEMON}"\n'
                   'kill -9 "$PPID"\nexit 1\n')
        assert self.run_script().returncode == -9
        self.mend_tool("installer")
        backup, = self.place(BACKUPS).iterdir()
        assert self.versions() == ("", "")
        return backup

    def fault(self, tool: str, script: str) -> None:
        """Before every run of the tool, with its arguments."""
        self.delay_tool(tool, 0)
        (self.sample / "faults" / tool).write_text(script)

    # What has become of it

    def is_running(self, target: str) -> bool:
        return "\n\tstate = running\n" in self.description_of(target)

    def status(self) -> dict:
        return json.loads(self.place(STATUS).read_text())

    def version_of(self, path: str) -> str:
        """What an installed program answers; empty when it is missing or fails."""
        place = self.place(path)
        if not os.access(place, os.X_OK):
            return ""
        return subprocess.run([place, "--version"], capture_output=True, text=True,
                              check=False, timeout=20).stdout.strip()

    def versions(self) -> tuple[str, str]:
        return self.version_of(APP_PROGRAM), self.version_of(DAEMON)

    def running_version(self) -> str:
        """Of the daemon's process, when it is one that `program` has made; empty without one."""
        pid = re.search(r"\n\tpid = (\d+)\n", self.description_of(DAEMON_TARGET))
        try:
            environment = Path(f"/proc/{pid[1]}/environ").read_text() if pid else ""
        except (FileNotFoundError, ProcessLookupError):
            return ""
        found = re.search(r"(?:^|\0)SAMPLE_VERSION=([^\0]*)", environment)
        return found[1] if found else ""

    def wait_until(self, look: Callable, what: str, timeout: float = 30.0):
        deadline = time.monotonic() + timeout
        while not (found := look()):
            assert time.monotonic() < deadline, f"no {what}; the log:\n{self.read_log(LOG)}"
            time.sleep(0.02)
        return found

    def assert_works(self, version: str) -> None:
        """This version is installed whole and runs."""
        assert self.versions() == (version, version)
        bundle = plistlib.loads(self.place(f"{APP}/Contents/Info.plist").read_bytes())
        assert bundle["CFBundleShortVersionString"] == version
        self.wait_until(lambda: self.is_running(DAEMON_TARGET), "running daemon", 5)

    def assert_tidy(self) -> None:
        """Nothing of the update is left but its status and its log."""
        assert not self.place(SCRIPT).exists() and not self.place(JOB).exists()
        assert not self.place(BACKUPS).exists()
        assert os.listdir(self.place(UPDATES)) == []
        assert set(os.listdir(self.place(RUNTIME))) - {Path(DAILY_CHECK).name} == {Path(STATUS).name}
        for path in (DAEMON, DAEMON_JOB, MENU_BAR_JOB):
            assert not self.place(f"{path}.restored").exists()
        assert self.place(STATUS).stat().st_mode & 0o777 == 0o666
        assert self.place(RUNTIME).stat().st_mode & 0o7777 == 0o1777


def installed(path: Path, desk: Any) -> UpdateMac:
    """In a hurry, with the old version running."""
    mac = UpdateMac(path, desk.ca_file)
    mac.hurry()
    mac.install()
    return mac
