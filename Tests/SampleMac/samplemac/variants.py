"""The two Macs that can be built: who they are and what their short tools answer.

A laptop with everything connected, somebody logged in and all three remote-desktop tools, and a
desktop on a newer system that has none of it.
"""

import dataclasses
import pathlib


@dataclasses.dataclass(frozen=True)
class Account:
    name: str
    full_name: str
    uid: int
    home: str


@dataclasses.dataclass(frozen=True)
class Variant:
    name: str
    host_name: str
    computer_name: str
    serial_number: str
    platform_uuid: str
    model: str
    machine_name: str
    chip: str
    memory_gigabytes: int
    cores: str  # as the hardware report spells them: all, fast, efficient
    system_version: str
    system_build: str
    kernel_release: str
    console_user: str | None
    accounts: tuple[Account, ...]
    battery: str | None
    firewall: str
    disk_encryption: str
    memory_pages: dict[str, int]
    updates: tuple[str, ...]
    printers: tuple[str, ...]
    remote_tools: bool


LAPTOP = Variant(
    name="laptop",
    host_name="MacBook-Anny.local",
    computer_name="MacBook Anny Żółkiewskiej",
    serial_number="K7WQ2LM4XD",
    platform_uuid="6E1B0C52-93D4-5A7F-8C21-0F4D9E7B3A16",
    model="Mac16,1",
    machine_name="MacBook Pro",
    chip="Apple M4",
    memory_gigabytes=24,
    cores="proc 10:4:6",
    system_version="15.6.1",
    system_build="24G90",
    kernel_release="24.6.0",
    console_user="anna",
    accounts=(
        Account("anna", "Anna Żółkiewska", 501, "/Users/anna"),
        Account("goscinny", "Konto gościnne", 502, "/Users/Konto Gościnne"),
    ),
    battery="83%; discharging; 5:12 remaining present: true",
    firewall="Firewall is enabled. (State = 1)",
    disk_encryption="FileVault is On.",
    memory_pages={
        "free": 61240, "active": 512330, "inactive": 498112, "speculative": 11904,
        "throttled": 0, "wired down": 214077, "purgeable": 18230,
    },
    updates=(
        "* Label: macOS Sequoia 15.7-24G222\n"
        "\tTitle: macOS Sequoia 15.7, Version: 15.7, Size: 2914306KiB, Recommended: YES, Action: restart, \n",
        "* Label: Safari26.0SequoiaAuto-26.0\n"
        "\tTitle: Safari, Version: 26.0, Size: 171204KiB, Recommended: YES, \n",
    ),
    printers=(
        "printer HP_LaserJet_M404_Sekretariat is idle.  enabled since Mon Sep  1 08:12:44 2025\n",
        "printer Zebra_ZD421_Magazyn disabled since Tue Sep  2 14:03:10 2025 -\n\tPaused\n",
    ),
    remote_tools=True,
)

DESKTOP = Variant(
    name="desktop",
    host_name="mac-mini-recepcja.local",
    computer_name="Mac mini – recepcja",
    serial_number="H4GD93JTQ1",
    platform_uuid="B2A94D70-16CE-5E38-9F05-7C3D812E6B44",
    model="Mac16,11",
    machine_name="Mac mini",
    chip="Apple M4 Pro",
    memory_gigabytes=48,
    cores="proc 14:10:4:0",
    system_version="26.1",
    system_build="25B78",
    kernel_release="25.1.0",
    console_user=None,
    accounts=(Account("recepcja", "Recepcja", 501, "/Users/recepcja"),),
    battery=None,
    firewall="Firewall is blocking all non-essential incoming connections. (State = 2)",
    disk_encryption="FileVault is Off.",
    memory_pages={
        "free": 1804410, "active": 401877, "inactive": 380012, "speculative": 50122,
        "throttled": 0, "wired down": 190544, "purgeable": 2210,
    },
    updates=(),
    printers=(),
    remote_tools=False,
)

VARIANTS = {variant.name: variant for variant in (LAPTOP, DESKTOP)}

SERVICE_ACCOUNTS = (
    "_analyticsd", "_appstore", "_captiveagent", "_coreaudiod", "_displaypolicyd", "_hidd",
    "_installer", "_locationd", "_lp", "_mdnsresponder", "_networkd", "_nsurlsessiond",
    "_securityagent", "_softwareupdate", "_spotlight", "_sshd", "_timed", "_trustd",
    "_windowserver", "daemon", "nobody", "root",
)

