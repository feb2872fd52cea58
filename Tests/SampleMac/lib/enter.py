"""Runs a command in a mount namespace of its own in which a sample Mac is the root folder.

    enter.py DIR [--keep PATH]... COMMAND [ARGUMENT...]

The Mac's folders are the sample's, its tools lie over the machine's programs at their absolute
paths, and everything else of the machine (libraries, /proc, home folders) stays where it is. The
machine's /tmp and /var are hidden: --keep lets a path of them (or any other) show through. Needs
root on Linux; ends with 77 where that is missing, so that tests can skip.
"""

from __future__ import annotations

import ctypes
import os
import stat
import sys

_CLONE_NEWNS = 0x00020000
_BIND, _RECURSIVE, _PRIVATE = 0x1000, 0x4000, 0x40000
_NOT_POSSIBLE = 77

_FOLDERS_OF_THE_MAC = ("Applications", "Library", "System", "Users", "Volumes", "private", "sys",
                       ".sample")
_LINKS_OF_THE_MAC = ("etc", "tmp", "var")
_DEVICES = ("null", "zero", "full", "random", "urandom", "tty")
_DEVICE_FOLDERS = ("pts", "shm")

_libc = ctypes.CDLL(None, use_errno=True)


def main(arguments: list[str]) -> int:
    if len(arguments) < 2:
        print("usage: enter DIR [--keep PATH]... COMMAND [ARGUMENT...]", file=sys.stderr)
        return 64
    mac, *command = arguments
    keep = []
    while command[:1] == ["--keep"]:
        keep.append(command[1])
        command = command[2:]
    mac = os.path.realpath(mac)
    if not os.path.isfile(f"{mac}/.sample/programs"):
        print(f"enter: {mac} is not a sample Mac", file=sys.stderr)
        return 1
    try:
        step_inside(mac, keep)
    except OSError as error:
        print(f"enter: no mount namespace here, which needs root on Linux: {error}",
              file=sys.stderr)
        return _NOT_POSSIBLE
    try:
        os.execvp(command[0], command)
    except OSError as error:
        print(f"enter: {command[0]}: {error.strerror}", file=sys.stderr)
        return 127


def step_inside(mac: str, keep: list[str]) -> None:
    """Puts this process where the sample Mac is "/". Throws OSError where the rights are missing."""
    here = os.getcwd()
    os.chroot(_make_root(mac, keep))
    os.chdir(here if os.path.isdir(here) else "/")
    os.environ["PATH"] = "/usr/bin:/bin:/usr/sbin:/sbin"
    os.environ["HOME"] = "/var/root"


def _call(name: str, *arguments: object) -> None:
    if getattr(_libc, name)(*arguments) != 0:
        number = ctypes.get_errno()
        raise OSError(number, f"{name}: {os.strerror(number)}")


def _mount(source: str, target: str, kind: str | None, flags: int, options: str = "") -> None:
    _call("mount", source.encode(), target.encode(), kind.encode() if kind else None,
          ctypes.c_ulong(flags), options.encode())


def _bind(source: str, target: str) -> None:
    _mount(source, target, None, _BIND | _RECURSIVE)


def _make_root(mac: str, keep: list[str]) -> str:
    _call("unshare", _CLONE_NEWNS)
    _mount("none", "/", None, _RECURSIVE | _PRIVATE)
    root = f"{mac}/.sample/mnt"
    _mount("tmpfs", root, "tmpfs", 0, "mode=755")
    for name in _FOLDERS_OF_THE_MAC:
        os.mkdir(f"{root}/{name}")
        _bind(f"{mac}/{name}", f"{root}/{name}")
    for name in _LINKS_OF_THE_MAC:
        os.symlink(f"private/{name}", f"{root}/{name}")
    os.mkdir(f"{root}/.mac")
    _bind(mac, f"{root}/.mac")
    _show_the_machine(root)
    _lay_tools_over(mac, root)
    _fill_short_folders(mac, root)
    _make_devices(mac, root)
    # The accounts and names are the sample's, certificates and resolver the machine's.
    _overlay(root, "private/etc", "lowerdir=private/etc:/etc")
    for path in keep:
        _keep(path, root)
    return root


def _overlay(root: str, target: str, options: str) -> None:
    """Relative to the root, because an option's value cannot hold every character of a path."""
    here = os.getcwd()
    os.chdir(root)
    _mount("overlay", target, "overlay", 0, options)
    os.chdir(here)


