"""PlistBuddy as far as it is asked here: plistbuddy.py -c "Print :Key:Key" FILE"""

import plistlib
import sys


def main(arguments: list[str]) -> int:
    if len(arguments) != 3 or arguments[0] != "-c":
        print("Usage: PlistBuddy [-cxh] <file.plist>")
        return 1
    command, path = arguments[1:]
    verb, _, entry = command.partition(" ")
    try:
        with open(path, "rb") as file:
            value = plistlib.load(file)
    except FileNotFoundError:
        print(f"File Doesn't Exist, Will Create: {path}")
        value = {}
    except Exception:  # whatever is wrong with it, the words are the same
        print(f"Error Reading File: {path}", file=sys.stderr)
        return 1
    if verb.lower() != "print":
        print("Unrecognized Command", file=sys.stderr)
        return 1
    try:
        for key in filter(None, entry.strip("'\"").split(":")):
            value = value[int(key)] if isinstance(value, list) else value[key]
    except (KeyError, IndexError, ValueError, TypeError):
        print(f'Print: Entry, "{entry}", Does Not Exist', file=sys.stderr)
        return 1
    print(shown(value))
    return 0


def shown(value: object, indent: str = "") -> str:
    match value:
        case dict():
            rows = "".join(f"{indent}    {key} = {shown(item, indent + '    ')}\n"
                           for key, item in value.items())
            return f"Dict {{\n{rows}{indent}}}"
        case list():
            rows = "".join(f"{indent}    {shown(item, indent + '    ')}\n" for item in value)
            return f"Array {{\n{rows}{indent}}}"
        case bool():
            return str(value).lower()
        case bytes():
            return value.decode(errors="replace")
        case _:
            return str(value)


sys.exit(main(sys.argv[1:]))
