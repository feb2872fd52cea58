"""Writes flat installer packages where Apple's pkgbuild does not exist. The same tree gives the same
bytes: entries are sorted, and everything is of root's and as old as SOURCE_DATE_EPOCH says."""
