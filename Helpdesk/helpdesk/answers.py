"""Answers that say no, in the one shape the device reads, and careful readers of bodies."""

from __future__ import annotations

import json
from typing import Any, Optional

from aiohttp import web


class Refusal(Exception):
    """Ends a request with `status` and {"detail": detail}."""

    def __init__(self, status: int, detail: str) -> None:
        super().__init__(detail)
        self.status = status
        self.detail = detail

    def answer(self) -> web.Response:
        return web.json_response({"detail": self.detail}, status=self.status)


def parse_json(body: bytes) -> Any:
    """Strict JSON: UTF-8, no NaN or Infinity, no key twice. Raises ValueError."""
    text = body.decode("utf-8")
    try:
        return json.loads(text, parse_constant=_refuse_constant, object_pairs_hook=_unique_keys)
    except RecursionError:
        raise ValueError("nested too deeply") from None


def _refuse_constant(name: str) -> Any:
    raise ValueError(f"{name} is not JSON")


def _unique_keys(pairs: list[tuple[str, Any]]) -> dict[str, Any]:
    result = dict(pairs)
    if len(result) != len(pairs):
        raise ValueError("a key occurs twice in one object")
    return result


def as_object(value: Any) -> dict[str, Any]:
    if not isinstance(value, dict):
        raise Refusal(422, "A JSON object is required")
    return value


def text_of(body: dict[str, Any], key: str) -> str:
    """The text under `key`, which the call cannot do without."""
    value = body.get(key)
    if not isinstance(value, str) or not value:
        raise Refusal(422, f"{key} is required")
    return value


def optional_text(body: dict[str, Any], key: str) -> Optional[str]:
    value = body.get(key)
    return value if isinstance(value, str) and value else None
