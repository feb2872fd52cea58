"""The folders of a sample Mac, its tools and the machine's own programs below its paths."""

import atexit
import compileall
import datetime
import functools
import os
import pathlib
import plistlib
import shutil
import subprocess
import sys
import tempfile
import time

from launchd.text import Description

from . import applications, interfaces, profiler, remote_tools, variants

_HERE = pathlib.Path(__file__).resolve().parent.parent

_FOLDERS = (
    "Applications", "Library/Application Support", "Library/LaunchAgents", "Library/LaunchDaemons",
    "Library/Logs", "Library/Preferences", "System/Applications/Utilities",
    "System/Library/CoreServices", "System/Library/LaunchDaemons", "Users/Shared", "Volumes",
    "bin", "dev", "private/etc", "private/tmp", "private/var/db/receipts", "private/var/folders",
    "private/var/log", "private/var/root", "private/var/tmp", "sbin", "sys/class/dmi/id", "usr/bin",
    "usr/lib", "usr/libexec", "usr/local/bin", "usr/sbin", ".sample/answers", ".sample/faults",
    ".sample/launchd/loaded", ".sample/launchd/resident/system", ".sample/launchd/disabled",
    ".sample/mnt", ".sample/real",
)

_WORLD_WRITABLE = ("Users/Shared", "private/tmp", "private/var/tmp")

# Programs that a Mac has at these paths and that behave alike wherever they come from.
_MACHINE_PROGRAMS = {
    "bin": "bash cat chmod cp date dd echo ed expr hostname kill ln ls mkdir mv ps pwd rm rmdir sh "
           "sleep sync test zsh",
    "usr/bin": "awk basename comm curl cut diff dirname env false find grep gzip head kill less "
               "mktemp nice nohup od openssl perl pgrep printf python3 readlink sed seq sort su tail tar tee "
               "time touch tr true uniq wc which whoami xargs yes",
    "usr/sbin": "chown",
}

_SYSTEM_PYTHON = "/usr/bin/python3"

# What the sample Mac's own tools are made of; reached by `.sample/real/NAME` wherever they run.
_REAL_ONLY = "bsdtar nc setpriv setsid id stat ping sha1sum sha224sum sha256sum sha384sum sha512sum"


def build(root: pathlib.Path, mac: variants.Variant) -> None:
    """Makes the whole sample Mac in `root`, which must not exist or be empty."""
    root.mkdir(parents=True, exist_ok=True)
    if any(root.iterdir()):
        raise FileExistsError(f"{root} is not empty")
    subprocess.run(["cp", "-a", f"{_template(mac.name)}/.", root], check=True)


@functools.cache
def _template(variant: str) -> pathlib.Path:
    """Copying a sample Mac takes a quarter of the time that making it takes, and tests want many."""
    folder = tempfile.mkdtemp(prefix="sample-mac-")
    atexit.register(shutil.rmtree, folder, ignore_errors=True)
    root = pathlib.Path(folder, "template")
    root.mkdir()
    _make(root, variants.VARIANTS[variant])
    return root


def _make(root: pathlib.Path, mac: variants.Variant) -> None:
    _make_folders(root)
    _link_programs(root)
    _copy_tools(root)
    accounts = _accounts(mac)
    _write_identity(root, mac, accounts)
    boot_time = int(time.time()) - (3 * 24 * 3600 + 4711)
    boot_text = datetime.datetime.fromtimestamp(boot_time).strftime("%a %b %e %H:%M:%S %Y")
    answers = root / ".sample/answers"
    variants.write_short_answers(answers, mac, boot_time, boot_text)
    interfaces.write_interfaces(answers / "ifconfig")
    profiler.write_profiler(answers / "system_profiler", mac)
    applications.write_all(root, mac.remote_tools)
    _write_job_files(root)
    if mac.remote_tools:
        home = next(a.home for a in mac.accounts if a.name == mac.console_user)
        remote_tools.write_remote_tools(root, home)
        _run_remote_services(root, accounts[mac.console_user])
    _give_homes_away(root, accounts, mac)


