"""What launchctl's subcommands do, with the Mac's exit codes and words."""

from __future__ import annotations

import asyncio
import os
import shutil
import signal

from . import jobfile
from .conversation import Reply
from .service import Service, Surroundings

_DONE: Reply = (0, "", "")
_NO_SUCH_PROCESS = 3
_INPUT_OUTPUT = 5
_USAGE = 64
_NO_DOMAIN = 112
_NO_SERVICE = 113
_NOT_IN_THIS_DOMAIN = 125

# A process that ends at once is gone when bootout returns; of one that needs longer, bootout says
# nothing, and a bootstrap that comes too early is refused.
_BOOTOUT_GRACE_SECONDS = 0.05


class Commands:
    def __init__(self, around: Surroundings, services: dict[tuple[str, str], Service]) -> None:
        self.around = around
        self.services = services
        self._leaving: set[asyncio.Task] = set()
        self._table = {
            "bootstrap": self._bootstrap, "bootout": self._bootout, "kickstart": self._kickstart,
            "enable": self._enable, "disable": self._disable, "list": self._list,
            "kill": self._kill,
        }

    async def carry_out(self, arguments: list[str], folder: str) -> Reply:
        name, *rest = arguments
        if name not in self._table:
            return _USAGE, "", f"Unrecognized subcommand: {name}\n" \
                "Usage: launchctl <subcommand> ... | help [subcommand]\n"
        paths = [os.path.join(folder, one) if name in ("bootstrap", "bootout") and position
                 else one for position, one in enumerate(rest)]
        return await self._table[name](paths)

    def remove(self, service: Service) -> None:
        service.forget()
        if self.services.get((service.domain, service.job.label)) is service:
            del self.services[service.domain, service.job.label]

    async def _bootstrap(self, arguments: list[str]) -> Reply:
        if len(arguments) < 2:
            return _USAGE, "", "Usage: launchctl bootstrap <domain-target> " \
                "[service-path, service-path2, ...]\n"
        domain, *paths = arguments
        if not self._domain_exists(domain):
            return _failed("Bootstrap", _NOT_IN_THIS_DOMAIN,
                           "Domain does not support specified action")
        reply = _DONE
        for path in self._job_files(paths):
            try:
                self._load(domain, path)
            except jobfile.JobFileError as error:
                reply = _failed("Bootstrap", error.code, str(error))
        return reply

    def _load(self, domain: str, path: str) -> None:
        mac_path = self.around.mac_path(path)
        job = jobfile.read(self.around.locate(mac_path), mac_path)
        if (domain, job.label) in self.services or self._disabled(domain, job.label).exists():
            raise jobfile.JobFileError(_INPUT_OUTPUT, "Input/output error")
        self._resident(domain, job.label).unlink(missing_ok=True)
        service = Service(domain, job, self.around)
        self.services[domain, job.label] = service
        if job.run_at_load or job.keep_alive is True:
            service.start()

    async def _bootout(self, arguments: list[str]) -> Reply:
        if not arguments:
            return _USAGE, "", "Usage: launchctl bootout <domain-target> " \
                "[service-path1, service-path2, ...] | <service-target>\n"
        target, *paths = arguments
        domain, label = _split(target)
        if not self._domain_exists(domain):
            return _failed("Boot-out", _NOT_IN_THIS_DOMAIN,
                           "Domain does not support specified action")
        if label:
            return await self._leave(domain, label, _NO_SUCH_PROCESS, "No such process")
        if not paths:
            return await self._close_domain(domain)
        reply = _DONE
        for path in self._job_files(paths):
            one = await self._leave_by_file(domain, path)
            reply = one if one[0] else reply
        return reply

    async def _leave_by_file(self, domain: str, path: str) -> Reply:
        mac_path = self.around.mac_path(path)
        try:
            label = jobfile.read(self.around.locate(mac_path), mac_path).label
        except jobfile.JobFileError as error:
            return _failed("Boot-out", error.code, str(error))
        return await self._leave(domain, label, _INPUT_OUTPUT, "Input/output error")

    async def _leave(self, domain: str, label: str, code: int, words: str) -> Reply:
        service = self.services.get((domain, label))
        resident = self._resident(domain, label)
        if service is None and resident.exists():
            resident.unlink()
            return _DONE
        if service is None or service.leaving:
            return _failed("Boot-out", code, words)
        service.leaving = True
        if service.process is None:
            self.remove(service)
            return _DONE
        end = asyncio.create_task(service.stop())
        self._leaving.add(end)
        end.add_done_callback(self._leaving.discard)
        await asyncio.wait([end], timeout=_BOOTOUT_GRACE_SECONDS)
        return _DONE

    async def _close_domain(self, domain: str) -> Reply:
        """Logging out: the domain goes with everything in it."""
        for owner, label in list(self.services):
            if owner == domain:
                await self._leave(domain, label, 0, "")
        shutil.rmtree(self.around.folder / "resident" / domain, ignore_errors=True)
        return _DONE

    async def _kickstart(self, arguments: list[str]) -> Reply:
        options = "".join(one[1:] for one in arguments if one.startswith("-"))
        targets = [one for one in arguments if not one.startswith("-")]
        if len(targets) != 1 or set(options) - set("kps"):
            return _USAGE, "", "Usage: launchctl kickstart [-k] [-p] <service-target>\n"
        domain, label = _split(targets[0])
        service = self.services.get((domain, label))
        if service is None or service.leaving:
            return _missing(domain, label)
        if "k" in options:
            await service.stop()
        service.start()
        return 0, f"{service.pid}\n" if "p" in options and service.pid else "", ""

    async def _kill(self, arguments: list[str]) -> Reply:
        if len(arguments) != 2:
            return _USAGE, "", "Usage: launchctl kill <signal-number|signal-name> <service-target>\n"
        domain, label = _split(arguments[1])
        service = self.services.get((domain, label))
        if service is None:
            return _missing(domain, label)
        if service.process is None:
            return _NO_SUCH_PROCESS, "", "No process to signal.\n"
        name = arguments[0].upper().removeprefix("SIG")
        service.signal(int(name) if name.isdigit() else signal.Signals[f"SIG{name}"])
        return _DONE

    async def _enable(self, arguments: list[str]) -> Reply:
        return self._switch("enable", arguments, enabled=True)

    async def _disable(self, arguments: list[str]) -> Reply:
        return self._switch("disable", arguments, enabled=False)

    def _switch(self, name: str, arguments: list[str], *, enabled: bool) -> Reply:
        domain, label = _split(arguments[0]) if len(arguments) == 1 else ("", "")
        if not label:
            return _USAGE, "", f"Usage: launchctl {name} <service-target>\n"
        mark = self._disabled(domain, label)
        if enabled:
            mark.unlink(missing_ok=True)
        else:
            mark.parent.mkdir(parents=True, exist_ok=True)
            mark.touch()
        return _DONE

    async def _list(self, arguments: list[str]) -> Reply:
        if not arguments:
            rows = "".join(service.list_line() for service in self.services.values())
            return 0, "PID\tStatus\tLabel\n" + rows, ""
        found = [service for (_, label), service in self.services.items() if label == arguments[0]]
        if not found:
            return _NO_SERVICE, "", \
                f'Could not find service "{arguments[0]}" in domain for system\n'
        return 0, "".join(service.list_line() for service in found), ""

    def _job_files(self, paths: list[str]) -> list[str]:
        """The files named, and those in the folders named."""
        found = []
        for path in paths:
            place = self.around.locate(self.around.mac_path(path))
            if os.path.isdir(place):
                found += sorted(os.path.join(place, name) for name in os.listdir(place)
                                if name.endswith(".plist"))
            else:
                found.append(path)
        return found

    def _domain_exists(self, domain: str) -> bool:
        return domain == "system" or domain.startswith("gui/") \
            and (self.around.folder / "resident" / domain).is_dir()

    def _resident(self, domain: str, label: str) -> os.PathLike:
        return self.around.folder / "resident" / domain / label

    def _disabled(self, domain: str, label: str) -> os.PathLike:
        return self.around.folder / "disabled" / domain / label


def _split(target: str) -> tuple[str, str]:
    """The domain and the label of a target; the label is empty when only a domain is named."""
    parts = target.split("/")
    if parts[0] == "system":
        return "system", "/".join(parts[1:])
    return "/".join(parts[:2]), "/".join(parts[2:])


def _failed(action: str, code: int, words: str) -> Reply:
    return code, "", f"{action} failed: {code}: {words}\n"


def _missing(domain: str, label: str) -> Reply:
    shown = domain if domain == "system" else f"user gui: {domain.removeprefix('gui/')}"
    return _NO_SERVICE, "", f'Could not find service "{label}" in domain for {shown}\n'