def _show_the_machine(root: str) -> None:
    for entry in os.scandir("/"):
        place = f"{root}/{entry.name}"
        if os.path.lexists(place) or entry.name in ("usr", "bin", "sbin", "dev"):
            continue
        if entry.is_symlink():
            os.symlink(os.readlink(entry.path), place)
        elif entry.is_dir():
            os.mkdir(place)
            _bind(entry.path, place)


def _lay_tools_over(mac: str, root: str) -> None:
    """/usr is the machine's with the sample's tools in front. What a test has removed is missing,
    and so is what a Mac has in /bin or /sbin only."""
    upper = f"{root}/.overlay/upper"
    for folder in ("usr", ".real/usr", ".overlay/upper", ".overlay/work"):
        os.makedirs(f"{root}/{folder}")
    _bind("/usr", f"{root}/.real/usr")
    for path in _programs(mac, "usr/"):
        place, link = f"{mac}/{path}", f"{upper}/{path.removeprefix('usr/')}"
        if os.path.islink(place) and os.readlink(place) == f"/{path}":
            continue
        os.makedirs(os.path.dirname(link), exist_ok=True)
        if os.path.islink(place):
            os.symlink(_real(os.readlink(place)), link)
        elif os.path.exists(place):
            os.symlink(f"/.mac/{path}", link)
        else:
            _hide(link)
    for path in (*_programs(mac, "bin/"), *_programs(mac, "sbin/")):
        link = f"{upper}/{path}"
        os.makedirs(os.path.dirname(link), exist_ok=True)
        if not os.path.lexists(link) and not os.path.lexists(f"{mac}/usr/{path}"):
            _hide(link)
    _overlay(root, "usr", "lowerdir=/usr,upperdir=.overlay/upper,workdir=.overlay/work")
    _bind(f"{mac}/usr/local", f"{root}/usr/local")

    # The tools' way to the machine's own programs must not lead back to themselves.
    real = f"{root}/.sample/real"
    links = {name: os.readlink(f"{real}/{name}") for name in os.listdir(real)}
    _mount("tmpfs", real, "tmpfs", 0, "mode=755")
    for name, target in links.items():
        os.symlink(_real(target), f"{real}/{name}")


def _hide(place: str) -> None:
    os.mknod(place, stat.S_IFCHR, os.makedev(0, 0))  # how an overlay says "removed"


def _real(program: str) -> str:
    """Where a program of the machine is found, whatever lies over it."""
    return f"/.real{program}" if program.startswith("/usr/") else program


def _programs(mac: str, folder: str) -> list[str]:
    """Every program that the sample Mac has or was built with below a folder."""
    with open(f"{mac}/.sample/programs", encoding="utf-8") as file:
        built = {line.rstrip("\n") for line in file}
    present = {os.path.relpath(os.path.join(place, name), mac)
               for place, _, names in os.walk(f"{mac}/{folder}") for name in names}
    return sorted(path for path in built | present
                  if path.startswith(folder) and not path.startswith("usr/local/"))


def _fill_short_folders(mac: str, root: str) -> None:
    for folder in ("bin", "sbin"):
        os.mkdir(f"{root}/{folder}")
        for name in os.listdir(f"{mac}/{folder}"):
            place = f"{mac}/{folder}/{name}"
            target = _real(os.readlink(place)) if os.path.islink(place) else f"/.mac/{folder}/{name}"
            os.symlink(target, f"{root}/{folder}/{name}")


def _make_devices(mac: str, root: str) -> None:
    os.mkdir(f"{root}/dev")
    for name in (*_DEVICES, "console"):
        source = f"{mac}/dev/console" if name == "console" else f"/dev/{name}"
        if os.path.exists(source):
            with open(f"{root}/dev/{name}", "x", encoding="utf-8"):
                pass
            _bind(source, f"{root}/dev/{name}")
    for name in _DEVICE_FOLDERS:
        if os.path.isdir(f"/dev/{name}"):
            os.mkdir(f"{root}/dev/{name}")
            _bind(f"/dev/{name}", f"{root}/dev/{name}")
    for name, target in (("fd", "/proc/self/fd"), ("stdin", "/proc/self/fd/0"),
                         ("stdout", "/proc/self/fd/1"), ("stderr", "/proc/self/fd/2")):
        os.symlink(target, f"{root}/dev/{name}")


def _keep(path: str, root: str) -> None:
    path = os.path.realpath(path)
    hidden = f"/private{path}" if path.startswith(("/tmp/", "/var/", "/etc/")) else path
    place = root + hidden
    if os.path.isdir(path):
        os.makedirs(place, exist_ok=True)
    else:
        os.makedirs(os.path.dirname(place), exist_ok=True)
        with open(place, "a", encoding="utf-8"):
            pass
    _bind(path, place)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
