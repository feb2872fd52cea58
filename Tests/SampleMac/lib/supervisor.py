"""Keeps launchd's jobs: supervisor.py SAMPLE READY, where READY is a descriptor to close when the
socket listens."""

import sys

from launchd import supervisor

supervisor.main(sys.argv[1], int(sys.argv[2]))