# Address pattern, round trip in ms, hardware address, name; "-" is none. The patterns fit any
# network, so that a scan of the developer's own network finds somebody. The first match counts.
NEIGHBOURS = """\
*.1 1.284 3c:7c:3f:9:a0:1 router.biuro.example
*.23 4.019 0:1b:a9:5e:d:77 drukarka-sekretariat.biuro.example
*.57 12.730 f4:d4:88:61:2c:b0 -
*.104 0.411 (incomplete) -
*.180 - a8:20:66:3:1f:9e spi.biuro.example
"""


def write_short_answers(answers: pathlib.Path, mac: Variant, boot_time: int, boot_text: str) -> None:
    """The tools whose answer is a line or a page of text."""
    chip_word = mac.chip.removeprefix("Apple ").split()[0]
    files = {
        "uname/s": "Darwin",
        "uname/n": mac.host_name,
        "uname/r": mac.kernel_release,
        "uname/v": f"Darwin Kernel Version {mac.kernel_release}: Fri Aug 15 19:02:11 PDT 2025; "
                   f"root:xnu-11417.140.69~1/RELEASE_ARM64_{chip_word}",
        "uname/m": "arm64",
        "uname/p": "arm",
        "uname/o": "Darwin",
        "sysctl/machdep.cpu.brand_string": mac.chip,
        "sysctl/hw.model": mac.model,
        "sysctl/hw.memsize": str(mac.memory_gigabytes << 30),
        "sysctl/hw.ncpu": mac.cores.split()[1].split(":")[0],
        "sysctl/kern.hostname": mac.host_name,
        "sysctl/kern.osproductversion": mac.system_version,
        "sysctl/kern.osrelease": mac.kernel_release,
        "sysctl/kern.osversion": mac.system_build,
        "sysctl/kern.boottime": f"{{ sec = {boot_time}, usec = 418233 }} {boot_text}",
        "socketfilterfw/getglobalstate.txt": mac.firewall,
        "socketfilterfw/getstealthmode.txt": "Firewall stealth mode is off",
        "fdesetup/status.txt": mac.disk_encryption,
        "csrutil/status.txt": "System Integrity Protection status: enabled.",
        "sw_vers/productName": "macOS",
        "sw_vers/productVersion": mac.system_version,
        "sw_vers/buildVersion": mac.system_build,
        "scutil/ComputerName": mac.computer_name,
        "scutil/HostName": mac.host_name,
        "scutil/LocalHostName": mac.host_name.removesuffix(".local"),
        "vm_stat/pages.txt": _memory_report(mac.memory_pages),
        "pmset/batt.txt": _battery_report(mac.battery),
        "softwareupdate/list.txt": _update_report(mac.updates),
        "softwareupdate/list-errors.txt": "" if mac.updates else "No new software available.",
        "dscl/list": "\n".join(sorted([*SERVICE_ACCOUNTS, *(a.name for a in mac.accounts)])),
    }
    for account in mac.accounts:
        files[f"dscl/Users/{account.name}/NFSHomeDirectory"] = account.home
        files[f"dscl/Users/{account.name}/RealName"] = account.full_name
        files[f"dscl/Users/{account.name}/UniqueID"] = str(account.uid)
    if mac.printers:
        files["lpstat/printers.txt"] = "".join(mac.printers).rstrip("\n")
    (answers / "neighbours.txt").write_text(NEIGHBOURS)
    for name, text in files.items():
        file = answers / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(text + "\n" if text else "")


def _memory_report(pages: dict[str, int]) -> str:
    rows = [(f"Pages {use}:", count) for use, count in pages.items()]
    rows += [
        ('"Translation faults":', 311_208_554), ("Pages copy-on-write:", 14_020_991),
        ("Pages zero filled:", 150_443_021), ("Pages reactivated:", 9_120_334),
        ("Pages purged:", 1_204_551), ("File-backed pages:", 402_118),
        ("Anonymous pages:", 620_228), ("Pages stored in compressor:", 301_445),
        ("Pages occupied by compressor:", 118_206), ("Decompressions:", 4_402_118),
        ("Compressions:", 6_880_145), ("Pageins:", 9_443_087), ("Pageouts:", 81_204),
        ("Swapins:", 0), ("Swapouts:", 0),
    ]
    lines = [f"{label:<32}{count:>16}." for label, count in rows]
    return "\n".join(["Mach Virtual Memory Statistics: (page size of 16384 bytes)", *lines])


def _battery_report(battery: str | None) -> str:
    if battery is None:
        return "Now drawing from 'AC Power'"
    source = "Battery" if "discharging" in battery else "AC"
    return f"Now drawing from '{source} Power'\n -InternalBattery-0 (id=19464291)\t{battery}"


def _update_report(updates: tuple[str, ...]) -> str:
    head = "Software Update Tool\n\nFinding available software"
    if not updates:
        return head
    return "\n".join([head, "Software Update found the following new or updated software:",
                      "".join(updates).rstrip("\n")])
