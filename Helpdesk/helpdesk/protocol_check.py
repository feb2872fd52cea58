"""Holds what agents send against the protocol description in docs/protocol.

The description is read once at start; every validator is compiled once.
"""

from __future__ import annotations

import json
import re
from dataclasses import dataclass, field
from datetime import date, datetime
from ipaddress import IPv4Address
from pathlib import Path
from typing import Any, Callable, Mapping, Optional, Sequence

import yaml
from jsonschema import Draft202012Validator, FormatChecker
from jsonschema.validators import extend

PROBLEMS_SHOWN = 10


class _Types:
    """JSON's types. Takes the library's place: every command report passes through here.

    1.0 is not an integer, because receivers with typed decoders refuse it.
    """

    _tests: dict[str, Callable[[object], bool]] = {
        "array": lambda value: isinstance(value, list),
        "boolean": lambda value: isinstance(value, bool),
        "integer": lambda value: isinstance(value, int) and not isinstance(value, bool),
        "null": lambda value: value is None,
        "number": lambda value: isinstance(value, (int, float)) and not isinstance(value, bool),
        "object": lambda value: isinstance(value, dict),
        "string": lambda value: isinstance(value, str),
    }

    def is_type(self, value: object, name: str) -> bool:
        return self._tests[name](value)


_Validator = extend(Draft202012Validator, type_checker=_Types())


def _parse_timestamp(text: str) -> datetime:
    return datetime.fromisoformat(text.removesuffix("Z"))


def _format_checker() -> FormatChecker:
    """The formats in use; the pattern beside each says how exactly the text must look."""

    def texts(parse: Callable[[str], object]) -> Callable[[object], bool]:
        return lambda value: not isinstance(value, str) or bool(parse(value))

    checker = FormatChecker(formats=())
    checker.checkers = {
        "date-time": (texts(_parse_timestamp), ValueError),
        "date": (texts(date.fromisoformat), ValueError),
        "ipv4": (texts(IPv4Address), ValueError),
    }
    return checker


class Schemas:
    """The documents of the description, with every "$ref" replaced by what it names.

    The description has no recursive shapes, so nothing is left to resolve while checking.
    """

    def __init__(self, folder: Path) -> None:
        self._folder = folder
        self._documents: dict[Path, Any] = {}

    def load(self, reference: str) -> Any:
        """Such as "schemas/inventory.json" or "schemas/common.json#/$defs/text"."""
        return self._resolve(reference, self._folder / "openapi.yaml")

    def document(self, file: str) -> Any:
        """One document as written, its references unresolved."""
        return self._document(self._folder / file)

    def _document(self, path: Path) -> Any:
        if path not in self._documents:
            text = path.read_text(encoding="utf-8")
            is_yaml = path.suffix == ".yaml"
            self._documents[path] = yaml.load(text, _loader()) if is_yaml else json.loads(text)
        return self._documents[path]

    def _resolve(self, reference: str, base: Path) -> Any:
        file, _, pointer = reference.partition("#")
        path = (base.parent / file) if file else base
        node = self._document(path)
        for step in filter(None, pointer.split("/")):
            node = node[step.replace("~1", "/").replace("~0", "~")]
        return self._inline(node, path)

    def _inline(self, node: Any, base: Path) -> Any:
        if isinstance(node, list):
            return [self._inline(item, base) for item in node]
        if not isinstance(node, dict):
            return node
        result = {
            key: self._inline(value, base)
            for key, value in node.items()
            if key not in ("$ref", "$defs")
        }
        if "$ref" in node:
            target = self._resolve(node["$ref"], base)
            return {**target, **result} if isinstance(target, dict) else target
        return result


def _loader() -> Any:
    return getattr(yaml, "CSafeLoader", yaml.SafeLoader)


class Shape:
    """One compiled schema."""

    _formats = _format_checker()

    def __init__(self, schema: Any) -> None:
        self._validator = _Validator(schema, format_checker=self._formats)

    def problems(self, value: Any) -> list[str]:
        found = []
        for error in self._validator.iter_errors(value):
            where = "/".join(str(step) for step in error.absolute_path)
            found.append(f"{where or 'top level'}: {error.message[:300]}")
            if len(found) == PROBLEMS_SHOWN:
                break
        return found


@dataclass
class Operation:
    """One endpoint of the description."""

    name: str
    method: str
    path: str
    any_client: bool
    schemes: set[str]
    query: dict[str, tuple[bool, Shape]]
    query_order: Sequence[str]
    body: Optional[Shape]
    answers: dict[str, Optional[Shape]] = field(default_factory=dict)


@dataclass(frozen=True)
class Sent:
    """What arrived, as far as the description speaks of it."""

    headers: Mapping[str, str]
    query: Sequence[tuple[str, str]]
    body: bytes
    json: Any  # absent (None) as well when the body is no JSON
    json_error: Optional[str]


