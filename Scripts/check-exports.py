#!/usr/bin/env python3
"""Holds the header and the library together: what Talora.h declares with TALORA_API is exported,
and nothing else is.

    Scripts/check-exports.py Include/Talora.h build/libtalora.so
"""
import re
import subprocess
import sys


def declared_names(header):
    text = re.sub(r"/\*.*?\*/|//[^\n]*", " ", open(header, encoding="utf-8").read(), flags=re.S)
    text = re.sub(r"^\s*#(?:.*\\\n)*.*$", " ", text, flags=re.M)
    return set(re.findall(r"\bTALORA_API\b[^;()]*?\b(\w+)\s*\(", text))


def exported_names(library):
    lines = subprocess.run(["nm", "-D", "--defined-only", library], check=True, capture_output=True,
                           text=True).stdout.splitlines()
    return {line.split()[-1].split("@")[0] for line in lines}


def main():
    header, library = sys.argv[1:]
    declared, exported = declared_names(header), exported_names(library)
    missing, extra = sorted(declared - exported), sorted(exported - declared)
    for name in missing:
        print(f"declared but not exported: {name}")
    for name in extra:
        print(f"exported but not declared: {name}")
    print(f"{len(declared)} functions declared, {len(exported)} names exported")
    return 1 if missing or extra or not declared else 0


sys.exit(main())
