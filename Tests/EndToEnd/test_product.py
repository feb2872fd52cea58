"""The shipped program where it is installed: started by launchd, with the Mac's own absolute paths."""

from __future__ import annotations

import base64
import json
import os
import re
import shutil
from pathlib import Path
from typing import Iterator, Optional

import pytest
from agent_process import AGENT
from device import CONFIG_FOLDER, device_uid_of, give_identity
from helpdesk.client import HelpdeskClient
from helpdesk.process import HelpdeskProcess
from samplemac import SampleMac
from samplemac.machine import ToolCall

PROGRAM = f"{CONFIG_FOLDER}/WsparoAgent"
STATE = f"{CONFIG_FOLDER}/wsparo.state.json"
LABEL = "pl.brenvox.wsparo.daemon"
JOB = f"/Library/LaunchDaemons/{LABEL}.plist"
CHAT = "/Users/Shared/Wsparo Brenvox/remote-chat"
CA_FILE = "/private/etc/test-ca.pem"

pytestmark = [pytest.mark.xdist_group("product"), pytest.mark.skipif(
    os.geteuid() != 0, reason="needs root to enter the sample Mac")]


class InstalledMac(SampleMac):
    """Entered: nothing tells the program that "/" is not a real Mac's."""

    def __init__(self, path: Path, name: str, desk: HelpdeskProcess) -> None:
        super().__init__(path, entered=True)
        give_identity(self, name)
        self.uid = device_uid_of(self)
        self.write_settings(serverBaseUrl=desk.url, viewerToken=desk.viewer_token,
                            chatPollIntervalSeconds=1)
        shutil.copy(AGENT.with_name("WsparoAgent"), self.place(PROGRAM))
        self.place(CA_FILE).write_bytes(Path(desk.ca_file).read_bytes())
        reports = {name: os.environ[name] for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS")
                   if name in os.environ}
        self.set_job_environment(SSL_CERT_FILE=CA_FILE, SSL_CERT_DIR="/nonexistent", **reports)
        self.set_throttle(0.2)
        self.write_job(JOB, {"Label": LABEL, "ProgramArguments": [PROGRAM], "RunAtLoad": True,
                             "KeepAlive": True})

    def start(self) -> None:
        loaded = self.launchctl("bootstrap", "system", JOB)
        if loaded.returncode == 77:
            pytest.skip(loaded.stderr.strip())
        assert loaded.returncode == 0, loaded.stderr

    def job(self) -> str:
        """What launchd tells of it; empty when it has none."""
        return self.launchctl("print", f"system/{LABEL}").stdout

    def pid(self) -> int:
        found = re.search(r"\tpid = (\d+)", self.job())
        assert found, self.job()
        return int(found[1])


@pytest.fixture(scope="module")
def mac(tmp_path_factory: pytest.TempPathFactory, desk: HelpdeskProcess) -> Iterator[InstalledMac]:
    """One Mac for the tests that leave it as it was."""
    with InstalledMac(tmp_path_factory.mktemp("product") / "mac", __name__, desk) as installed:
        installed.start()
        yield installed


@pytest.fixture
def connected(mac: InstalledMac, admin: HelpdeskClient) -> InstalledMac:
    admin.wait_until_connected(mac.uid)
    return mac


def run(admin: HelpdeskClient, mac: InstalledMac, command_type: str, **payload: object) -> dict:
    command = admin.run_command(mac.uid, command_type, payload)
    assert command["status"] == "completed", command
    return command["result"]


def test_registers_and_keeps_its_files_where_a_mac_has_them(connected, admin):
    device = admin.wait_for_device(connected.uid, lambda found: found["heartbeat"] is not None)
    state = json.loads(connected.place(STATE).read_text())
    assert (state["deviceUid"], state["supportId"]) == (connected.uid, device["support_id"])
    log = connected.read_log()
    assert "Heartbeat sent successfully. reason=startup" in log
    assert str(connected.root) not in log + json.dumps(device)
    assert connected.place("/Library/Logs/Wsparo Brenvox/wsparo.log").stat().st_uid == 0


@pytest.mark.parametrize("shell", ["zsh", "bash", "sh"])
def test_a_command_runs_as_root_in_the_macs_own_shell(connected, admin, shell):
    result = run(admin, connected, "shell", shell=shell, command="echo $0; id -u; sw_vers -productName")
    assert result["executable"] == f"/bin/{shell}"
    assert result["stdout"].split() == [f"/bin/{shell}", "0", "macOS"], result["stderr"]


