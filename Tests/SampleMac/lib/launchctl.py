"""The part of launchctl that needs the supervisor: launchctl.py SAMPLE ARGUMENT..."""

import sys

from launchd import client

sys.exit(client.main(sys.argv[1], sys.argv[2:]))
