#!/usr/bin/env python3
"""Writes the seeds of def_load_fuzz into seeds/def_load: each is the length of an STD file, that file,
and an AUX file that may be missing (docs/definition-format.md). The files alone, and some of the layout
that the tools know by their texts, become the seeds of definition_file_fuzz."""
import pathlib
import struct

FOLDER = pathlib.Path(__file__).parent / "seeds" / "def_load"
FILES_FOLDER = FOLDER.parent / "definition_file"


def int4(value):
    return struct.pack(">I", value)


def string(text):
    data = text.encode()
    return int4(len(data) + 1) + data + b"\0" if data else int4(0)


def attribute(name, code, redirection=""):
    return string(name) + int4(code) + string(redirection)


def entry(number, flags=0, message=("", ""), selector="", attributes=(), messages=()):
    return number, (int4(number) + int4(0) + int4(flags) + string(message[0]) + string(message[1]) +
                    string(selector) + int4(len(attributes)) + b"".join(attribute(*a) for a in attributes) +
                    int4(len(messages)) +
                    b"".join(int4(i) + int4(v) + string(m) + string(t) for i, v, m, t in messages))


def definition_file(entries=(), global_attributes=(), version=b"2.0"):
    section = b"".join(attribute(*a) for a in global_attributes)
    mapping_offset = 128 + len(section)
    offset = mapping_offset + 8 * len(entries)
    mapping = records = b""
    for number, record in entries:
        mapping += int4(number) + int4(offset)
        offset += len(record)
        records += record
    header = (b".LDF" + bytes(12) + version.ljust(8, b"\0") + bytes(16) + int4(len(global_attributes)) +
              int4(128) + int4(len(entries)) + int4(0) + int4(mapping_offset) + bytes(68))
    return header + section + mapping + records


def patched(data, offset, value):
    return data[:offset] + int4(value) + data[offset + 4:]


PLAIN = entry(1, 3, ("M1", "one"), attributes=[("A", 6), ("B", 9, "TO")])
CHOSEN = entry(2, 1, ("M2", "two"), "KIND", [("KIND", 2), ("TEXT", 15)],
               [(1, 1, "S1", "first"), (2, 2, "", "second")])
STD = definition_file([PLAIN, CHOSEN], [("G", 7), ("H", 23)])

SEEDS = {
    "empty_file": (b"", b""),
    "header_alone": (definition_file(), b""),
    "two_entries": (STD, b""),
    "aux_adds": (STD, definition_file([entry(3, attributes=[("ONLY", 24)])], version=b"3.0")),
    "aux_merges": (STD, definition_file([entry(2, 8, ("A2", "aux"), "KIND", [("KIND", 4), ("C", 1)],
                                               [(3, 3, "S3", "third")])])),
    "aux_selector_conflict": (STD, definition_file([entry(2, selector="OTHER", attributes=[("OTHER", 2)])])),
    "aux_name_conflict": (STD, definition_file([entry(1, attributes=[("A", 6)])])),
    "aux_message_conflict": (STD, definition_file([entry(2, messages=[(1, 9, "", "")])])),
    "aux_twice_one_id": (STD, definition_file([entry(4, attributes=[("X", 1)]), entry(4, attributes=[("Y", 1)])])),
    "aux_alone": (b"", definition_file([PLAIN])),
    "wrong_record": (patched(STD, 128 + 18 + 18 - 8, 5), b""),
    "many_globals_claimed": (patched(STD, 40, 0xFFFFFFFF), b""),
    "many_entries_claimed": (patched(STD, 48, 0xFFFFFFFF), b""),
    "mapping_in_header": (patched(STD, 56, 40), b""),
    "mapping_at_end": (patched(STD, 56, len(STD)), b""),
    "long_string_claimed": (definition_file([(1, int4(1) + bytes(8) + int4(0xFFFFFFFF))]), b""),
    "string_without_nul": (definition_file([(1, int4(1) + bytes(8) + int4(3) + b"abc" + bytes(16))]), b""),
    "string_with_inner_nul": (definition_file([(1, int4(1) + bytes(8) + int4(4) + b"a\0bc" + bytes(16))]), b""),
    "same_name_twice": (definition_file([entry(1, attributes=[("X", 1), ("X", 2)])]), b""),
    "selector_twice": (definition_file([entry(1, selector="X", attributes=[("X", 1), ("X", 2)])]), b""),
    "names_empty": (definition_file([entry(1, attributes=[("", 1)])], [("", 1)]), b""),
    "attributes_255": (definition_file([entry(1, attributes=[(f"A{i}", 1) for i in range(255)])]), b""),
    "attributes_256": (definition_file([entry(1, attributes=[(f"A{i}", 1) for i in range(256)])]), b""),
    "messages_256": (definition_file([entry(1, messages=[(i, i, "", "") for i in range(256)])]), b""),
    "cut_in_record": (STD[:-20], b""),
    "cut_in_mapping": (STD[:170], b""),
}

SHOWN = entry(1, 0x04000001, ("LOGIN", "%s%USER% at %d%PORT%"), "KIND",
              [("USER", 16), ("PORT", 4), ("KIND", 2), ("WHEN", 23)],
              [(1, 0, "LOGIN.1", "%s%USER%%z%TIMESTAMP%"), (2, 1, "OTHER", "''{0}''%D%WHEN%")])
FILES = {
    "texts": definition_file([SHOWN, entry(2, message=("LOGIN", "100 %%"))], [("SITE", 9)]),
    "selector_elsewhere": definition_file([entry(1, selector="KIND", messages=[(1, 1, "A", "a")])]),
    "events_overlap": definition_file([SHOWN, SHOWN]),
    "unused_tail": definition_file([SHOWN]) + b"tail",
    "raw_words": definition_file([SHOWN]).replace(bytes(12), bytes(range(12)), 1),
    "odd_names": definition_file([entry(1, message=("null", ""), attributes=[("a: b", 1), ("\u00e4\n", 2)])]),
    "long_version": definition_file([SHOWN], version=b"12345678"),
    "no_magic": b"kplog: 1\n",
    "magic_alone": b".LDF",
}

FOLDER.mkdir(parents=True, exist_ok=True)
for name, (std, aux) in SEEDS.items():
    (FOLDER / name).write_bytes(int4(len(std)) + std + aux)

FILES_FOLDER.mkdir(parents=True, exist_ok=True)
for name, data in {**{name: std for name, (std, _) in SEEDS.items() if std}, **FILES}.items():
    (FILES_FOLDER / name).write_bytes(data)
