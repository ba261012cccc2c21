#!/usr/bin/env python3
"""Writes the pages of the manual that are derived from the code.

    Scripts/make-reference.py COMMAND            writes them
    Scripts/make-reference.py COMMAND --check    fails where one is out of date

COMMAND is the talora command that was built.  The pages are

    Docs/functions/*.md           from the comments of Include/Talora.h
    Docs/commands.md              from the command's own tables of options
    Docs/equation-functions.md    from the engine's table of functions and distributions
    Docs/keywords.md              from the tables of keywords in Src/BN/Files/NetFields.cpp, with the meanings
                                  that Docs/net-format.md gives; one that it does not give is an error
"""
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
DOCS = ROOT / "Docs"
WRITTEN = "<!-- Written by Scripts/make-reference.py; do not edit. -->\n"
RULE = re.compile(r"^/\* -{20,}\n((?: \*.*\n)+?) \* -{20,} \*/\n", re.M)
FUNCTION = re.compile(r"\b([A-Za-z]\w*_(?:vx|bn|cs))\b")
INTRODUCTION = """# Functions

The whole interface is one header, [Talora.h](../../Include/Talora.h); these pages are made from its
comments. What all functions have in common (errors, who owns what, threads) is on the page
[Programming with Talora](../interface.md).

"""


def slug(title):
    return re.sub(r"\W+", "-", title.lower()).strip("-")


class Section:
    """A part of the header: its title, the text below that, and what it declares."""

    def __init__(self, title, about, body):
        self.title, self.about, self.body = title, about, body
        self.file = slug(title) + ".md"
        self.names = re.findall(r"TALORA_API[^;(#]*?(\w+)\s*\(", body)


def sections(header):
    """The sections of the header; the first is what stands before the first rule."""
    marks = list(RULE.finditer(header))
    start = header.index("typedef struct environ_vx")
    found = [Section("Types and constants", "Handles are opaque. Enumerations are passed as `int`.",
                     header[start:marks[0].start()])]
    end = header.rindex("#ifdef __cplusplus")
    for mark, following in zip(marks, marks[1:] + [None]):
        text = re.sub(r"^ \* ?", "", mark[1], flags=re.M).strip()
        title, _, about = text.partition("\n")
        match = re.match(r"([^.:]+)[.:]\s+(.+)", title)
        if match:
            title, about = match[1], match[2] + "\n" + about
        title = title.rstrip(".")
        about = about.strip()
        found.append(Section(title, about[:1].upper() + about[1:],
                             header[mark.end():following.start() if following else end]))
    return found


def escaped(text):
    text = re.sub(r"([*<\[\]|])", r"\\\1", text)
    return re.sub(r"(?<!\w)_(?=\w)|(?<=\w)_(?!\w)", r"\\_", text)


class Reference:
    def __init__(self, header):
        self.sections = sections(header)
        self.places = {name: section.file for section in self.sections for name in section.names}

    def prose(self, text, file):
        """Text of a comment as Markdown, functions as links."""
        def link(match):
            name = match[1]
            if name not in self.places:
                return f"`{name}`"
            place = "" if self.places[name] == file else self.places[name]
            return f"[`{name}`]({place}#{name.lower()})"
        pieces = FUNCTION.split(re.sub(r"\s+", " ", text).strip())
        return "".join(link([None, piece]) if i % 2 else escaped(piece) for i, piece in enumerate(pieces))

    def comment(self, text, file):
        """A doc comment: what it says, then a row for each parameter, then what is returned."""
        text = re.sub(r"^\s*\*? ?", "", text.strip(), flags=re.M)
        parts = re.split(r"(?:^|(?<=\s))@(param|return)\b", text)
        lines, rows, after = [], [], []
        if parts[0].strip():
            lines.append(self.prose(parts[0], file) + "\n")
        for kind, content in zip(parts[1::2], parts[2::2]):
            # A parameter's text goes on in lines that are indented further, or in the midst of a sentence;
            # others are about the function.
            own, rest = [], []
            for line in content.split("\n"):
                goes_on = not own or line.startswith("  ") or (own[-1][-1:] not in ".:" and line[:1].islower())
                (own if goes_on and not rest else rest).append(line)
            if kind == "param":
                name, _, meaning = " ".join(own).strip().partition(" ")
                rows.append(f"- `{name}`: {self.prose(meaning, file)}\n")
            else:
                rows.append(f"- Returns {self.prose(' '.join(own), file)}\n")
            if " ".join(rest).strip():
                after.append(self.prose(" ".join(rest), file) + "\n")
        if rows:
            lines.append("".join(rows))
        return "\n".join(lines + after)

    def page(self, section):
        out = [WRITTEN, f"# {section.title}\n"]
        if section.about:
            out += [self.prose(part, section.file) + "\n" for part in section.about.split("\n\n")]
        if not section.names:
            out.append("```c\n" + section.body.strip() + "\n```\n")
            return "\n".join(out)
        self.items(section, out)
        return "\n".join(out)

    def items(self, section, out):
        token = re.compile(r"/\*\*(?!<)(.*?)\*/|^/\* ([^-].*?) \*/$|"
                           r"^((?:TALORA_API|typedef|enum)\b(?:[^;{]|\{[^}]*\})*;)(?:[ \t]*/\*\*<(.*?)\*/)?|(\n[ \t]*\n)",
                           re.S | re.M)
        comment, first = "", None
        for match in token.finditer(section.body):
            if match[1] is not None:
                comment, first = self.comment(match[1], section.file), None
            elif match[2]:
                out.append(f"**{match[2]}**\n")
            elif match[5]:
                comment, first = "", None
            elif match[3]:
                self.declaration(section, match[3], match[4], comment, first, out)
                if first is None and comment:
                    first = self.name(match[3])
                comment = ""

    @staticmethod
    def name(declaration):
        if declaration.startswith("TALORA_API"):
            return re.match(r"TALORA_API[^(]*?(\w+)\s*\(", declaration)[1]
        handler = re.search(r"\(\*(\w+)\)", declaration)
        return handler[1] if handler else (re.search(r"(\w+)\s*;$", declaration) or [None, None])[1]

    def declaration(self, section, text, remark, comment, first, out):
        name = self.name(text)
        if name:
            out.append(f"## {name}\n")
        out.append("```c\n" + re.sub(r"\n\s+", "\n    ", text.removeprefix("TALORA_API ")) + "\n```\n"
                   if not text.startswith(("enum", "typedef enum")) else "```c\n" + text + "\n```\n")
        if comment:
            out.append(comment)
        elif first:
            out.append(f"See [`{first}`](#{first.lower()}).\n")
        if remark:
            out.append(self.comment(remark, section.file))

    def pages(self):
        """All pages by file."""
        found = {section.file: self.page(section) for section in self.sections}
        index = [WRITTEN, INTRODUCTION]
        index.append("```{toctree}\n:hidden:\n\n" + "".join(f"{section.file}\n" for section in self.sections) + "```\n")
        for section in self.sections:
            index.append(f"## [{section.title}]({section.file})\n\n" + ", ".join(
                f"[{name}]({section.file}#{name.lower()})" for name in section.names) + "\n")
        found["index.md"] = "\n".join(index)
        for section in self.sections:
            for name in section.names:
                if f"## {name}\n" not in found[section.file]:
                    sys.exit(f"the comment of {name} in Include/Talora.h was not understood")
        return {DOCS / "functions" / file: re.sub(r"\n{3,}", "\n\n", text) for file, text in found.items()}


