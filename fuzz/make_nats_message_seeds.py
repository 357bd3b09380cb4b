#!/usr/bin/env python3
"""Writes the seeds of nats_message_fuzz into seeds/nats_message: messages in which records travel
(docs/shipping-nats.md), and what nearly are some."""
import json
import pathlib

FOLDER = pathlib.Path(__file__).parent / "seeds" / "nats_message"

RECORDS = b'{"event":1001}\n{"event":1002}\n{"event":1003}\n'


def message(lines, content=RECORDS, **members):
    head = {
        "kplog": 1,
        "host": "web1",
        "journal": "/var/log/shop/shop",
        "segment": "shop.20261115.0001.jsonl",
        "lines": lines,
        **members,
    }
    head = {key: value for key, value in head.items() if value is not None}
    return json.dumps(head, separators=(",", ":")).encode() + b"\n" + content


def part(number, last, content=b"\x28\xb5\x2f\xfd\x20\x01\x09\x00\x00x", lines="7", **members):
    of_part = {"digest": "af63f54c86021707", "part": number, "size": 1000, "last": last}
    return message(lines, content, **{**of_part, **members})


SEEDS = {
    "one": message("1", b'{"event":1001}\n'),
    "three": message("1-3"),
    "gaps": message("1,3,9"),
    "ranges": message("1-2,18446744073709551615"),
    "descending": message("3,2,1"),
    "repeated": message("2,2,2"),
    "last_lines": message("18446744073709551614-18446744073709551615"),
    "around_the_end": message("18446744073709551615,0"),
    "range_backwards": message("3-1"),
    "range_huge": message("1-18446744073709551615"),
    "range_many": message("1-1048576"),
    "ranges_too_many": message("1-1048576,1"),
    "range_open": message("1-"),
    "lines_empty": message(""),
    "lines_comma": message("1,,2"),
    "lines_negative": message("-1"),
    "fewer_records": message("1-9"),
    "more_records": message("1"),
    "record_without_end": message("1-3", RECORDS[:-1]),
    "no_records": message("1-3", b""),
    "records_empty": message("1-3", b"\n\n\n"),
    "host_bytes": message("1", **{"host": None, "host%": "%FF%00%61"}),
    "host_bytes_wrong": message("1", **{"host": None, "host%": "%F"}),
    "host_both": message("1", **{"host%": "%FF"}),
    "texts": message("1", journal='a"\\\n\0é日😀', segment=""),
    "part_first": part(0, False),
    "part_last": part(1, True),
    "part_huge": part(18446744073709551615, True, size=18446744073709551615),
    "part_empty": part(0, True, b""),
    "part_of_lines": part(0, True, lines="7-8"),
    "part_without_digest": part(0, True, digest=None),
    "part_short_digest": part(0, True, digest="af"),
    "part_other_digest": part(0, True, digest="AF63F54C86021707"),
    "part_no_hexadecimal": part(0, True, digest="0x63f54c86021707"),
    "part_without_size": part(0, True, size=None),
    "part_last_text": part(0, "true"),
    "other_form": message("1", kplog=2),
    "no_host": message("1", host=None),
    "no_journal": message("1", journal=None),
    "no_segment": message("1", segment=None),
    "no_lines": message(None),
    "head_alone": message("1", b"").rstrip(b"\n"),
    "head_no_object": b"[1]\n" + RECORDS,
    "head_deep": b'{"kplog":' + b"[" * 2000 + b"\n",
    "head_not_utf8": message("1").replace(b"web1", b"\xff"),
    "no_head": RECORDS,
    "empty": b"",
    "records_not_utf8": message("1-2", b"\xff\xfe\n\0\n"),
    "other_members": message("1", more={"a": [1, 2]}, event=1001),
    "duplicate_members": message("1").replace(b'"lines"', b'"lines":"2","lines"'),
}

FOLDER.mkdir(parents=True, exist_ok=True)
for name, content in SEEDS.items():
    (FOLDER / name).write_bytes(content)
