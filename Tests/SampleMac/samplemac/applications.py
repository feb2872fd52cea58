"""The application bundles of a sample Mac: good ones, odd ones and damaged ones.

Each says where its publisher can be found: in the copyright text, in the information string, only
in the Spotlight metadata, only in the signature, only in the bundle identifier, or nowhere.
"""

import dataclasses
import datetime
import hashlib
import os
import pathlib
import plistlib
import shutil


@dataclasses.dataclass(frozen=True)
class Bundle:
    """One application. `folder` is the Mac's folder; `name` the bundle's file name without .app."""
    name: str
    identifier: str | None = None
    version: str | None = None
    copyright: str | None = None
    get_info: str | None = None
    display_name: str | None = None
    bundle_name: str | None = None
    build: str | None = None
    folder: str = "/Applications"
    binary: bool = False
    day: str = "2025-04-17"
    authorities: tuple[str, ...] = ()
    metadata: dict[str, str] = dataclasses.field(default_factory=dict)
    extra: dict[str, object] = dataclasses.field(default_factory=dict)
    raw: bytes | None = None  # the information list as it lies there, when it is damaged

    @property
    def path(self) -> str:
        return f"{self.folder}/{self.name}.app"

    def information(self) -> bytes:
        if self.raw is not None:
            return self.raw
        values = {
            "CFBundleIdentifier": self.identifier,
            "CFBundleName": self.bundle_name if self.bundle_name is not None else self.name,
            "CFBundleDisplayName": self.display_name,
            "CFBundleShortVersionString": self.version,
            "CFBundleVersion": self.build or self.version,
            "NSHumanReadableCopyright": self.copyright,
            "CFBundleGetInfoString": self.get_info,
            "CFBundleExecutable": self.name,
            "CFBundlePackageType": "APPL",
            **self.extra,
        }
        present = {key: value for key, value in values.items() if value is not None}
        form = plistlib.FMT_BINARY if self.binary else plistlib.FMT_XML
        return plistlib.dumps(present, fmt=form)


def developer_id(company: str, team: str) -> tuple[str, ...]:
    return (f"Developer ID Application: {company} ({team})",
            "Developer ID Certification Authority", "Apple Root CA")


_STORE = ("Apple Mac OS Application Signing",
          "Apple Worldwide Developer Relations Certification Authority", "Apple Root CA")
_SYSTEM = ("Software Signing", "Apple Code Signing Certification Authority", "Apple Root CA")

_GOOD = (
    Bundle("Firefox", "org.mozilla.firefox", "142.0.1", get_info="Firefox 142.0.1",
           authorities=developer_id("Mozilla Corporation", "43AQ936H96")),
    Bundle("Google Chrome", "com.google.Chrome", "139.0.7258.155", binary=True,
           copyright="Copyright 2025 Google LLC. All rights reserved.", day="2025-08-28"),
    Bundle("Microsoft Word", "com.microsoft.Word", "16.100.4",
           copyright="© 2025 Microsoft Corporation. All rights reserved.", build="16.100.25081015"),
    Bundle("Microsoft Teams", "com.microsoft.teams2", "25212.1003", binary=True,
           copyright="Copyright © Microsoft Corporation. All Rights Reserved."),
    Bundle("GIMP", "org.gimp.gimp-2.10", "2.10.38", get_info="2.10.38, © 2001–2024 The GIMP Team"),
    Bundle("VLC", "org.videolan.vlc", "3.0.21", copyright="Copyright © 1996-2024 the VideoLAN team"),
    Bundle("FileZilla", "org.filezilla-project.filezilla", "3.69.3",
           get_info="FileZilla Client 3.69.3, Copyright (C) 2004-2025  Tim Kosse"),
    Bundle("Keka", "com.aone.keka", "1.5.2", copyright="(c) 2009-2025 aONe"),
    Bundle("Sygnał", "pl.example.sygnal", "3.2", copyright="℗ 2021 Studio Nagrań „Echo”",
           binary=True),
    Bundle("Notatnik", "pl.example.notatnik", "1.0", copyright="Copyright (c) 2019 by Jan Nowak."),
    Bundle("Kreator", "pl.example.kreator", "7", copyright="[Fabryka Okien Sp. z o.o.] 2018, 2020"),
    Bundle("Cyberpismo", "pl.example.cyberpismo", "0.9", copyright="Copyright © 2024"),
    Bundle("Epson Scan", "com.epson.scan2", "6.7.80",
           get_info="6.7.80, Copyright(C) Seiko Epson Corporation 2002-2024 All rights reserved."),
)

