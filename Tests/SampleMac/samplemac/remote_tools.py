"""The configuration of AnyDesk, TeamViewer and RustDesk, in the forms in which they keep it."""

import pathlib
import plistlib

from . import nextstep

ANYDESK_ID = "1083427195"
TEAMVIEWER_ID = 1402977351
RUSTDESK_ID = "271846093"

_ANYDESK_SYSTEM = f"""\
ad.anynet.cur_version=38654967808
ad.anynet.fpr=5d0f7c1be2a94e63
ad.anynet.id={ANYDESK_ID}
ad.anynet.network_id=main
ad.anynet.relay.state=
ad.discovery.hidden=false
ad.license.name=free-1
ad.security.interactive_access=2
"""

_ANYDESK_SERVICE = """\
ad.anynet.cert=-----BEGIN CERTIFICATE-----\\nMIIC\\n-----END CERTIFICATE-----\\n
ad.security.permission_profiles.version=1
"""

_RUSTDESK_MAIN = f"""\
# id = '000000000' stood here before the move
id = '{RUSTDESK_ID}'
enc_id = '00q3Zx8mA2Lk0vTnYw7sPfB1cRdEhUjI9oKg=='
password = ''
salt = 'w3kd9q'
key_pair = [
    [
    17,
    204,
],
    [
    93,
    8,
],
]
key_confirmed = true

[keys_confirmed]
"""

_RUSTDESK_OPTIONS = """\
rendezvous_server = 'rs.biuro.example:21116'
nat_type = 1
serial = 0
unlock_pin = ''

[options]
custom-rendezvous-server = 'rs.biuro.example'
relay-server = 'rs.biuro.example'
"""

# The two services as launchd shows them while they run: system domain, then the user's.
RUSTDESK_SERVICE = "com.carriez.RustDesk_service"
RUSTDESK_SERVER = "com.carriez.RustDesk_server"


def write_preferences(root: pathlib.Path, path: str, values: dict, binary: bool = True) -> None:
    """A property list at a path of the Mac, and its text form for the preferences tool."""
    file = root / path.lstrip("/")
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_bytes(plistlib.dumps(
        values, fmt=plistlib.FMT_BINARY if binary else plistlib.FMT_XML))
    text = root / ".sample/answers/defaults" / path.lstrip("/")
    text.parent.mkdir(parents=True, exist_ok=True)
    text.write_text(nextstep.dump(values) + "\n")


def write_remote_tools(root: pathlib.Path, home: str) -> None:
    files = {
        f"{home}/.anydesk/system.conf": _ANYDESK_SYSTEM,
        f"{home}/.anydesk/service.conf": _ANYDESK_SERVICE,
        f"{home}/Library/Preferences/com.carriez.RustDesk/RustDesk.toml": _RUSTDESK_MAIN,
        f"{home}/Library/Preferences/com.carriez.RustDesk/RustDesk2.toml": _RUSTDESK_OPTIONS,
    }
    for path, text in files.items():
        file = root / path.lstrip("/")
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text)
    write_preferences(root, "/Library/Preferences/com.teamviewer.teamviewer.preferences.plist", {
        "Always_Online": 1, "ClientIC": 918273645, "ClientID": TEAMVIEWER_ID,
        "LastMACUsed": ["0e:b1:33:20:8d:4e", ""], "Version": "15.69.5 M",
    })
    write_preferences(
        root, f"{home}/Library/Preferences/com.teamviewer.teamviewer.preferences.Machine.plist",
        {"IsFirstRun": False, "Meeting_UserName": "Anna Żółkiewska"})
