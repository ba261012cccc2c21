#!/usr/bin/env python3
"""Reads a binary net file (.tala) that is not encrypted, and prints the net's text.

    read_tala.py FILE

Written from Docs/binary-format.md, with nothing but the standard library: it shows what another
program needs, and the tests hold the files that Talora writes against it.
"""
import re
import struct
import sys
import zlib

BLOCK_SIZE = 96
MAGIC = 0x70EACA50


class BadFile(ValueError):
    pass


def read_tala(data):
    """Bytes of a file; its text, and its readable section as a dictionary."""
    head = re.match(rb"// ~->\[TALA=(\d)\]->~ (\d+) (\d+)(?:\r\n|\r|\n)", data)
    if not head:
        raise BadFile("this is no binary net file")
    version, readable_length, line_size = map(int, head.groups())
    if version != 1:
        raise BadFile(f"version {version} of the format is not known")
    readable = data[head.end():head.end() + readable_length]
    fields = dict(re.findall(r'^// (\w+) = (?:"((?:[^"\\]|\\.)*)";)?', readable.decode(errors="replace"), re.M))
    letter = re.search(rb"^// encrypt = (.)", readable, re.M)
    fields["encrypt"] = letter.group(1).decode() if letter else "N"
    if fields["encrypt"] != "N":
        raise BadFile("the file is encrypted")

    at = head.end() + readable_length
    block = data[at:at + BLOCK_SIZE]
    if len(block) < BLOCK_SIZE:
        raise BadFile("the block header is cut off")
    block_version, reserved, magic, length, size, crc, member_size = struct.unpack_from("<IIQQQQQ", block)
    if block_version >= 1000 or magic != MAGIC or length != BLOCK_SIZE:
        raise BadFile("the block header is damaged")
    if reserved != 0 or any(block[48:]):
        raise BadFile("reserved bytes are not zero")
    if size != line_size:
        raise BadFile("the two sizes differ")

    member = data[at + BLOCK_SIZE:]
    if len(member) != member_size:
        raise BadFile("the gzip member is not as long as stated")
    gzip = zlib.decompressobj(wbits=16 + zlib.MAX_WBITS)  # checks the member's own size and checksum
    text = gzip.decompress(member, size + 1)
    if not gzip.eof or gzip.unused_data or len(text) != size or zlib.crc32(text) != crc:
        raise BadFile("the text is damaged")
    return text, fields


if __name__ == "__main__":
    try:
        with open(sys.argv[1], "rb") as file:
            sys.stdout.buffer.write(read_tala(file.read())[0])
    except (BadFile, zlib.error) as error:
        sys.exit(f"{sys.argv[1]}: {error}")