_NAMES = (
    Bundle("Łączność Zdalna", "pl.example.lacznosc", "2.4.1", display_name="Łączność zdalna",
           copyright="© 2023 Żuraw Systemy S.A."),
    # Decomposed letters, as an old volume format kept them.
    Bundle("Poczta S\u0301laska", "pl.example.poczta", "1.1", copyright="© 2022 Poczta Śląska"),
    Bundle("Größen-Rechner", "de.example.groessen", "4.0", binary=True,
           authorities=developer_id("Müller & Söhne GmbH (Köln)", "9X2ABCD4EF")),
    Bundle("写真", "jp.example.shashin", "2.0.3", copyright="© 2020 株式会社サンプル"),
    Bundle("Bez Nazwy", "pl.example.beznazwy", "1.0", bundle_name="", display_name=""),
    Bundle("Bez Wersji", "pl.example.bezwersji", copyright="© 2016 Pracownia"),
    Bundle("Tylko Kompilacja", "pl.example.kompilacja", build="4711", copyright="© Pracownia"),
    Bundle("Cudzy'słów \"i\" spacje", "pl.example.cudzyslow", "1.2.3", display_name="O'Brien \"Quote\"",
           copyright="\"O'Brien Software\" (2017)"),
)

_PUBLISHERS = (
    Bundle("Stary Katalog", "pl.example.katalog", "5.1",
           metadata={"kMDItemCopyright": "Copyright © 2011 Wydawnictwo Mapa. All rights reserved."}),
    Bundle("Album Autora", "pl.example.album", "1.0",
           metadata={"kMDItemAuthors": '(\n    "Katarzyna Wójcik"\n)'}),
    Bundle("Slack", "com.tinyspeck.slackmacgap", "4.46.96",
           authorities=developer_id("Slack Technologies, Inc.", "BQR82RBBHL")),
    Bundle("1Password", "com.1password.1password", "8.11.6", binary=True,
           authorities=developer_id("AgileBits Inc.", "2BUA8C4S2C")),
    Bundle("Faktury Plus", "pl.example.faktury", "11.2", authorities=_STORE),
    Bundle("Dystrybucja", "pl.example.dystrybucja", "1.4",
           authorities=("Apple Distribution: Hurtownia Danych Sp. z o.o. (7PQRS2TUVW)", *_STORE[1:])),
    Bundle("Steam", "com.valvesoftware.steam", "3.0"),
    Bundle("Spotify", "com.spotify.client", "1.2.70.404", binary=True),
    Bundle("Anonim", "pl.example.anonim", "0.1"),
    Bundle("Unknown Maker", "pl.example.unknown", "1.0", copyright="Copyright 2020 Unknown"),
    Bundle("Rozwlekły", "pl.example.rozwlekly", "1.0", copyright="© 2020 " + "Bardzo " * 60),
)

_APPLE = (
    Bundle("Safari", "com.apple.Safari", "18.6", binary=True, authorities=_SYSTEM,
           copyright="Copyright © 2003-2025 Apple Inc. All rights reserved."),
    Bundle("Keynote", "com.apple.iWork.Keynote", "14.4", binary=True, authorities=_STORE),
    Bundle("Mail", "com.apple.mail", "16.0", folder="/System/Applications", binary=True,
           authorities=_SYSTEM),
    Bundle("Calendar", "com.apple.iCal", "15.0", folder="/System/Applications", binary=True),
    Bundle("TextEdit", "com.apple.TextEdit", "1.20", folder="/System/Applications"),
    Bundle("System Settings", "com.apple.systempreferences", "15.0", folder="/System/Applications",
           binary=True),
    Bundle("Terminal", "com.apple.Terminal", "2.14", folder="/System/Applications/Utilities",
           binary=True),
    Bundle("Disk Utility", "com.apple.DiskUtility", "22.7", folder="/System/Applications/Utilities",
           binary=True),
    Bundle("Console", "com.apple.Console", "1.1", folder="/System/Applications/Utilities"),
)

_WHOLE = plistlib.dumps({"CFBundleName": "Ucięta", "CFBundleIdentifier": "pl.example.ucieta"})

