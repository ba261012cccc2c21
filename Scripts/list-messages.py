#!/usr/bin/env python3
"""Lists every message that the library can raise into Docs/messages.md: number, severity, text,
place.  Complains when one number has two texts.

    Scripts/list-messages.py           writes Docs/messages.md
    Scripts/list-messages.py --check   only looks whether the numbers are sound
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
SEVERITIES = {"Fail": "error", "FailWith": "error", "FailAt": "error", "Warn": "warning",
              "WarnAt": "warning", "Notice": "notice"}
CALL = re.compile(r"(?<![\w.>])(Fail|FailWith|FailAt|Warn|WarnAt|Notice)\s*\(")
LITERALS = re.compile(r'"(?:[^"\\]|\\.)*"(?:\s*(?:PRI\w+\s*)?"(?:[^"\\]|\\.)*")*')


def messages(source):
    """Yields number, severity, text and line of each raising line of a file."""
    text = source.read_text(encoding="utf-8")
    for call in CALL.finditer(text):
        line_start = text.rfind("\n", 0, call.start()) + 1
        if "//" in text[line_start:call.start()]:
            continue
        number = re.compile(r"[^;\"]*?\b(\d{3,5})\s*,\s*").match(text, call.end())
        if not number:
            continue
        literal = LITERALS.match(text, number.end())
        if not literal:
            continue
        pieces = re.findall(r'"((?:[^"\\]|\\.)*)"', literal.group())
        yield (int(number.group(1)), SEVERITIES[call.group(1)], "".join(pieces),
               text.count("\n", 0, call.start()) + 1)


def cell(text):
    return "`" + text.replace('\\"', '"').replace("|", "\\|") + "`"


def main():
    rows, texts = [], {}
    for source in sorted((ROOT / "Src").rglob("*.cpp")) + sorted((ROOT / "Src").rglob("*.h")):
        for number, severity, text, line in messages(source):
            place = f"{source.relative_to(ROOT / 'Src')}:{line}"
            rows.append((number, severity, text, place))
            texts.setdefault(number, {}).setdefault(text, place)
    clashes = {number: found for number, found in texts.items() if len(found) > 1}
    for number, found in sorted(clashes.items()):
        print(f"message {number} has {len(found)} texts:")
        for text, place in found.items():
            print(f"    {place}: {text}")
    if "--check" not in sys.argv:
        write(sorted(rows))
    print(f"{len(texts)} messages, raised at {len(rows)} places")
    return 1 if clashes else 0


def write(rows):
    lines = ["# Messages", "",
             "Every message that the library can raise, by number (stored negative).  A term such as",
             "`>-node` is worded for the program that shows it; `%d`, `%s` and the like stand for what",
             "the message is about.  Written by `Scripts/list-messages.py`; do not edit.", "",
             "| number | severity | text | raised in |", "|---|---|---|---|"]
    lines += [f"| {-number} | {severity} | {cell(text)} | {place} |" for number, severity, text, place in rows]
    (ROOT / "Docs" / "messages.md").write_text("\n".join(lines) + "\n", encoding="utf-8")


sys.exit(main())
