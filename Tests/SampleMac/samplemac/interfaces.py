"""What the interface tool answers: one entry per interface, in the order in which it lists them."""

import pathlib

_HEAD = "{name}: flags={flags} mtu {mtu}\n"

_LOOPBACK = _HEAD.format(name="lo0", flags="8049<UP,LOOPBACK,RUNNING,MULTICAST>", mtu=16384) + """\
\toptions=1203<RXCSUM,TXCSUM,TXSTATUS,SW_TIMESTAMP>
\tinet 127.0.0.1 netmask 0xff000000
\tinet6 ::1 prefixlen 128
\tinet6 fe80::1%lo0 prefixlen 64 scopeid 0x1
\tnd6 options=201<PERFORMNUD,DAD>
"""

_TUNNEL = _HEAD.format(name="gif0", flags="8010<POINTOPOINT,MULTICAST>", mtu=1280)

_BROADCAST = "8863<UP,BROADCAST,SMART,RUNNING,SIMPLEX,MULTICAST>"


def _ethernet(name: str, hardware: str, lines: str = "", active: bool = False) -> str:
    return (_HEAD.format(name=name, flags=_BROADCAST, mtu=1500)
            + "\toptions=6460<TSO4,TSO6,CHANNEL_IO,PARTIAL_CSUM,ZEROINVERT_CSUM>\n"
            + f"\tether {hardware}\n{lines}"
            + "\tnd6 options=201<PERFORMNUD,DAD>\n\tmedia: autoselect\n"
            + f"\tstatus: {'active' if active else 'inactive'}\n")


_WIRELESS_ADDRESSES = """\
\tinet6 fe80::cb1:33ff:fe20:8d4e%en0 prefixlen 64 secured scopeid 0xb
\tinet 10.20.30.41 netmask 0xffffff00 broadcast 10.20.30.255
"""

# The bridge repeats its first member's hardware address, as it does on every Mac.
_BRIDGE_MEMBERS = """\
\tConfiguration:
\t\tid 0:0:0:0:0:0 priority 0 hellotime 0 fwddelay 0
\t\troot id 0:0:0:0:0:0 priority 0 ifcost 0 port 0
\tmember: en1 flags=3<LEARNING,DISCOVER>
\t        ifmaxaddr 0 port 8 priority 0 path cost 0
"""


def write_interfaces(folder: pathlib.Path) -> None:
    interfaces = {
        "lo0": _LOOPBACK,
        "gif0": _TUNNEL,
        "en1": _ethernet("en1", "36:2b:70:e1:55:80"),
        "bridge0": _ethernet("bridge0", "36:2b:70:e1:55:80", _BRIDGE_MEMBERS),
        "en0": _ethernet("en0", "0e:b1:33:20:8d:4e", _WIRELESS_ADDRESSES, active=True),
        "awdl0": _ethernet("awdl0", "8a:14:5c:f0:2e:91", active=True),
        "llw0": _ethernet("llw0", "8a:14:5c:f0:2e:91"),
    }
    folder.mkdir(parents=True, exist_ok=True)
    for position, (name, text) in enumerate(interfaces.items()):
        (folder / f"{position:02}-{name}").write_text(text)
