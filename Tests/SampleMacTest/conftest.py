import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "SampleMac"))

from samplemac import SampleMac  # noqa: E402  (found beside the tests)


@pytest.fixture(scope="session")
def laptop(tmp_path_factory):
    """A laptop that tests only look at."""
    with SampleMac(tmp_path_factory.mktemp("macs") / "laptop") as mac:
        yield mac


@pytest.fixture(scope="session")
def desktop(tmp_path_factory):
    """A desktop that tests only look at."""
    with SampleMac(tmp_path_factory.mktemp("macs") / "desktop", variant="desktop") as mac:
        yield mac


@pytest.fixture
def mac(tmp_path):
    """A laptop that the test may change."""
    with SampleMac(tmp_path / "mac") as own:
        yield own
