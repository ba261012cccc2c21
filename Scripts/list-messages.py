#!/usr/bin/env python3
"""Lists every message that the library can raise into Docs/messages.md: number, severity, text,
place.  Complains when one number has two texts.

    Scripts/list-messages.py           writes Docs/messages.md
    Scripts/list-messages.py --check   only looks whether each number has one text
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
SEVERITIES = {"Fail": "error", "FailWith": "error", "FailAt": "error", "Warn": "warning",
              "WarnAt": "warning", "Notice": "notice"}
CALL = re.compile(r"(?<![\w.>])(Fail|FailWith|FailAt|Warn|WarnAt|Notice)\s*\(")
SEVERAL_TEXTS = {2489}  # worded for the kind of table it is about
LITERALS = re.compile(r'"(?:[^"\\]|\\.)*"(?:\s*(?:PRI\w+\s*)?"(?:[^"\\]|\\.)*")*')


def messages(source):
    """Yields number, severity, text and line of each place in a file that raises a message."""
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
    texts = {}  # number: text: where it is raised
    for source in sorted((ROOT / "Src").rglob("*.cpp")) + sorted((ROOT / "Src").rglob("*.h")):
        for number, severity, text, line in messages(source):
            places = texts.setdefault(number, {}).setdefault(text, [])
            places.append((severity, str(source.relative_to(ROOT)), line))
    # A message may or may not be able to say which argument it is about.
    clashes = {number: found for number, found in texts.items()
               if number not in SEVERAL_TEXTS
               and len({text.removeprefix("in argument '%s', ") for text in found}) > 1}
    for number, found in sorted(clashes.items()):
        print(f"message {number} has {len(found)} texts:")
        for text, places in found.items():
            print(f"    {places[0][1]}:{places[0][2]}: {text}")
    page = render(texts)
    path = ROOT / "Docs" / "messages.md"
    print(f"{len(texts)} messages")
    if "--check" not in sys.argv:
        path.write_text(page, encoding="utf-8")
    elif path.read_text(encoding="utf-8") != page:
        print("note: Docs/messages.md is out of date: run Scripts/list-messages.py")
    return 1 if clashes else 0


def render(texts):
    lines = ["# Messages", "",
             "Every message that the library can raise, by number (stored negative).  A term such as",
             "`>-node` is worded for the program that shows it; `%d`, `%s` and the like stand for what",
             "the message is about.  Written by `Scripts/list-messages.py`; do not edit.", "",
             "| number | severity | text | raised in |", "|---|---|---|---|"]
    for number, found in sorted(texts.items()):
        for text, places in sorted(found.items()):
            severities = ", ".join(sorted({severity for severity, _, _ in places}))
            files = ", ".join(sorted({file.split("/")[-1] for _, file, _ in places}))
            lines.append(f"| {-number} | {severities} | {cell(text)} | {files} |")
    return "\n".join(lines) + "\n"


sys.exit(main())
