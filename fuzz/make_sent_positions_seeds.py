#!/usr/bin/env python3
"""Writes the seeds of sent_positions_fuzz into seeds/sent_positions: a byte, and behind 0 the file
beside a journal that tells how far it was sent, without the end that has its check sum
(recording/journal/sent_positions.h), behind others notes of what was given up."""
import json
import pathlib

FOLDER = pathlib.Path(__file__).parent / "seeds" / "sent_positions"

SEGMENT = {
    "segment": "app.20261115.0001.jsonl",
    "first": 1234567890123456789,
    "lines": 40,
    "bytes": 4000,
    "last": 100,
    "digest": 18446744073709551615,
    "there": 4100,
}
STAMPED = {**SEGMENT, "segment": "app.20261115.0002.jsonl", "file": [64769, 17, 900, 1700000000, 5]}


def positions(segments, **members):
    told = {
        "journal_sent": 1,
        "to": "postgresql://db/fleet",
        "host": "web1",
        "given_up": 0,
        "given_up_exact": True,
        **members,
        "segments": segments,
    }
    return b"\0" + json.dumps(told, separators=(",", ":")).encode()[:-1]


def without(key):
    return {name: value for name, value in SEGMENT.items() if name != key}


SEEDS = {
    "nothing_sent": positions([]),
    "sent": positions([SEGMENT, STAMPED]),
    "twice": positions([SEGMENT, {**SEGMENT, "lines": 41}]),
    "given_up": positions([SEGMENT], given_up=42, given_up_exact=False),
    "counted": positions([], given_up=42, notes=[27, 18446744073709551615]),
    "notes_cut": positions([], notes=[27]),
    "notes_text": positions([], notes=["27", 1]),
    "notes_no_list": positions([], notes=1),
    "other_form": positions([], journal_sent=2),
    "other_texts": positions([{**SEGMENT, "segment": 'a"\\\n\u2028é日😀'}], host='"\u0000'),
    "negative": positions([{**SEGMENT, "lines": -1}]),
    "fraction": positions([{**SEGMENT, "bytes": 1.5}]),
    "huge": positions([SEGMENT]).replace(b"4000", b"18446744073709551616"),
    "file_cut": positions([{**STAMPED, "file": [1, 2, 3, 4]}]),
    "file_negative": positions([{**STAMPED, "file": [1, 2, 3, -4, -5]}]),
    "no_segments": positions(None),
    "segment_no_object": positions([[1]]),
    "truth": positions([], given_up_exact=1),
    "deep": positions([]) + b',"a":' + b"[" * 2000,
    "empty": b"\0",
    **{f"no_{key}": positions([without(key)]) for key in SEGMENT},
    "notes": b"\x80app.20261115.0001.jsonl 40 0\napp.20261115.0002.jsonl ?\n",
    "notes_once": b"\x01app.20261115.0001.jsonl 40 0\n",
    "notes_whole": b"\xffapp.20261115.0001.jsonl 40 0\n",
    "notes_twice": b"\x80app.20261115.0001.jsonl 40 0\napp.20261115.0001.jsonl 41 7\n",
    "notes_unended": b"\xc0app.20261115.0001.jsonl 40 0\napp.20261115.0002.jsonl 4 0",
    "notes_others": b"\x20other.20261115.0001.jsonl 40 0\napp.jsonl 1 0\n \n\n?\napp.20261115.0001.jsonl\n",
    "notes_numbers": b"\x50app.20261115.0001.jsonl -1 0\napp.20261115.0001.jsonl 18446744073709551616 0\napp.20261115.0001.jsonl 1\n",
    "notes_bytes": b"\x60\xff\0 1 2\napp.20261115.0003.jsonl  7 0\r\n",
    "notes_empty": b"\x01",
}

FOLDER.mkdir(parents=True, exist_ok=True)
for name, content in SEEDS.items():
    (FOLDER / name).write_bytes(content)
