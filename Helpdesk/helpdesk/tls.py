"""The helpdesk's own certificate authority and the identities it serves, good and faulty."""

from __future__ import annotations

import os
import ssl
from dataclasses import dataclass
from datetime import datetime, timedelta, timezone
from ipaddress import ip_address
from pathlib import Path
from typing import Optional

from cryptography import x509
from cryptography.hazmat.primitives import hashes, serialization
from cryptography.hazmat.primitives.asymmetric import ec
from cryptography.x509.oid import ExtendedKeyUsageOID, NameOID

SERVER_NAMES = ("localhost", "127.0.0.1", "::1")
AUTHORITY_LIFE = timedelta(days=3650)
SERVER_LIFE = timedelta(days=397)
RENEW_BEFORE = timedelta(days=30)


@dataclass(frozen=True)
class Identity:
    certificate: x509.Certificate
    key: ec.EllipticCurvePrivateKey


class Authority:
    """Keeps "ca.pem", "server.pem" and their keys (mode 0600) in one folder."""

    def __init__(self, folder: Path) -> None:
        folder.mkdir(mode=0o755, parents=True, exist_ok=True)
        self._folder = folder
        self.ca_file = folder / "ca.pem"
        self._identity = self._load("ca") or self._create_authority("ca")

    def server_context(self) -> ssl.SSLContext:
        """The real identity: localhost in its three spellings."""
        server = self._load("server")
        if server is None or server.certificate.not_valid_after < _now() + RENEW_BEFORE:
            server = issue(self._identity, SERVER_NAMES, _now() + SERVER_LIFE)
            self._store("server", server)
        return _context(self._folder / "server.pem", self._folder / "server-key.pem")

    def faulty_context(self, kind: str) -> ssl.SSLContext:
        """"wrong-host", "expired", "unknown-ca" or "old-tls"; raises KeyError for others."""
        if kind == "old-tls":
            context = self.server_context()
            context.minimum_version = ssl.TLSVersion.TLSv1
            context.maximum_version = ssl.TLSVersion.TLSv1_1
            context.set_ciphers("ALL:@SECLEVEL=0")
            return context
        makers = {
            "wrong-host": lambda: issue(
                self._identity, ("elsewhere.brenvox.example",), _now() + SERVER_LIFE
            ),
            "expired": lambda: issue(self._identity, SERVER_NAMES, _now() - timedelta(days=1)),
            "unknown-ca": lambda: issue(
                create_authority("Nobody's CA"), SERVER_NAMES, _now() + SERVER_LIFE
            ),
        }
        self._store(kind, makers[kind]())
        return _context(self._folder / f"{kind}.pem", self._folder / f"{kind}-key.pem")

    def _create_authority(self, name: str) -> Identity:
        identity = create_authority("Wsparo local helpdesk CA")
        self._store(name, identity)
        return identity

    def _load(self, name: str) -> Optional[Identity]:
        certificate, key = self._folder / f"{name}.pem", self._folder / f"{name}-key.pem"
        if not (certificate.exists() and key.exists()):
            return None
        loaded = serialization.load_pem_private_key(key.read_bytes(), password=None)
        assert isinstance(loaded, ec.EllipticCurvePrivateKey)
        return Identity(x509.load_pem_x509_certificate(certificate.read_bytes()), loaded)

    def _store(self, name: str, identity: Identity) -> None:
        key = identity.key.private_bytes(
            serialization.Encoding.PEM,
            serialization.PrivateFormat.PKCS8,
            serialization.NoEncryption(),
        )
        certificate = identity.certificate.public_bytes(serialization.Encoding.PEM)
        write_file(self._folder / f"{name}-key.pem", key, 0o600)
        write_file(self._folder / f"{name}.pem", certificate, 0o644)


def write_file(path: Path, content: bytes, mode: int) -> None:
    """Replaces `path` in one step by a file that never had a wider mode."""
    temporary = path.with_name(path.name + ".new")
    temporary.unlink(missing_ok=True)
    descriptor = os.open(temporary, os.O_WRONLY | os.O_CREAT | os.O_EXCL, mode)
    with os.fdopen(descriptor, "wb") as file:
        file.write(content)
    temporary.replace(path)


def create_authority(name: str) -> Identity:
    key = ec.generate_private_key(ec.SECP256R1())
    builder = _builder(name, name, key, _now() + AUTHORITY_LIFE)
    usage = dict.fromkeys(
        (
            "digital_signature", "content_commitment", "key_encipherment", "data_encipherment",
            "key_agreement", "encipher_only", "decipher_only",
        ),
        False,
    )
    builder = builder.add_extension(x509.BasicConstraints(ca=True, path_length=0), critical=True)
    builder = builder.add_extension(
        x509.KeyUsage(key_cert_sign=True, crl_sign=True, **usage), critical=True
    )
    return Identity(builder.sign(key, hashes.SHA256()), key)


def issue(authority: Identity, names: tuple[str, ...], not_after: datetime) -> Identity:
    """A server identity for `names`: host names and numeric addresses."""
    key = ec.generate_private_key(ec.SECP256R1())
    issuer = authority.certificate.subject.get_attributes_for_oid(NameOID.COMMON_NAME)[0].value
    builder = _builder(names[0], str(issuer), key, not_after)
    builder = builder.add_extension(x509.BasicConstraints(ca=False, path_length=None), True)
    builder = builder.add_extension(
        x509.SubjectAlternativeName([_general_name(name) for name in names]), critical=False
    )
    builder = builder.add_extension(
        x509.ExtendedKeyUsage([ExtendedKeyUsageOID.SERVER_AUTH]), critical=False
    )
    builder = builder.add_extension(
        x509.AuthorityKeyIdentifier.from_issuer_public_key(authority.key.public_key()), False
    )
    return Identity(builder.sign(authority.key, hashes.SHA256()), key)


def _builder(
    subject: str, issuer: str, key: ec.EllipticCurvePrivateKey, not_after: datetime
) -> x509.CertificateBuilder:
    def name(text: str) -> x509.Name:
        return x509.Name([x509.NameAttribute(NameOID.COMMON_NAME, text)])

    return (
        x509.CertificateBuilder()
        .subject_name(name(subject))
        .issuer_name(name(issuer))
        .public_key(key.public_key())
        .serial_number(x509.random_serial_number())
        .not_valid_before(min(_now(), not_after) - timedelta(days=1))
        .not_valid_after(not_after)
        .add_extension(x509.SubjectKeyIdentifier.from_public_key(key.public_key()), False)
    )


def _general_name(name: str) -> x509.GeneralName:
    try:
        return x509.IPAddress(ip_address(name))
    except ValueError:
        return x509.DNSName(name)


def _context(certificate: Path, key: Path) -> ssl.SSLContext:
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.minimum_version = ssl.TLSVersion.TLSv1_2
    context.load_cert_chain(certificate, key)
    return context


def _now() -> datetime:
    # Certificates' own times are UTC without saying so.
    return datetime.now(timezone.utc).replace(tzinfo=None)