def _make_folders(root: pathlib.Path) -> None:
    for folder in _FOLDERS:
        (root / folder).mkdir(parents=True, exist_ok=True)
    for folder in _WORLD_WRITABLE:
        (root / folder).chmod(0o1777)
    # Relative, so that they stay inside wherever the root is.
    for name in ("etc", "tmp", "var"):
        (root / name).symlink_to(f"private/{name}")
    calls = root / ".sample/calls.log"
    calls.touch()
    calls.chmod(0o666)


def _link_programs(root: pathlib.Path) -> None:
    real = root / ".sample/real"
    for folder, names in _MACHINE_PROGRAMS.items():
        for name in names.split():
            # A machine without zsh or ed still gets something that answers to the name.
            found = shutil.which(name) or (shutil.which("bash") if name == "zsh" else None)
            if found is None:
                continue
            target = _straight(found)
            # The system's own interpreter starts quicker than a version manager's front end.
            if name == "python3" and os.path.exists(_SYSTEM_PYTHON):
                target = _SYSTEM_PYTHON
            (root / folder / name).symlink_to(target)
            if not os.path.lexists(real / name):
                (real / name).symlink_to(target)
    for name in _REAL_ONLY.split():
        found = shutil.which(name)
        if found is not None:
            (real / name).symlink_to(_straight(found))


def _straight(program: str) -> str:
    """The program's path without a linked folder ("/bin" is "/usr/bin" on most machines); the
    program itself may be a link that is told apart by its name. One of Debian's alternatives goes
    through /etc, which is another one inside of a sample Mac."""
    if os.path.islink(program) and os.readlink(program).startswith("/etc/"):
        program = os.path.realpath(program)
    folder, name = os.path.split(program)
    return os.path.join(os.path.realpath(folder), name)


def _copy_tools(root: pathlib.Path) -> None:
    source = _HERE / "tools"
    native = {"stat", "shasum", "PlistBuddy", "pkill"} if sys.platform == "darwin" else set()
    for folder, _, names in os.walk(source):
        place = root / os.path.relpath(folder, source)
        place.mkdir(parents=True, exist_ok=True)
        for name in names:
            if name in native:
                (place / name).symlink_to(f"/{(place / name).relative_to(root)}")
            else:
                shutil.copy(os.path.join(folder, name), place / name)
    shutil.copytree(_HERE / "lib", root / ".sample/lib")
    # Compiled once for all sample Macs: each launchctl would otherwise do it again.
    compileall.compile_dir(_HERE / "launchd", quiet=2)
    # Another test's compilation beside this one writes under such a name at first.
    half_written = shutil.ignore_patterns("*.pyc.*")
    shutil.copytree(_HERE / "launchd", root / ".sample/lib/launchd", ignore=half_written)
    _link_launch_services(root)
    programs = [os.path.relpath(os.path.join(folder, name), root)
                for place in ("bin", "sbin", "usr")
                for folder, _, names in os.walk(root / place) for name in names]
    (root / ".sample/programs").write_text("".join(f"{path}\n" for path in programs))


def _link_launch_services(root: pathlib.Path) -> None:
    """The registration tool is reached by the framework's short path as well as by the long one."""
    frameworks = root / "System/Library/Frameworks"
    outer = frameworks / "CoreServices.framework"
    inner = outer / "Versions/A/Frameworks/LaunchServices.framework"
    for framework, folder in ((outer, "Frameworks"), (inner, "Support")):
        (framework / "Versions/A" / folder).mkdir(parents=True, exist_ok=True)
        (framework / "Versions/Current").symlink_to("A")
        (framework / folder).symlink_to(f"Versions/Current/{folder}")


def _accounts(mac: variants.Variant) -> dict[str, int]:
    """The uid of every account. Without root's rights all files are ours, so the console's owner
    is ourselves: our own uid then stands for whoever is to be seen there, root for nobody."""
    accounts = {"root": 0, **{a.name: a.uid for a in mac.accounts}}
    if os.geteuid() != 0:
        accounts[mac.console_user or "root"] = os.geteuid()
    return accounts


