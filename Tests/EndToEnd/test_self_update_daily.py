"""The automatic check, which comes two minutes after the agent's start: other tests run meanwhile."""

from __future__ import annotations

import json
import os

import pytest

from update_agent import expect_installed
from update_mac import DAILY_CHECK

pytestmark = pytest.mark.skipif(os.geteuid() != 0, reason="needs root to enter the sample Mac")


@pytest.mark.late
def test_the_daily_check_ends_with_the_new_version(day_begun):
    mac, admin = day_begun
    mac.wait_until(mac.place(DAILY_CHECK).exists, "daily check", 150)
    expect_installed(mac, admin, "auto_daily")
    result = mac.read_log().split("daily auto-update scheduled. result=", 1)[1].split("\n", 1)[0]
    assert json.loads(result)["update_started"] is True
    assert json.loads(mac.place(DAILY_CHECK).read_text()).endswith("Z")
    assert admin.violations() == []