def test_files_are_listed_placed_and_fetched_at_their_absolute_paths(connected, admin):
    path = "/Users/Shared/nowy folder/zażółć.bin"
    content = bytes(range(256))
    placed = run(admin, connected, "file_upload", target_path=path,
                 content_base64=base64.b64encode(content).decode())
    assert placed["target_path"] == path
    assert connected.place(path).read_bytes() == content
    [entry] = run(admin, connected, "file_list", path="/Users/Shared/nowy folder")["items"]
    assert (entry["path"], entry["size_bytes"]) == (path, 256)
    fetched = run(admin, connected, "file_download", path=path)
    assert (fetched["path"], base64.b64decode(fetched["content_base64"])) == (path, content)
    roots = run(admin, connected, "file_list", path="roots")["items"]
    assert [root["path"] for root in roots][:5] == ["/", "/Users", "/Applications", "/Volumes",
                                                    "/tmp"]


def test_a_message_lies_in_the_folder_that_everybody_shares(connected, admin):
    run(admin, connected, "user_notify", message="Dzień dobry", public_id="rozmowa")
    [file] = connected.place(CHAT).glob("rozmowa.*.incoming.json")
    assert json.loads(file.read_text())["text"] == "Dzień dobry"
    assert connected.place(CHAT).stat().st_mode & 0o7777 == 0o777


def test_a_daemon_that_was_ended_comes_back_as_the_device_it_was(connected, admin):
    connected.place(CHAT).mkdir(parents=True, exist_ok=True)
    before = connected.pid()

    def is_open(socket: dict) -> bool:
        return socket["device_uid"] == connected.uid and socket["open"] and socket["ready"]

    socket = admin.wait_for_socket("control", is_open)
    admin.clear_requests()
    assert connected.launchctl("kickstart", "-k", f"system/{LABEL}").returncode == 0
    closed = admin.wait_until(
        lambda: None if (found := admin.socket(socket["id"]))["open"] else found, 10.0, "goodbye")
    assert closed["close_code"] == 1001
    admin.wait_for_socket("control", lambda one: is_open(one) and one["id"] > socket["id"])
    assert connected.pid() != before
    assert admin.requests("register") == []
    assert admin.requests("heartbeat")[0]["authorization_scheme"] == "Device"


def test_an_uninstalled_agent_is_gone_for_good(tmp_path, desk, admin):
    with InstalledMac(tmp_path / "mac", "uninstalled", desk) as mac:
        mac.replace_tool("/bin/sleep", 'exec "$real/sleep" 0.3\n')
        mac.start()
        admin.wait_until_connected(mac.uid)
        run(admin, mac, "user_notify", message="Do widzenia")
        command = admin.run_command(mac.uid, "client_uninstall")
        assert [step["status"] for step in command["history"]][-2:] == [
            "picked_up", "uninstall_started"]

        def last_step() -> Optional[ToolCall]:
            step = ToolCall("pkgutil", ("--forget", "pl.brenvox.wsparo"))
            return step if step in mac.tool_calls("pkgutil") else None

        admin.wait_until(last_step, 15.0, "end of the uninstall job")
        assert mac.job() == ""
        for path in (CONFIG_FOLDER, JOB, "/Library/Logs/Wsparo Brenvox"):
            assert not mac.place(path).exists(), path
        assert admin.device(mac.uid)["connected"] is False
        assert len(list(mac.place(CHAT).glob("*.incoming.json"))) == 1


def test_the_companion_finds_everything_at_the_macs_own_paths(connected, admin):
    admin.wait_for_device(connected.uid, lambda found: found["heartbeat"] is not None)
    companion = connected.place("/usr/local/bin/wsparo")
    companion.parent.mkdir(parents=True, exist_ok=True)
    shutil.copy(AGENT.with_name("wsparo"), companion)
    environment = {"HOME": "/Users/anna", "SSL_CERT_FILE": CA_FILE, "SSL_CERT_DIR": "/nonexistent"}
    diagnosis = connected.enter("/usr/local/bin/wsparo", "doctor", env=environment)
    if diagnosis.returncode == 77:
        pytest.skip(diagnosis.stderr.strip())
    assert diagnosis.returncode == 0, diagnosis.stdout
    assert "Kanał sterowania: otwarty i przyjęty" in diagnosis.stdout
    status = connected.enter("/usr/local/bin/wsparo", "status", "--json", env=environment)
    assert json.loads(status.stdout)["deviceUid"] == connected.uid
