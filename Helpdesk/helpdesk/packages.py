"""Update packages: published through the admin interface, offered by manifests, downloaded."""

from __future__ import annotations

import asyncio
import hashlib
import json
import os
import tempfile
from pathlib import Path
from typing import Any, Optional
from urllib.parse import quote

from aiohttp import web

from .answers import Refusal
from .context import caller_of, helpdesk_of
from .faults import hang_up
from .storage import Database, Row, to_json

ROUTES = web.RouteTableDef()
PIECE_BYTES = 64 << 10
SERVINGS = ("normal", "slow", "missing", "status", "truncated")
NOTHING_ON_OFFER: dict[str, Any] = {"version": "", "url": "", "mandatory": False, "silent_args": []}


class PackageStore:
    """Package files in one folder, one per published package, named by its id."""

    def __init__(self, database: Database, folder: Path) -> None:
        folder.mkdir(mode=0o700, parents=True, exist_ok=True)
        self._database = database
        self._folder = folder

    def file(self, package_id: int) -> Path:
        return self._folder / f"{package_id}.pkg"

    async def publish(self, facts: dict[str, str], content: Any) -> int:
        """Stores `content` (an asynchronous reader) as the newest package of its kind."""
        digest, size = hashlib.sha256(), 0
        descriptor, incoming = tempfile.mkstemp(dir=self._folder, suffix=".part")
        with os.fdopen(descriptor, "wb") as file:
            async for piece in content.iter_chunked(PIECE_BYTES):
                digest.update(piece)
                size += len(piece)
                file.write(piece)
        version = facts["version"]
        identifier = self._database.run(
            "INSERT INTO packages (platform, architecture, channel, version, filename,"
            " size_bytes, sha256) VALUES (?, ?, ?, ?, ?, ?, ?)",
            facts.get("platform", "macos"),
            facts.get("architecture", "arm64"),
            facts.get("channel", "stable"),
            version,
            facts.get("filename", f"Wsparo-Brenvox-macOS-{version}.pkg"),
            size,
            digest.hexdigest(),
        )
        os.replace(incoming, self.file(identifier))
        return identifier

    def change(self, package_id: int, changes: dict[str, Any]) -> None:
        """Sets "manifest" (keys to replace; null drops a key) and "serving" of a package.

        "serving" is {"mode": one of SERVINGS}, with "bytes_per_second" for "slow" and "status"
        for "status". A package on its way slowly comes at the new rate from then on.
        """
        if self.find(package_id) is None:
            raise Refusal(404, "Package not found")
        if changes.get("serving", {}).get("mode", "normal") not in SERVINGS:
            raise Refusal(422, f"The ways of serving are {', '.join(SERVINGS)}")
        for key, column in (("manifest", "manifest_changes"), ("serving", "serving")):
            if key in changes:
                self._database.run(
                    f"UPDATE packages SET {column} = ? WHERE id = ?",
                    to_json(changes[key]),
                    package_id,
                )

    def withdraw(self, package_id: int) -> None:
        self._database.run("DELETE FROM packages WHERE id = ?", package_id)
        self.file(package_id).unlink(missing_ok=True)

    def find(self, package_id: int) -> Optional[Row]:
        # No package has a number beyond SQLite's 64 bits.
        if package_id >= 2**63:
            return None
        return self._database.one("SELECT * FROM packages WHERE id = ?", package_id)

    def rate(self, package_id: int) -> Optional[int]:
        """Bytes a second for a package that comes slowly; None for any other."""
        row = self.find(package_id)
        serving = json.loads(row["serving"]) if row is not None else {}
        if serving.get("mode") != "slow":
            return None
        return max(int(serving.get("bytes_per_second", PIECE_BYTES)), 1)

    def newest(self, platform: str, architecture: str, channel: str) -> Optional[Row]:
        return self._database.one(
            "SELECT * FROM packages WHERE platform = ? AND architecture = ? AND channel = ?"
            " ORDER BY id DESC LIMIT 1",
            platform,
            architecture,
            channel,
        )

    def describe_all(self) -> list[dict[str, Any]]:
        rows = self._database.all("SELECT * FROM packages ORDER BY id")
        return [
            {
                **dict(row),
                "manifest_changes": json.loads(row["manifest_changes"]),
                "serving": json.loads(row["serving"]),
            }
            for row in rows
        ]


@ROUTES.get("/api/agent/viewer/updates/manifest", name="update_manifest", allow_head=False)
async def update_manifest(request: web.Request) -> web.Response:
    caller = caller_of(request)
    helpdesk_of(request).authentication.admit_itself(caller)
    kind = {key: request.query.get(key, "") for key in ("platform", "architecture", "channel")}
    package = request.config_dict["packages"].newest(**kind)
    if package is None:
        return web.json_response({**kind, **NOTHING_ON_OFFER})
    manifest = {
        **kind,
        "version": package["version"],
        "url": f"{request.scheme}://{request.host}"
        f"/packages/{package['id']}/{quote(package['filename'])}",
        "sha256": package["sha256"],
        "size_bytes": package["size_bytes"],
        "mandatory": False,
        "silent_args": [],
        **json.loads(package["manifest_changes"]),
    }
    return web.json_response({key: value for key, value in manifest.items() if value is not None})


@ROUTES.get("/packages/{package_id:\\d+}/{filename}", name="package")
async def package(request: web.Request) -> web.StreamResponse:
    store: PackageStore = request.config_dict["packages"]
    row = store.find(int(request.match_info["package_id"]))
    serving = json.loads(row["serving"]) if row is not None else {"mode": "missing"}
    mode = serving.get("mode", "normal")
    if row is None or mode == "missing":
        raise Refusal(404, "Package not found")
    if mode == "status":
        raise Refusal(serving.get("status", 503), "Package cannot be served")
    helpdesk_of(request).events.write("package downloaded", version=row["version"], mode=mode)
    if mode == "normal":
        return web.FileResponse(store.file(row["id"]))
    serve = _serve_half if mode == "truncated" else _serve_slowly
    return await serve(request, store, row["id"])


async def _serve_half(request: web.Request, store: PackageStore, number: int) -> web.StreamResponse:
    """The first half, with the whole length announced."""
    content = store.file(number).read_bytes()
    response = await _begin_to_serve(request, len(content))
    await response.write(content[: len(content) // 2])
    hang_up(request)
    return response


async def _serve_slowly(
    request: web.Request, store: PackageStore, number: int
) -> web.StreamResponse:
    """At the rate that is set at the time; the rest comes at once when none is any more."""
    stopping = helpdesk_of(request).stopping
    content = store.file(number).read_bytes()
    response = await _begin_to_serve(request, len(content))
    sent = 0
    while sent < len(content) and not stopping.is_set():
        rate = store.rate(number)
        size = max(min(rate // 10, PIECE_BYTES), 1) if rate else len(content)
        piece = content[sent : sent + size]
        await response.write(piece)
        sent += len(piece)
        if rate:
            await asyncio.sleep(len(piece) / rate)
    return response


async def _begin_to_serve(request: web.Request, size: int) -> web.StreamResponse:
    response = web.StreamResponse(headers={"Content-Type": "application/octet-stream"})
    response.content_length = size
    await response.prepare(request)
    return response
