"""The protocol description itself, and that violations of it are seen."""

from __future__ import annotations

import json
import re
from pathlib import Path

import pytest
import yaml
from jsonschema import Draft202012Validator

from helpdesk import chat, control_socket, device_api, packages, signaling, tickets
from helpdesk.protocol_check import Protocol, Schemas, Sent, Shape
from pretend_device import METADATA, shell_result

FOLDER = Path(__file__).resolve().parents[2] / "docs" / "protocol"
NOW = "2026-11-15T21:22:14Z"


@pytest.fixture(scope="module")
def protocol():
    return Protocol(FOLDER)


@pytest.fixture(scope="module")
def schemas():
    return Schemas(FOLDER)


@pytest.mark.parametrize("path", sorted(FOLDER.glob("schemas/*.json")), ids=lambda p: p.name)
def test_every_schema_is_one_and_is_used(path, schemas):
    document = json.loads(path.read_text(encoding="utf-8"))
    Draft202012Validator.check_schema(document)
    Draft202012Validator.check_schema(schemas.load(f"schemas/{path.name}"))

    others = [other for other in FOLDER.rglob("*.*") if other != path]
    assert any(path.name in other.read_text(encoding="utf-8") for other in others)


def test_the_helpdesk_serves_what_the_description_lists(protocol):
    modules = (device_api, chat, tickets, packages, control_socket, signaling)
    routes = {
        (route.kwargs["name"], route.method, re.sub(r":[^}]*\}", "}", route.path))
        for module in modules
        for route in module.ROUTES
    }

    described = {(op.name, op.method, op.path) for op in protocol.operations.values()}
    assert routes == described


def test_the_description_has_the_form_of_openapi():
    document = yaml.safe_load((FOLDER / "openapi.yaml").read_text(encoding="utf-8"))

    assert document["openapi"].startswith("3.1.")
    for path, methods in document["paths"].items():
        for operation in methods.values():
            assert {"operationId", "summary", "security", "responses"} <= operation.keys(), path
            named = set(re.findall(r"{(\w+)}", path))
            parameters = operation.get("parameters", [])
            listed = {entry["name"] for entry in parameters if entry.get("in") == "path"}
            by_reference = {entry["$ref"] for entry in parameters if "$ref" in entry}
            if by_reference:
                assert by_reference == {"#/components/parameters/DeviceUid"}
                listed.add("device_uid")
            assert listed == named, path


FOLDER_LISTING = {
    "platform": "macos",
    "path": "/Users",
    "parent_path": "/",
    "items": [
        {
            "name": "ola",
            "path": "/Users/ola",
            "kind": "folder",
            "is_directory": True,
            "modified_at": NOW,
        }
    ],
    "item_count": 1,
    "max_items": 500,
    "collected_at": NOW,
}
ROOT = {
    "name": "Macintosh HD",
    "path": "/",
    "kind": "drive",
    "label": "System",
    "is_directory": True,
    "is_ready": True,
}
ROOT_LISTING = {
    **FOLDER_LISTING, "path": "", "parent_path": None, "items": [ROOT], "root_kind": "volumes",
}
DOWNLOAD = {
    "path": "/a/b", "file_name": "b", "size_bytes": 2, "content_base64": "aGk=",
    "collected_at": NOW,
}
HOST = {"ip": "10.0.0.7", "status": "up", "latency_ms": 0.4}
NETWORK = {
    "interface": "en0",
    "local_ip": "10.0.0.5",
    "network": "10.0.0.0",
    "cidr": "10.0.0.0/24",
    "scanned_hosts": 254,
    "hosts": [HOST],
}
SCAN = {
    "scanner": "orv-viewer-macos",
    "started_at": NOW,
    "completed_at": NOW,
    "duration_ms": 12,
    "network_count": 1,
    "host_count": 1,
    "networks": [NETWORK],
}
NOTIFIED = {
    "shown": True, "title": "Orv-Desk", "message": "", "sender": "Konsultant", "public_id": "d-1",
}
NO_UPDATE = {
    "platform": "macos", "current_version": "0.2.55", "update_started": False,
    "reason": "no macOS update manifest",
}
UPDATE = {
    "platform": "macos",
    "current_version": "0.2.55",
    "available_version": "0.2.56",
    "update_started": True,
    "sha256": "a" * 64,
    "size_bytes": 10,
    "reason": "command",
    "log_path": "/Library/Logs/Wsparo Brenvox/wsparo-update.log",
    "started_at": NOW,
}


