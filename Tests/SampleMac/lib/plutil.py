"""plutil as far as it is asked here: plutil.py -convert json -o OUTPUT FILE, plutil.py -lint FILE..."""

from __future__ import annotations

import json
import plistlib
import sys

_USAGE = "plutil: [command_option] [other_options] file...\n"


def main(arguments: list[str]) -> int:
    if arguments[:1] == ["-lint"] and len(arguments) > 1:
        return max(_lint(path) for path in arguments[1:])
    if len(arguments) == 5 and arguments[:3] == ["-convert", "json", "-o"]:
        return _convert(*arguments[3:])
    sys.stderr.write(_USAGE)
    return 1


def _lint(path: str) -> int:
    try:
        _read(path)
    except Unreadable as error:
        print(error)
        return 1
    print(f"{path}: OK")
    return 0


def _convert(output: str, path: str) -> int:
    try:
        text = json.dumps(_read(path), ensure_ascii=False, separators=(",", ":"))
    except Unreadable as error:
        print(error, file=sys.stderr)
        return 1
    except TypeError:
        print(f"{path}: invalid object in plist for destination format", file=sys.stderr)
        return 1
    if output == "-":
        sys.stdout.write(text)
        return 0
    with open(output, "w", encoding="utf-8") as file:
        file.write(text)
    return 0


class Unreadable(Exception):
    """No property list, in the tool's words."""


def _read(path: str) -> object:
    try:
        with open(path, "rb") as file:
            return plistlib.load(file)
    except FileNotFoundError as error:
        raise Unreadable(f"{path}: file does not exist or is not readable or is not a regular file"
                         ) from error
    except Exception as error:  # whatever is wrong with it, the words are the same
        raise Unreadable(f"{path}: Property List error: Unexpected character at line 1 / JSON error: "
                         "JSON text did not start with array or object") from error


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