class Protocol:
    """The whole description."""

    def __init__(self, folder: Path) -> None:
        """Reads "openapi.yaml" and "schemas" in `folder`; raises OSError or KeyError."""
        schemas = Schemas(folder)
        self.operations = _operations(schemas)
        self.control_message = Shape(schemas.load("schemas/control-agent.json"))
        self.control_server_message = Shape(schemas.load("schemas/control-server.json"))
        self._results = _results(schemas)

    def request_problems(self, name: str, sent: Sent) -> list[str]:
        operation = self.operations[name]
        problems = _query_problems(operation, sent.query)
        if operation.any_client:
            return problems
        problems += _authorisation_problems(operation, sent.headers)
        if sent.headers.get("Upgrade", "").lower() == "websocket":
            return problems
        if sent.headers.get("Accept") != "application/json":
            problems.append(f"Accept is {sent.headers.get('Accept')!r}")
        return problems + _body_problems(operation, sent)

    def result_problems(self, command_type: str, status: str, result: Any) -> list[str]:
        """What is wrong with a command's result under the status word it came with."""
        shapes = self._results.get(status)
        if shapes is None:
            return []  # the status word itself is already a problem of the report
        shape = shapes.get(command_type) or shapes.get("any")
        if shape is None:
            return [f"a {command_type!r} command never reports {status!r}"]
        problems = shape.problems(result)
        if not problems and status == "completed":
            problems = _disagreements(command_type, result)
        return [f"result of {command_type}/{status}: {text}" for text in problems]


def _disagreements(command_type: str, result: dict[str, Any]) -> list[str]:
    """Numbers that contradict what they count, which a schema cannot say."""
    pairs: list[tuple[str, int, int]] = []
    if command_type == "file_list":
        pairs.append(("item_count", result["item_count"], len(result["items"])))
    elif command_type == "file_download":
        encoded = (result["size_bytes"] + 2) // 3 * 4
        pairs.append(("content_base64's length", len(result["content_base64"]), encoded))
    elif command_type == "ip_scan":
        hosts = sum(len(network["hosts"]) for network in result["networks"])
        pairs.append(("network_count", result["network_count"], len(result["networks"])))
        pairs.append(("host_count", result["host_count"], hosts))
    return [f"{name} is {said}, not {counted}" for name, said, counted in pairs if said != counted]


def _operations(schemas: Schemas) -> dict[str, Operation]:
    operations = {}
    for path, methods in schemas.document("openapi.yaml")["paths"].items():
        for method in methods:
            # Read through the references, which the plain document still holds.
            node = schemas.load(f"openapi.yaml#/paths/{path.replace('/', '~1')}/{method}")
            operations[node["operationId"]] = _operation(path, method, node)
    return operations


def _operation(path: str, method: str, node: Any) -> Operation:
    parameters = [entry for entry in node.get("parameters", []) if entry["in"] == "query"]
    return Operation(
        name=node["operationId"],
        method=method.upper(),
        path=path,
        any_client=bool(node.get("x-any-client")),
        schemes={scheme for choice in node["security"] for scheme in choice},
        query={entry["name"]: (entry["required"], Shape(entry["schema"])) for entry in parameters},
        query_order=node.get("x-query-order", []),
        body=_content_shape(node.get("requestBody")),
        answers={status: _content_shape(answer) for status, answer in node["responses"].items()},
    )


def _content_shape(node: Any) -> Optional[Shape]:
    content = (node or {}).get("content", {}).get("application/json")
    return Shape(content["schema"]) if content else None


def _results(schemas: Schemas) -> dict[str, dict[str, Shape]]:
    file = "schemas/command-results.json"
    definitions = schemas.document(file)["$defs"]
    return {
        status: {
            command_type: Shape(schemas.load(f"{file}#/$defs/{status}/$defs/{command_type}"))
            for command_type in definitions[status]["$defs"]
        }
        for status in definitions
        if "$defs" in definitions[status]
    }


def _query_problems(operation: Operation, query: Sequence[tuple[str, str]]) -> list[str]:
    problems = [f"query: {name} is unknown" for name, _ in query if name not in operation.query]
    values = dict(query)
    if len(values) != len(query):
        problems.append("query: a key occurs twice")
    for name, (required, shape) in operation.query.items():
        if name in values:
            problems += [f"query {name}: {text}" for text in shape.problems(values[name])]
        elif required:
            problems.append(f"query: {name} is missing")
    if operation.query_order and [name for name, _ in query] != list(operation.query_order):
        problems.append(f"query: the order is not {', '.join(operation.query_order)}")
    return problems


def _authorisation_problems(operation: Operation, headers: Mapping[str, str]) -> list[str]:
    problems = []
    authorization = headers.get("Authorization")
    if authorization is not None:
        if "deviceToken" not in operation.schemes:
            problems.append("Authorization must not be sent here")
        elif not re.fullmatch(r"(Device|Bearer) \S+", authorization):
            problems.append("Authorization is neither \"Device \" nor \"Bearer \" and a token")
    if "X-Customer-Session" in headers and "customerSession" not in operation.schemes:
        problems.append("X-Customer-Session must not be sent here")
    return problems


def _body_problems(operation: Operation, sent: Sent) -> list[str]:
    if operation.body is None:
        return ["a body must not be sent here"] if sent.body else []
    problems = []
    if sent.headers.get("Content-Type") != "application/json":
        problems.append(f"Content-Type is {sent.headers.get('Content-Type')!r}")
    if sent.json_error is not None:
        return problems + [f"body: {sent.json_error}"]
    return problems + operation.body.problems(sent.json)