def meanings():
    """What Docs/net-format.md says of each field: (net or node, keyword): meaning."""
    found, kind = {}, None
    for line in (DOCS / "net-format.md").read_text(encoding="utf-8").splitlines():
        if line.startswith("#"):
            kind = {"### Fields of the net": "net", "### Fields of a node": "node"}.get(line)
        elif kind and line.startswith("| `"):
            keywords, meaning = line.strip("| ").split(" | ", 1)
            for keyword in re.findall(r"`(\w+)`", keywords):
                found[kind, keyword] = meaning
    found.update({("node", name): text for (kind, name), text in list(found.items())
                  if kind == "net" and text != "as for the net" and found.get(("node", name)) == "as for the net"})
    return found


def keywords():
    source = (ROOT / "Src/BN/Files/NetFields.cpp").read_text(encoding="utf-8")
    told, rows = meanings(), []
    for kind, table in re.findall(r"const N(et|ode)FieldDef k\w+\[\w+\] = \{(.*?)^\};", source, re.S | re.M):
        kind = "n" + kind
        for keyword, rest in re.findall(r'\{"(\w+)",\s*(.*?)\},', table):
            reader, writer = [word.strip() for word in rest.split(",")][-2:]
            if reader == "nullptr" or keyword == "name":  # not read by a statement of its own
                continue
            meaning = told.get((kind, keyword))
            if meaning is None:
                sys.exit(f"Docs/net-format.md does not say what the field '{keyword}' of a {kind} is")
            meaning = meaning.replace("](#", "](net-format.md#")
            rows.append((keyword.lower(), kind, f"| `{keyword}` | {kind} | {'yes' if writer != 'nullptr' else 'no'} | {meaning} |\n"))
    return WRITTEN + ("# Keywords of net files\n\nEvery field that a net file may have, by name. All are read; "
                      "what is written, and how statements are put together, is described in "
                      "[net-format.md](net-format.md).\n\n| Keyword | Of | Written | Meaning |\n|---|---|---|---|\n"
                      + "".join(row for _, _, row in sorted(rows)))


def pages(command):
    found = Reference((ROOT / "Include" / "Talora.h").read_text(encoding="utf-8")).pages()
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([command, "--manual", folder], check=True)
        found[DOCS / "commands.md"] = (pathlib.Path(folder) / "commands.md").read_text(encoding="utf-8")
    found[DOCS / "equation-functions.md"] = subprocess.run([command, "calc", "--functions"], check=True,
                                                           capture_output=True, text=True).stdout
    found[DOCS / "keywords.md"] = keywords()
    return found


def main():
    arguments = [argument for argument in sys.argv[1:] if argument != "--check"]
    if len(arguments) != 1:
        sys.exit(__doc__)
    found = pages(str(pathlib.Path(arguments[0]).resolve()))
    stale = [path for path, text in found.items()
             if not path.exists() or path.read_text(encoding="utf-8").strip() != text.strip()]
    stale += [path for path in (DOCS / "functions").glob("*.md") if path not in found]
    if "--check" in sys.argv:
        for path in stale:
            print(f"{path.relative_to(ROOT)} is out of date: cmake --build build --target reference", file=sys.stderr)
        return 1 if stale else 0
    for path in stale:
        if path in found:
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(found[path].rstrip("\n") + "\n", encoding="utf-8")
        else:
            path.unlink()
    return 0


sys.exit(main())