@pytest.mark.parametrize(
    ("command_type", "status", "result"),
    [
        ("shell", "completed", shell_result()),
        ("shell", "completed", shell_result(exit_code=15, timed_out=True)),
        ("force_audit", "completed", {"audit_sent": False}),
        ("file_list", "completed", FOLDER_LISTING),
        ("file_list", "completed", ROOT_LISTING),
        ("file_download", "completed", DOWNLOAD),
        ("file_upload", "completed", {"target_path": "/a", "size_bytes": 0, "written_at": NOW}),
        ("ip_scan", "completed", SCAN),
        ("user_notify", "completed", NOTIFIED),
        ("user_notify", "completed", {**NOTIFIED, "chat_message_id": 4}),
        ("client_update", "picked_up", {"platform": "macos", "current_version": "0.2.55"}),
        ("client_update", "completed", NO_UPDATE),
        ("client_update", "completed", UPDATE),
        ("telnet", "failed", {"error": "Unsupported macOS command telnet"}),
        ("shell", "failed", {"platform": "macos", "error": "Command cannot be empty."}),
    ],
)
def test_results_as_they_should_be(protocol, command_type, status, result):
    assert protocol.result_problems(command_type, status, result) == []


@pytest.mark.parametrize(
    ("command_type", "status", "result"),
    [
        ("shell", "completed", {k: v for k, v in shell_result().items() if k != "stderr"}),
        ("shell", "completed", shell_result(exit_code="0")),
        ("shell", "completed", shell_result(surprise=1)),
        ("shell", "completed", None),
        ("shell", "picked_up", {}),
        ("shell", "uninstall_started", {}),
        ("client_uninstall", "completed", {}),
        ("client_uninstall", "picked_up", {"platform": "macos", "uninstall_started": True}),
        ("telnet", "completed", {}),
        ("file_list", "completed", {**FOLDER_LISTING, "item_count": 2}),
        ("file_list", "completed", {**FOLDER_LISTING, "items": [ROOT]}),
        ("file_list", "completed", {**ROOT_LISTING, "path": "/"}),
        ("file_download", "completed", {**DOWNLOAD, "content_base64": "aGk"}),
        ("ip_scan", "completed", {**SCAN, "host_count": 2}),
        ("ip_scan", "completed", {**SCAN, "networks": [{**NETWORK, "interface": "lo0"}]}),
        ("ip_scan", "completed", {**SCAN, "networks": [{**NETWORK, "network": "10.0.0.256"}]}),
        ("client_update", "completed", {**UPDATE, "sha256": "A" * 64}),
        ("client_update", "completed", {**NO_UPDATE, "reason": "tired"}),
        ("shell", "failed", {"platform": "linux", "error": "x"}),
        ("shell", "failed", {"platform": "macos", "error": ""}),
    ],
)
def test_results_with_something_wrong_are_seen(protocol, command_type, status, result):
    assert protocol.result_problems(command_type, status, result) != []


@pytest.mark.parametrize(
    ("change", "wrong"),
    [
        ({}, False),
        ({"status": "failed", "error_message": "why"}, False),
        ({"status": "failed"}, True),
        ({"error_message": "why"}, True),
        ({"error_message": None}, True),
        ({"status": "ended"}, True),
        ({"metadata": {**METADATA, "video_codec": "av1"}}, True),
    ],
)
def test_a_session_report_has_an_error_message_exactly_when_it_failed(schemas, change, wrong):
    shape = Shape(schemas.load("schemas/remote-session-status.json"))

    assert bool(shape.problems({"status": "agent_ready", "metadata": METADATA, **change})) == wrong


GOOD_HEADERS = {"Accept": "application/json", "Authorization": "Device abc"}
MANIFEST_QUERY = [
    ("platform", "macos"), ("architecture", "arm64"), ("current_version", "0.2.55"),
    ("channel", "stable"),
]


def sent(headers=GOOD_HEADERS, query=(), body=b"", value=None, error="no body"):
    return Sent(headers, query, body, value, error)


def problem_of(protocol, operation, request):
    problems = protocol.request_problems(operation, request)
    return problems[0] if problems else None


