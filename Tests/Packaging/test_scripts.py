"""The package's scripts as texts: valid for bash, without what the Mac's old one does not know."""

from __future__ import annotations

import re
import shutil
import subprocess
from pathlib import Path

import pytest

from package_reader import Package
from test_content import SUPPORT

# bash 4 and newer only.
_TOO_NEW = re.compile(r"declare -A|local -A|\bmapfile\b|\breadarray\b|\$\{\w+(,,|\^\^|@)|\|&|&>>|"
                      r"\bcoproc\b")


@pytest.fixture(params=["preinstall", "postinstall", "uninstall"])
def script(request: pytest.FixtureRequest, twin: Package, tmp_path: Path) -> Path:
    file = tmp_path / request.param
    if request.param == "uninstall":
        file.write_bytes(twin.content(f"{SUPPORT}/uninstall"))
    else:
        file.write_bytes(twin.content(f"/{request.param}", "Scripts"))
    return file


def test_bash_can_read_it(script: Path) -> None:
    done = subprocess.run(["bash", "-n", script], capture_output=True, text=True, check=False)
    assert (done.returncode, done.stderr) == (0, "")


@pytest.mark.skipif(shutil.which("shellcheck") is None, reason="shellcheck is not installed")
def test_shellcheck_finds_nothing(script: Path) -> None:
    done = subprocess.run(["shellcheck", script], capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stdout


def test_the_macs_old_bash_knows_all_of_it(script: Path) -> None:
    assert _TOO_NEW.search(script.read_text()) is None


def test_tools_are_called_by_their_full_path(script: Path) -> None:
    """A package's scripts run with whatever path the installing program has."""
    tools = r"launchctl|installer|stat|chown|chmod|mkdir|rm|mv|cp|sleep|grep|mktemp|plutil|dirname|id|" \
        r"readlink|sw_vers|uname|pkgutil"
    bare = re.compile(rf"(?:^|[;&|(]|\bif|\bthen|!)\s*({tools})\s", re.MULTILINE)
    assert bare.findall(script.read_text()) == []
