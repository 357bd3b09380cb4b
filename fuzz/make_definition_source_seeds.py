#!/usr/bin/env python3
"""Writes the seeds of definition_source_fuzz into seeds/definition_source: small sources, sound ones
and ones with faults (docs/definition-source.md)."""
import pathlib

FOLDER = pathlib.Path(__file__).parent / "seeds" / "definition_source"

HEAD = 'kplog: 1\nlog_version: "1.0"\n'
EVENT = HEAD + "events:\n  E:\n    id: 1\n"

SEEDS = {
    "empty": "",
    "comment": "# nothing\n",
    "head": HEAD,
    "file_keys": HEAD + "renderer: bytes\ncode_pages: [UTF-8]\nflags: {F: 0x1, G: 2}\nids: [1-9]\n"
                        "retired: [7, 8-9]\nattributes: {S: UInt1, P: {type: Char32, note: n}}\n"
                        "silence: {no-message: s}\naccept: {event-removed/E: {since: 1, reason: a}}\n",
    "event_keys": EVENT + "    second_word: 7\n    flags: [DEBUG]\n    note: n\n"
                          "    attributes: {A: UInt1, B: {type: MBChar64, redirect: C}}\n"
                          "    select: A\n    message: {id: I, text: '{A} {B}'}\n"
                          "    messages:\n      - {index: 1, value: 2, raw: '%d%A%'}\n",
    "texts": EVENT + "    attributes: {A: UInt4, F: Float, T: Timestamp, B: Bool}\n"
                     "    message: \"{A}{F:currency} 100% {{it''s}} {T:date} {T:time} {B} '{F:percent}'\"\n",
    "folded": EVENT + "    attributes: {A: UInt1}\n    message: >-\n      one {A}\n      two {N}\n\n"
                      "        more\n      end\n",
    "literal": EVENT + "    message: |2+\n        one\n\n      {N}\n",
    "double_quotes": EVENT + '    message: "\\u00e4\\x41\\\n      \\ b\n\n      {N}\\L"\n',
    "single_quotes": EVENT + "    message: 'it''s\n      {N}'\n",
    "plain_lines": EVENT + "    message: one\n      two {N}\n",
    "open_quote": EVENT + '    message: "one\n',
    "open_map": HEAD + "events: {E: {id: 1\n",
    "tab": HEAD + "events:\n\tE: {id: 1}\n",
    "nothing": HEAD + "flags:\nattributes:\nevents:\n  E:\n  F: {id: 2, flags: [, ~]}\nretired:\n -\n -\n",
    "keys": HEAD + "events:\n  E: {id: 1, id: 2}\n  E: {id: 3}\n  ? [a]\n  : {id: 4}\n  '': {id: 5}\n",
    "yaml_features": HEAD + "events:\n  E: &e {id: 1}\n  F: *e\n  G: {<<: *e}\n  H: !!map {id: ! \"x\"}\n",
    "documents": HEAD + "---\n" + HEAD,
    "numbers": HEAD + "events: {A: {id: 010}, B: {id: 0xg}, C: {id: -1}, D: {id: 4294967296}}\nretired: [9-1, 01-02]\n",
    "deep": HEAD + "retired: " + "[" * 70,
    "byte_order_mark": "\ufeff" + HEAD + "events: {日本: {id: 1, message: größer}}\r\n",
}

FOLDER.mkdir(parents=True, exist_ok=True)
for name, text in SEEDS.items():
    (FOLDER / name).write_bytes(text.encode())
for name, data in {"not_utf8": b"kplog: 1 # \xff\n", "control": b"kplog: 1 # \x1b\n"}.items():
    (FOLDER / name).write_bytes(data)
