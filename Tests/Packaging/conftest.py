"""The package with this machine's programs inside, made once for the whole run."""

from __future__ import annotations

import fcntl
import os
import subprocess
import sys
from pathlib import Path

import pytest

_REPOSITORY = Path(__file__).resolve().parents[2]
sys.path[:0] = [str(_REPOSITORY / "Tests/SampleMac"), str(_REPOSITORY / "Packaging"),
                str(_REPOSITORY / "Packaging/macos"), str(Path(__file__).resolve().parent)]

from package_reader import Package  # noqa: E402  (found beside the tests)

BUILD = Path(os.environ.get("ORV_BUILD_DIR", _REPOSITORY / "build/release"))


def make_twin(output: Path) -> Path:
    """A package of the same layout and scripts as for a Mac."""
    done = subprocess.run([_REPOSITORY / "Packaging/linux-twin", BUILD, output], text=True,
                          capture_output=True, check=False)
    assert done.returncode == 0, done.stderr
    return Path(done.stdout.strip())


@pytest.fixture(scope="session")
def twin_file(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """Where several processes run the tests, the first that needs it makes it for all."""
    folder = tmp_path_factory.getbasetemp()
    if "PYTEST_XDIST_WORKER" in os.environ:
        folder = folder.parent
    with (folder / "twin.lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if not (folder / "twin").is_dir():
            make_twin(folder / "twin.new")
            (folder / "twin.new").rename(folder / "twin")
    made, = (folder / "twin").glob("*.pkg")
    return made


@pytest.fixture(scope="session")
def twin(twin_file: Path) -> Package:
    return Package(twin_file)