def _write_identity(root: pathlib.Path, mac: variants.Variant, accounts: dict[str, int]) -> None:
    etc = root / "private/etc"
    homes = {"root": "/var/root", **{a.name: a.home for a in mac.accounts}}
    names = {"root": "System Administrator", **{a.name: a.full_name for a in mac.accounts}}
    lines = [f"{name}:*:{uid}:{0 if name == 'root' else 20}:{names[name]}:{homes[name]}:/bin/zsh\n"
             for name, uid in accounts.items()]
    (etc / "passwd").write_text("".join(lines) + "nobody:*:65534:65534::/var/empty:/usr/bin/false\n")
    (etc / "group").write_text("wheel:*:0:root\nstaff:*:20:root\nnogroup:*:65534:\n")
    (etc / "machine-id").write_text(mac.platform_uuid.replace("-", "").lower() + "\n")
    (etc / "hostname").write_text(mac.host_name + "\n")
    (etc / "machine-info").write_text(f'PRETTY_HOSTNAME="{mac.computer_name}"\n')
    dmi = root / "sys/class/dmi/id"
    (dmi / "product_serial").write_text(mac.serial_number + "\n")
    (dmi / "product_uuid").write_text(mac.platform_uuid + "\n")
    (root / "System/Library/CoreServices/SystemVersion.plist").write_bytes(plistlib.dumps({
        "ProductBuildVersion": mac.system_build, "ProductName": "macOS",
        "ProductUserVisibleVersion": mac.system_version, "ProductVersion": mac.system_version}))
    console = root / "dev/console"
    console.touch()
    if mac.console_user:
        own(console, accounts[mac.console_user])
        (root / f".sample/launchd/resident/gui/{accounts[mac.console_user]}").mkdir(parents=True)


def _write_job_files(root: pathlib.Path) -> None:
    jobs = {
        "LaunchDaemons/com.docker.vmnetd.plist": "/Library/PrivilegedHelperTools/com.docker.vmnetd",
        "LaunchDaemons/com.microsoft.autoupdate.helper.plist":
            "/Library/PrivilegedHelperTools/com.microsoft.autoupdate.helper",
        "LaunchAgents/com.google.keystone.agent.plist":
            "/Library/Google/GoogleSoftwareUpdate/GoogleSoftwareUpdateAgent",
    }
    for name, program in jobs.items():
        (root / "Library" / name).write_bytes(plistlib.dumps({
            "Label": pathlib.Path(name).stem, "ProgramArguments": [program], "RunAtLoad": False}))


def _run_remote_services(root: pathlib.Path, console_uid: int) -> None:
    """Services of other makers are only looked at, so nothing runs behind their descriptions."""
    for domain, label, folder in (
            ("system", remote_tools.RUSTDESK_SERVICE, "/Library/LaunchDaemons"),
            (f"gui/{console_uid}", remote_tools.RUSTDESK_SERVER, "/Library/LaunchAgents")):
        write_resident_service(root, Description(
            domain=domain, label=label, path=f"{folder}/{label}.plist", state="running",
            arguments=["/Applications/RustDesk.app/Contents/MacOS/RustDesk", "--server"],
            environment={"XPC_SERVICE_NAME": label}, pid=612, runs=1,
            properties=["keepalive", "runatload"]))


def write_resident_service(root: pathlib.Path, service: Description) -> None:
    file = root / ".sample/launchd/resident" / service.domain / service.label
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text(service.render())


def _give_homes_away(root: pathlib.Path, accounts: dict[str, int], mac: variants.Variant) -> None:
    for account in mac.accounts:
        home = root / account.home.lstrip("/")
        (home / "Library/Preferences").mkdir(parents=True, exist_ok=True)
        (home / "Applications").mkdir()
        own(home, accounts[account.name])
        for folder, folders, files in os.walk(home):
            for name in (*folders, *files):
                own(pathlib.Path(folder, name), accounts[account.name])


def own(path: pathlib.Path, uid: int) -> None:
    """Gives a file away, where the rights allow it."""
    if os.geteuid() == 0:
        os.chown(path, uid, 0 if uid == 0 else 20)


def account_uid(root: pathlib.Path, name: str) -> int:
    for line in (root / "private/etc/passwd").read_text().splitlines():
        fields = line.split(":")
        if fields[0] == name:
            return int(fields[2])
    raise KeyError(name)
