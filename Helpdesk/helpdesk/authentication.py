"""Who is calling: organisations' viewer tokens and devices' own tokens."""

from __future__ import annotations

import hashlib
import hmac
import secrets
from dataclasses import dataclass
from pathlib import Path
from typing import Optional

from .answers import Refusal
from .storage import Database, Row
from .tls import write_file

MISSING_VIEWER_TOKEN = Refusal(401, "Missing viewer token")
INVALID_VIEWER_TOKEN = Refusal(401, "Invalid viewer token")
INVALID_DEVICE_TOKEN = Refusal(401, "Invalid device token")
WRONG_DEVICE = Refusal(403, "Device token does not match device")
OTHER_CLIENT = Refusal(403, "Device is assigned to another client")
DEACTIVATED = Refusal(410, "Device is deactivated")


def hashed(token: str) -> str:
    return hashlib.sha256(token.encode("utf-8", "surrogateescape")).hexdigest()


def private_secret(path: Path) -> str:
    """The secret in `path` (mode 0600), made when there is none yet."""
    if not path.exists():
        write_file(path, secrets.token_urlsafe(32).encode("ascii") + b"\n", 0o600)
    return path.read_text(encoding="ascii").strip()


@dataclass(frozen=True)
class Caller:
    """An accepted token: an organisation's, or, with `device` set, one device's."""

    organization_id: int
    device: Optional[Row]


class Authentication:
    """Tokens are stored as hashes only.

    A device's token follows from the server's secret and the device's token generation, so that
    the same token can be handed out again until it is revoked.
    """

    def __init__(self, database: Database, secret: str) -> None:
        self._database = database
        self._secret = secret.encode("ascii")

    def caller(self, authorization: Optional[str]) -> Caller:
        """Raises the Refusal that fits a missing or unknown token."""
        scheme, _, token = (authorization or "").partition(" ")
        if scheme == "Device":
            device = self._database.one("SELECT * FROM devices WHERE token_hash = ?", hashed(token))
            if device is None:
                raise INVALID_DEVICE_TOKEN
            return Caller(device["token_organization_id"], device)
        if scheme != "Bearer" or not token:
            raise MISSING_VIEWER_TOKEN
        organization = self._database.one(
            "SELECT id FROM organizations WHERE viewer_token_hash = ?", hashed(token)
        )
        if organization is None:
            raise INVALID_VIEWER_TOKEN
        return Caller(organization["id"], None)

    def admit(self, caller: Caller, device_uid: str) -> Optional[Row]:
        """The device `device_uid` for this caller; None when nobody has registered it.

        Raises a Refusal when the caller may not act for it.
        """
        if caller.device is not None and caller.device["uid"] != device_uid:
            raise WRONG_DEVICE
        device = self._database.one("SELECT * FROM devices WHERE uid = ?", device_uid)
        if device is None:
            return None
        if device["organization_id"] != caller.organization_id:
            raise OTHER_CLIENT
        if not device["active"]:
            raise DEACTIVATED
        return device

    def admit_itself(self, caller: Caller) -> None:
        """For calls that name no device: a device must be in good standing all the same."""
        if caller.device is not None:
            self.admit(caller, caller.device["uid"])

    def admit_known(self, caller: Caller, device_uid: str) -> Row:
        device = self.admit(caller, device_uid)
        if device is None:
            raise Refusal(404, "Device not found")
        return device

    def issue_device_token(self, device: Row) -> str:
        generation = device["token_generation"]
        message = f"{device['uid']}\n{generation}".encode("utf-8")
        token = hmac.new(self._secret, message, hashlib.sha256).hexdigest()
        self._database.run(
            "UPDATE devices SET token_hash = ?, token_organization_id = ? WHERE uid = ?",
            hashed(token),
            device["organization_id"],
            device["uid"],
        )
        return token

    def revoke_device_token(self, device_uid: str) -> None:
        """The next token is another one."""
        self._database.run(
            "UPDATE devices SET token_hash = NULL, token_generation = token_generation + 1"
            " WHERE uid = ?",
            device_uid,
        )

    def create_organization(self, name: str, token: Optional[str] = None) -> tuple[int, str]:
        token = token or secrets.token_urlsafe(24)
        identifier = self._database.run(
            "INSERT INTO organizations (name, viewer_token_hash) VALUES (?, ?)",
            name,
            hashed(token),
        )
        return identifier, token

    def replace_viewer_token(self, organization_id: int) -> str:
        """The old token is invalid from now on."""
        token = secrets.token_urlsafe(24)
        self._database.run(
            "UPDATE organizations SET viewer_token_hash = ? WHERE id = ?",
            hashed(token),
            organization_id,
        )
        return token
