#!/usr/bin/env python3
"""Writes the seeds of readers_fuzz into seeds/readers: each is a byte that chooses an item of a
definition file, and the item's bytes (docs/definition-format.md)."""
import pathlib
import struct

FOLDER = pathlib.Path(__file__).parent / "seeds" / "readers"

HEADER, STRING, FLAG, ATTRIBUTE, ENTRY, MESSAGE, MAPPING = range(7)


def int4(value):
    return struct.pack(">I", value)


def string(text):
    return int4(len(text) + 1) + text.encode() + b"\0" if text else int4(0)


PLAIN_HEADER = b".LDF" + bytes(12) + b"12.34567" + bytes(104)
PLAIN_ENTRY = int4(17) + int4(2) + int4(3) + string("M17") + string("text") + string("KIND")

SEEDS = {
    "header": (HEADER, PLAIN_HEADER),
    "header_cut": (HEADER, PLAIN_HEADER[:-1]),
    "header_cut_in_version": (HEADER, PLAIN_HEADER[:20]),
    "header_magic": (HEADER, b".LDG" + PLAIN_HEADER[4:]),
    "string": (STRING, string("paid by card")),
    "string_empty": (STRING, string("")),
    "string_inner_nul": (STRING, int4(4) + b"ab\0c!"),
    "string_without_nul": (STRING, int4(3) + b"abc"),
    "string_first_nul": (STRING, int4(6) + b"\0abcde"),
    "string_inline_room": (STRING, string("x" * 31) + b"!"),
    "string_past_inline_room": (STRING, string("x" * 32) + b"!"),
    "string_cut": (STRING, string("abc")[:-2]),
    "string_claims_all": (STRING, int4(0xFFFFFFFF) + b"abc"),
    "string_claims_a_step": (STRING, int4(65537) + b"abc"),
    "string_window": (STRING, string("x" * 4092) + b"!"),
    "string_step": (STRING, string("x" * 65536) + b"!"),
    "string_past_step_early_nul": (STRING, int4(70000) + b"ab\0" + b"x" * 69997 + b"!"),
    "flag": (FLAG, string("AUDIT") + int4(0x80000001)),
    "flag_cut": (FLAG, string("AUDIT") + b"\0\0"),
    "attribute": (ATTRIBUTE, string("PAYER") + int4(9) + string("WHO")),
    "attribute_wide_type": (ATTRIBUTE, string("A") + int4(0xABCDEF02) + string("")),
    "attribute_cut": (ATTRIBUTE, string("A") + int4(2) + b"\0\0"),
    "entry": (ENTRY, PLAIN_ENTRY + b"!"),
    "entry_cut_in_text": (ENTRY, PLAIN_ENTRY[:26]),
    "entry_cut_in_length": (ENTRY, PLAIN_ENTRY[:14]),
    "message": (MESSAGE, int4(1) + int4(2) + string("M1") + string("one")),
    "message_cut": (MESSAGE, int4(1) + int4(2) + string("M1") + b"\0"),
    "mapping": (MAPPING, int4(17) + int4(136)),
    "mapping_cut": (MAPPING, int4(17) + b"\0\0\0"),
}

FOLDER.mkdir(parents=True, exist_ok=True)
for name, (item, data) in SEEDS.items():
    (FOLDER / name).write_bytes(bytes([item]) + data)
