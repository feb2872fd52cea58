"""The text form in which the preferences tool prints a list: braces, semicolons, odd quotes."""

import datetime
import re

_BARE = re.compile(r"[A-Za-z0-9_$/:.]+(?<!\.)$")


def dump(value: object, indent: int = 0) -> str:
    blanks = " " * indent
    match value:
        case dict():
            rows = [f"{blanks}    {dump(str(key))} = {dump(item, indent + 4)};\n"
                    for key, item in sorted(value.items())]
            return "{\n" + "".join(rows) + blanks + "}"
        case list():
            rows = ",\n".join(f"{blanks}    {dump(item, indent + 4)}" for item in value)
            return "(\n" + rows + ("\n" if rows else "") + blanks + ")"
        case bool():
            return str(int(value))
        case int():
            return str(value)
        case float():
            return f'"{value}"'
        case bytes():
            return f"{{length = {len(value)}, bytes = 0x{value.hex()}}}"
        case datetime.datetime():
            return f'"{value:%Y-%m-%d %H:%M:%S} +0000"'
        case _:
            return _text(str(value))


def _text(text: str) -> str:
    if _BARE.match(text):
        return text
    escaped = "".join(
        {'"': '\\"', "\\": "\\\\", "\n": "\\n"}.get(letter)
        or (letter if letter.isascii() else _unicode(letter))
        for letter in text)
    return f'"{escaped}"'


def _unicode(letter: str) -> str:
    units = letter.encode("utf-16-be")
    return "".join(f"\\\\U{units[i]:02x}{units[i + 1]:02x}" for i in range(0, len(units), 2))