def test_headers_and_queries_are_held_against_the_description(protocol):
    def check(operation, **more):
        return problem_of(protocol, operation, sent(**more))

    assert check("pending_commands") is None
    assert check("pending_commands", query=[("command_type", "shell")]) is None
    assert check("pending_commands", query=[("command_type", " ")]).startswith("query command_type")
    assert check("pending_commands", query=[("limit", "1")]) == "query: limit is unknown"
    assert check("pending_commands", body=b"{}") == "a body must not be sent here"
    assert check("pending_commands", headers={}).startswith("Accept is None")
    wrong_scheme = {**GOOD_HEADERS, "Authorization": "device abc"}
    assert "neither" in check("pending_commands", headers=wrong_scheme)
    assert check("update_manifest", query=MANIFEST_QUERY) is None
    assert "order" in check("update_manifest", query=MANIFEST_QUERY[::-1])
    assert check("update_manifest", query=MANIFEST_QUERY[:3]) == "query: channel is missing"
    assert "must not be sent" in check("customer_session", body=b"{}", value={}, error=None)
    customer = {"Accept": "application/json", "X-Customer-Session": "x"}
    paging = [("after_message_id", "0"), ("limit", "5")]
    assert check("ticket_notifications", headers=customer, query=paging) is None
    assert "X-Customer-Session" in check("pending_commands", headers=customer)
    assert check("package", headers={"Accept": "*/*"}) is None


def test_a_violation_is_recorded_and_the_request_answered_all_the_same(admin, act, uid):
    async def story(device):
        await device.register(surprise="yes")
        await device.post(f"/api/agent/devices/{uid}/unknown", {})
        return await device.heartbeat(hostname=7)

    assert act(story).status == 200
    register, unknown, heartbeat = admin.violations()
    assert register["source"] == "POST /api/agent/devices/register"
    assert "surprise" in register["problems"][0]
    assert unknown["problems"] == ["no such endpoint"]
    assert heartbeat["problems"] == ["hostname: 7 is not of type 'string'"]
    assert admin.violations(after=unknown["id"]) == [heartbeat]


def test_a_wrong_result_is_a_violation_of_its_command(admin, act, uid):
    async def registered(device):
        await device.register()
        return device.authorization

    token = act(registered)
    command_id = admin.queue_command(uid, "shell", {"command": "echo hi"})

    async def story(device):
        return await device.report(command_id, "completed", shell_result(duration_ms=-1))

    assert act(story, token).status == 200
    [violation] = admin.violations()
    assert violation["source"] == f"command {command_id}"
    assert violation["device_uid"] == uid
    assert admin.command(command_id)["status"] == "completed"


@pytest.mark.parametrize("body", [b'{"a":NaN}', b'{"a":1,"a":2}', b"\xff", b"[" * 100_000])
def test_what_is_no_json_is_seen(admin, act, body):
    async def story(device):
        return await device.post("/api/agent/devices/heartbeat", body)

    assert act(story).status == 422
    assert admin.violations()[0]["problems"][0].startswith("body: ")


def test_the_helpdesks_own_answers_keep_to_the_description(admin, act, uid, protocol):
    admin.create_customer("odp@firma.example", "Odp", "x")

    async def story(device):
        login = {"email": "odp@firma.example", "password": "x"}
        manifest = "/api/agent/viewer/updates/manifest?platform=macos&architecture=arm64"
        answers = [
            ("register", await device.register()),
            ("heartbeat", await device.heartbeat()),
            ("update_manifest", await device.get(manifest)),
            ("pending_commands", await device.pending()),
            ("customer_session", await device.post("/api/customer/session", login)),
            ("command_status", await device.report(987654321, "failed", {})),
        ]
        async with device.control() as socket:
            admin.queue_command(uid, "shell", {"command": "echo hi"})
            admin.request_remote_session(uid)
            messages = [await socket.receive_json(timeout=5) for _ in range(2)]
            answers.append(("pending_commands", await device.pending()))
        return answers, messages

    answers, messages = act(story)

    for operation, answer in answers:
        shape = protocol.operations[operation].answers[str(answer.status)]
        assert shape.problems(answer.json) == [], operation
    for message in messages:
        assert protocol.control_server_message.problems(message) == []
