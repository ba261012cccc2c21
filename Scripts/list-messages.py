#!/usr/bin/env python3
"""Writes Docs/messages.md, every message that the library can raise, from Src/Basic/Messages.inc.

    Scripts/list-messages.py           writes the page
    Scripts/list-messages.py --check   fails where the page is out of date or the list is not in order
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LIST = ROOT / "Src/Basic/Messages.inc"
PAGE = ROOT / "Docs/messages.md"
ROW = re.compile(r'TALORA_MESSAGE(?:_FORM)?\((\d+), (?:(\d+), )?([A-Z]+), "(.*)"\)')
INTRODUCTION = """# Messages

Every message that the library can raise, by number (stored negative).  A term such as
`>-node` is worded for the program that shows it; `%d`, `%s` and the like stand for what
the message is about.  Written by `Scripts/list-messages.py` from `Src/Basic/Messages.inc`;
do not edit.

| number | severity | text |
|---|---|---|
"""


def all_messages():
    """(number, form, severity, text) of each row."""
    for line in LIST.read_text(encoding="utf-8").splitlines():
        if line.startswith("TALORA_MESSAGE"):
            number, form, severity, text = ROW.fullmatch(line).groups()
            yield int(number), int(form or 0), severity.lower(), text


def faults(rows):
    """What is wrong with the list: rows out of order, forms that do not count up, one form twice."""
    found = []
    for before, row in zip(rows, rows[1:]):
        number, form, severity, text = row
        if number == before[0] and form != before[1] + 1 or number != before[0] and form != 0:
            found.append(f"{LIST.name}: the forms of message {number} do not count up from 0")
        if number < before[0]:
            found.append(f"{LIST.name}: message {number} stands behind {before[0]}")
        if number == before[0] and (severity, text) == before[2:]:
            found.append(f"{LIST.name}: message {number} stands there twice")
    return found


def page(rows):
    def cell(text):
        shown = text.replace('\\"', '"').replace("|", "\\|")
        return f"`` {shown} ``" if "`" in shown else f"`{shown}`"
    return INTRODUCTION + "".join(f"| {-number} | {severity} | {cell(text)} |\n"
                                  for number, _, severity, text in rows)


def main():
    rows = list(all_messages())
    found = faults(rows)
    if "--check" not in sys.argv:
        PAGE.write_text(page(rows), encoding="utf-8")
    elif PAGE.read_text(encoding="utf-8") != page(rows):
        found.append("Docs/messages.md is out of date: run Scripts/list-messages.py")
    print("\n".join(found + [f"{len({row[0] for row in rows})} messages"]))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
