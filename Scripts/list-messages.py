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
SEVERAL_TEXTS = {2489, 6009}  # worded for the kind of table, for whether there are findings
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


REPORT = re.compile(r"\.number = (\d{3,5})[^;]*?\}\s*,\s*|\bargs\.number = (\d{3,5});[^}]*?Report\(\s*args,\s*")


def reports(source):
    """The same for the long form, whose severity is an error unless it says otherwise."""
    text = source.read_text(encoding="utf-8")
    for call in REPORT.finditer(text):
        literal = LITERALS.match(text, call.end())
        if not literal:
            continue
        severity = re.search(r"\.severity = (\w+)_SEV", text[text.rfind("Report", 0, call.start(0)):call.end()])
        pieces = re.findall(r'"((?:[^"\\]|\\.)*)"', literal.group())
        yield (int(call.group(1) or call.group(2)), severity.group(1).lower() if severity else "error",
               "".join(pieces), text.count("\n", 0, call.start()) + 1)


def all_messages():
    """The same for the whole library, with the file before the line."""
    for source in sorted((ROOT / "Src").rglob("*.cpp")) + sorted((ROOT / "Src").rglob("*.h")):
        for number, severity, text, line in list(messages(source)) + list(reports(source)):
            yield number, severity, text, str(source.relative_to(ROOT)), line


def cell(text):
    return "`" + text.replace('\\"', '"').replace("|", "\\|") + "`"


def main():
    texts = {}  # number: text: where it is raised
    for number, severity, text, file, line in all_messages():
        texts.setdefault(number, {}).setdefault(text, []).append((severity, file, line))
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


if __name__ == "__main__":
    sys.exit(main())