_DAMAGED = (
    Bundle("Ucięta Lista", raw=_WHOLE[:len(_WHOLE) // 2]),
    Bundle("Pusta Lista", raw=b""),
    Bundle("Ucięta Binarna", raw=plistlib.dumps({"CFBundleName": "x"}, fmt=plistlib.FMT_BINARY)[:20]),
    Bundle("Lista Tablica", raw=plistlib.dumps(["CFBundleName", "tablica"])),
    Bundle("Śmieci", raw=b"\x00\xff\xfe\x01 to nie jest lista \x80\x81"),
    Bundle("Obce Typy", "pl.example.typy", extra={
        "CFBundleName": 17, "CFBundleShortVersionString": ["1", "2"],
        "NSHumanReadableCopyright": {"rok": 2020}, "CFBundleGetInfoString": True}),
)

# Several of the remote-desktop tools' own bundles; only on the Mac that has the tools.
REMOTE_TOOL_BUNDLES = (
    Bundle("AnyDesk", "com.philandro.anydesk", "9.5.0",
           authorities=developer_id("philandro Software GmbH", "KU6W3B6JMZ")),
    Bundle("TeamViewer", "com.teamviewer.TeamViewer", "15.69.5", binary=True,
           copyright="Copyright © 2005-2025 TeamViewer Germany GmbH"),
    Bundle("RustDesk", "com.carriez.rustdesk", "1.4.1",
           copyright="Copyright © 2025 Purslane Ltd. All rights reserved."),
)

BUNDLES = (*_GOOD, *_NAMES, *_PUBLISHERS, *_APPLE, *_DAMAGED)


def write_bundle(root: pathlib.Path, bundle: Bundle) -> pathlib.Path:
    """Makes the bundle with its metadata and signature answers; an existing one is replaced."""
    place = root / bundle.path.lstrip("/")
    if place.exists():
        shutil.rmtree(place)
    (place / "Contents/MacOS").mkdir(parents=True)
    (place / "Contents/Info.plist").write_bytes(bundle.information())
    program = place / "Contents/MacOS" / bundle.name
    program.write_text("#!/bin/sh\nexit 0\n")
    program.chmod(0o755)
    noon = datetime.datetime.fromisoformat(f"{bundle.day}T12:00:00").timestamp()
    os.utime(place, (noon, noon))

    answers = root / ".sample/answers"
    if bundle.metadata:
        folder = answers / "mdls" / bundle.path.lstrip("/")
        folder.mkdir(parents=True, exist_ok=True)
        for attribute, value in bundle.metadata.items():
            (folder / attribute).write_text(value)
    if bundle.authorities:
        signature = answers / "codesign" / bundle.path.lstrip("/")
        signature.parent.mkdir(parents=True, exist_ok=True)
        signature.write_text(_signature(bundle))
    return place


def write_all(root: pathlib.Path, with_remote_tools: bool) -> None:
    for bundle in BUNDLES + (REMOTE_TOOL_BUNDLES if with_remote_tools else ()):
        write_bundle(root, bundle)
    applications = root / "Applications"
    # The same bundle under a second name, one without an information list, one that leads nowhere,
    # and things that are no bundles at all.
    (applications / "Przeglądarka.app").symlink_to("Firefox.app")
    (applications / "Bez Listy.app/Contents").mkdir(parents=True)
    (applications / "Donikąd.app").symlink_to("../Volumes/Odłączony/Donikąd.app")
    (applications / "Zwykły plik.app").write_text("to nie jest program\n")
    (applications / "Czytaj mnie.txt").write_text("Programy firmowe.\n")


def _signature(bundle: Bundle) -> str:
    leaf = bundle.authorities[0]
    team = leaf[leaf.rindex("(") + 1:-1] if leaf.endswith(")") else "not set"
    digest = hashlib.sha1(bundle.path.encode()).hexdigest()
    rows = [
        f"Executable={bundle.path}/Contents/MacOS/{bundle.name}",
        f"Identifier={bundle.identifier}",
        "Format=app bundle with Mach-O universal (x86_64 arm64)",
        "CodeDirectory v=20500 size=1187 flags=0x10000(runtime) hashes=26+7 location=embedded",
        "VersionPlatform=1", "VersionMin=720896", "VersionSDK=918784",
        "Hash type=sha256 size=32",
        f"CandidateCDHash sha256={digest}", "Hash choices=sha256", "CMSDigestType=2",
        "Page size=16384", f"CDHash={digest}", "Signature size=9043",
        *(f"Authority={authority}" for authority in bundle.authorities),
        "Timestamp=15 Aug 2025 at 10:42:17", "Notarization Ticket=stapled",
        "Info.plist entries=31", f"TeamIdentifier={team}", "Runtime Version=15.4.0",
        "Sealed Resources version=2 rules=13 files=54",
        "Internal requirements count=1 size=212",
    ]
    return "\n".join(rows) + "\n"

