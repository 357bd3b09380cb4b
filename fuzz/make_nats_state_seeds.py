#!/usr/bin/env python3
"""Writes the seeds of nats_state_fuzz into seeds/nats_state: how far journals are and what their
senders told, as JetStream keeps it beside records (engines/nats/state.h), and what nearly is that."""
import json
import pathlib

FOLDER = pathlib.Path(__file__).parent / "seeds" / "nats_state"

JOURNAL = {"host": "web1", "journal": "/var/log/shop/shop"}
POSITION = {
    **JOURNAL,
    "segment": "shop.20261115.0001.jsonl",
    "first": "af63f54c86021707",
    "lines": 40,
    "bytes": 4000,
    "last": 100,
    "digest": "0123456789abcdef",
    "records": 39,
    "newest": 1794733376,
    "created": 1794733376123456789,
    "sequence": 17,
    "id": "af63f54c86021707-1-0123456789abcdef-40-0123456789abcdef",
}
STATE = {**JOURNAL, "waiting_bytes": 1000, "given_up": 42, "exact": True}


def text(*members, **others):
    told = {}
    for one in members:
        told.update(one)
    told.update(others)
    told = {key: value for key, value in told.items() if value is not None}
    return json.dumps(told, separators=(",", ":")).encode()


SEEDS = {
    "position": text(POSITION),
    "state": text(STATE),
    "both": text(POSITION, STATE),
    "position_begin": text(POSITION, lines=0, bytes=0, last=0, records=0, newest=None, id=""),
    "position_negative_times": text(POSITION, newest=-1, created=-9223372036854775808),
    "position_huge": text(POSITION, lines=18446744073709551615, sequence=18446744073709551615),
    "position_beyond": text(POSITION).replace(b"4000", b"18446744073709551616"),
    "position_fraction": text(POSITION, lines=1.5),
    "position_text_number": text(POSITION, lines="40"),
    "position_short_digest": text(POSITION, digest="f"),
    "position_long_digest": text(POSITION, digest="0" * 17),
    "position_large_digest": text(POSITION, digest="F" * 16),
    "position_no_digest": text(POSITION, digest=""),
    "position_texts": text(POSITION, segment='a"\\\n\0é日😀', id="\u2028"),
    "position_bytes": text(POSITION, **{"segment": None, "segment%": "%FF%00"}),
    "state_exactly": text(STATE, exact=1),
    "state_least": text(JOURNAL),
    "state_bytes": text(STATE, **{"host": None, "host%": "%FFweb"}),
    "state_bytes_wrong": text(STATE, **{"host": None, "host%": "%fF%"}),
    "state_huge": text(STATE, waiting_bytes=18446744073709551615, given_up=-1),
    "no_object": b"[1]",
    "deep": b'{"host":' + b"[" * 2000,
    "twice": text(STATE).replace(b'"host"', b'"host":"a","host"'),
    "not_utf8": text(STATE).replace(b"web1", b"\xff"),
    "blanks": b" { \t" + text(STATE)[1:] + b"\r\n ",
    "text_behind": text(STATE) + b"{}",
    "empty": b"",
    **{f"position_no_{key}": text(POSITION, **{key: None}) for key in POSITION},
}

FOLDER.mkdir(parents=True, exist_ok=True)
for name, content in SEEDS.items():
    (FOLDER / name).write_bytes(content)
