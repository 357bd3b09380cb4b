#!/usr/bin/env python3
"""Writes the seeds of record_parser_fuzz into seeds/record_parser: records (docs/records.md), and
lines that nearly are some."""
import pathlib

FOLDER = pathlib.Path(__file__).parent / "seeds" / "record_parser"

STORED = (
    '{"version":"2.0","event":1001,"name":"USER_LOGIN","level":3,"time":"2026-11-15T17:02:56+08:00",'
    '"attributes":{"USER_NAME":"alice","PORT":51234},"types":{"USER_NAME":"MBChar64","PORT":"UInt2"},'
    '"message_index":0,"message":"alice came in by port 51234"}'
)

ORIGIN = (
    '"recorded":"2026-11-15T17:02:56.123456789+08:00","host":"h","recorder":"0f3a","pid":12,'
    '"thread":18446744073709551615,"sequence":1'
)

SEEDS = {
    "origin": STORED.replace('"attributes"', ORIGIN + ',"attributes"'),
    "origin_alone": '{"event":1,' + ORIGIN + "}",
    "origin_wrong": '{"event":1,"recorded":"2026-11-15T17:02:56.1234567890Z"}',
    "lost": '{"event":0,"name":"kplog.lost","attributes":{"COUNT":17,"REASON":"full"}}',
    "stored": STORED,
    "stored_cut": STORED[:-1],
    "smallest": '{"event":1}',
    "blanks": ' {\t"event" : "A" , "level" : 9 } \r',
    "values": '{"event":"A","attributes":{"A":true,"B":false,"C":null,"D":-0,"E":-1.5e+30,"F":""}}',
    "escapes": r'{"event":"\u00e9\ud83d\ude00\"\\\/\b\f\n\r\t","attributes":{"\u0041":"\u0000"}}',
    "characters": '{"event":"é日😀","attributes":{"日本":"é"}}',
    "huge_numbers": '{"event":1,"attributes":{"A":1e999,"B":123456789012345678901234567890}}',
    "huge_number_then_fault": '{"event":1,"attributes":{"A":1e999 1}}',
    "nested": '{"event":{"event":[{}]},"attributes":[[[[[[]]]]]]}',
    "deep": '{"event":' + "[" * 3000,
    "duplicate_key": '{"event":1,"\\u0065vent":1}',
    "duplicate_attribute": '{"event":1,"attributes":{"A":1,"A":2}}',
    "unknown_key": '{"event":1,"evnet":1}',
    "no_event": '{"level":1}',
    "array": '["event",1]',
    "text_behind": '{"event":1} {"event":1}',
    "comma": '{"event":1,}',
    "no_colon": '{"event" 1}',
    "literal": '{"event":tru}',
    "lone_surrogate": '{"event":"\\ud800"}',
    "unclosed": '{"event":"A',
    "control": '{"event":"a\tb"}',
    "nul": '{"event":1\0}',
    "nul_behind": '{"event":1}\0\0x',
    "mark": '\ufeff{"event":1}',
    "empty": "",
    "many_attributes": '{"event":1,"attributes":{' + ",".join(f'"A{i}":{i}' for i in range(511)) + "}}",
    "not_utf8": b'{"event":"\xff"}',
    "overlong": b'{"event":"\xc0\x80"}',
    "cut_character": b'{"event":"\xf0\x9f\x98',
}

FOLDER.mkdir(parents=True, exist_ok=True)
for name, text in SEEDS.items():
    (FOLDER / name).write_bytes(text if isinstance(text, bytes) else text.encode())
