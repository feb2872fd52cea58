"""How launchd describes a service, in the words of `launchctl print`."""

import dataclasses


@dataclasses.dataclass
class Description:
    """What is told about one service. `state` is launchd's own word for it."""
    domain: str  # "system" or "gui/501"
    label: str
    path: str
    state: str
    arguments: list[str]
    environment: dict[str, str] = dataclasses.field(default_factory=dict)
    standard_output: str | None = None
    standard_error: str | None = None
    pid: int | None = None
    runs: int = 0
    last_exit: str = "(never exited)"
    minimum_runtime: float = 10
    exit_timeout: float = 5
    properties: list[str] = dataclasses.field(default_factory=list)

    def render(self) -> str:
        running = self.pid is not None
        rows = [f"{self.domain}/{self.label} = {{",
                f"\tactive count = {1 if running else 0}",
                f"\tpath = {self.path}",
                f"\ttype = {'LaunchDaemon' if self.domain == 'system' else 'LaunchAgent'}",
                f"\tstate = {self.state}", "",
                f"\tprogram = {self.arguments[0] if self.arguments else ''}",
                *_block("arguments", self.arguments), ""]
        if self.standard_output:
            rows.append(f"\tstdout path = {self.standard_output}")
        if self.standard_error:
            rows.append(f"\tstderr path = {self.standard_error}")
        rows += [*_block("default environment", ["PATH => /usr/bin:/bin:/usr/sbin:/sbin"]), "",
                 *_block("environment", [f"{key} => {value}" for key, value
                                         in sorted(self.environment.items())]), "",
                 f"\tdomain = {self._domain_text()}",
                 f"\tminimum runtime = {self.minimum_runtime:g}",
                 f"\texit timeout = {self.exit_timeout:g}",
                 f"\truns = {self.runs}"]
        if running:
            rows.append(f"\tpid = {self.pid}")
        rows += [f"\tlast exit code = {self.last_exit}", "",
                 # Two lines that only look like the state: readers must not be taken in.
                 *_block("resource coalition", ["ID = 611", "type = resource", "state = active"]), "",
                 "\tspawn type = daemon (3)",
                 "\tjetsam priority = 40",
                 f"\tjob state = {'running' if running else 'exited'}",
                 f"\tproperties = {' | '.join(self.properties)}", "}"]
        return "\n".join(rows) + "\n"

    def _domain_text(self) -> str:
        return self.domain if self.domain == "system" else f"{self.domain} [100005]"


def _block(title: str, rows: list[str]) -> list[str]:
    return [f"\t{title} = {{", *(f"\t\t{row}" for row in rows), "\t}"]
