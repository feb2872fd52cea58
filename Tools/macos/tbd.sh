# Sourced: writes link stubs, the text form in which Apple's linkers take a library's symbols.

# write_tbd INSTALL_NAME <SYMBOLS >STUB: symbols one per line, with their leading underscore.
write_tbd() {
    cat <<END
--- !tapi-tbd
tbd-version: 4
targets: [ arm64-macos ]
install-name: '$1'
current-version: 1
compatibility-version: 1
exports:
  - targets: [ arm64-macos ]
    symbols: [ $(sort -u | paste -sd, | sed 's/,/,\n               /g') ]
...
END
}
