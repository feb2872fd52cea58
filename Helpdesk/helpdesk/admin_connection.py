"""One connection to the admin interface: requests, answers, and waiting for something to happen."""

from __future__ import annotations

import http.client
import json
import time
from pathlib import Path
from typing import Any, Callable, Optional, Type, TypeVar
from urllib.parse import urlencode, urlsplit

T = TypeVar("T")
Connection = TypeVar("Connection", bound="AdminConnection")

ANSWER_MARGIN_SECONDS = 30.0


class HelpdeskError(Exception):
    """The admin interface refused; `status` is the HTTP status."""

    def __init__(self, status: int, detail: str) -> None:
        super().__init__(f"{status}: {detail}")
        self.status = status


class AdminConnection:
    """Kept alive between requests. Use one per thread."""

    def __init__(self, admin_url: str, token: str) -> None:
        parts = urlsplit(admin_url)
        assert parts.hostname is not None
        self._connection = http.client.HTTPConnection(
            parts.hostname, parts.port, timeout=ANSWER_MARGIN_SECONDS
        )
        self._token = token
        self._change = 0

    @classmethod
    def from_ready_line(cls: Type[Connection], ready: dict[str, str]) -> Connection:
        """`ready` is the JSON object that the helpdesk prints when it is ready."""
        token = Path(ready["admin_token_file"]).read_text(encoding="ascii").strip()
        return cls(ready["admin_url"], token)

    def close(self) -> None:
        self._connection.close()

    def __enter__(self: Connection) -> Connection:
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def wait_until(self, look: Callable[[], Optional[T]], timeout: float, what: str) -> T:
        """Calls `look` now and after every change until it returns something."""
        deadline = time.monotonic() + timeout
        while True:
            # The number from before the look, so that nothing falls between look and wait.
            self._get("/changes")
            change = self._change
            if (found := look()) is not None:
                return found
            left = deadline - time.monotonic()
            if left <= 0:
                raise TimeoutError(f"no {what} within {timeout} s")
            self._get("/changes", {"changed_since": change, "timeout": left}, wait=left)

    def _get(
        self, path: str, query: Optional[dict[str, Any]] = None, wait: float = 0.0
    ) -> Any:
        return self._send("GET", path + query_text(query or {}), wait=wait)

    def _post(self, path: str, order: Optional[dict[str, Any]] = None, wait: float = 0.0) -> Any:
        return self._send("POST", path, json.dumps(order or {}).encode(), wait)

    def _send(
        self, method: str, path: str, body: Optional[bytes] = None, wait: float = 0.0
    ) -> Any:
        return json.loads(self._exchange(method, path, body, wait + ANSWER_MARGIN_SECONDS))

    def _exchange(self, method: str, path: str, body: Optional[bytes], timeout: float) -> bytes:
        self._connection.timeout = timeout
        if self._connection.sock is not None:
            self._connection.sock.settimeout(timeout)
        headers = {"Authorization": f"Bearer {self._token}"}
        try:
            self._connection.request(method, path, body, headers)
            response = self._connection.getresponse()
            content = response.read()
        except BaseException:
            self._connection.close()
            raise
        if response.status >= 400:
            raise HelpdeskError(response.status, content.decode("utf-8", "replace"))
        self._change = int(response.headers.get("X-Change", self._change))
        return content


def query_text(values: dict[str, Any]) -> str:
    given = {key: value for key, value in values.items() if value is not None}
    return f"?{urlencode(given)}" if given else ""
