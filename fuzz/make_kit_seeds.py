#!/usr/bin/env python3
"""Writes the seeds of kit_fuzz into seeds/kit: definitions and catalogs as they travel with records
(tools/ship/kit.h), and what nearly is a kit."""
import json
import pathlib

FOLDER = pathlib.Path(__file__).parent / "seeds" / "kit"

# A catalog with one message, as `kplog catalog build` makes it of an event NOTE, "{TEXT}".
CATALOG = bytes.fromhex(
    "2000da27140000000000020052657342000000000104000000000000000000001500002007000000"
    "0d0000001700000017000000010000000000000015000000535452494e475f5441424c45004e4f54"
    "4500aaaa0000188a3a00200025007300250054004500580054002500000001002d00010001002000"
    "0d000050"
)


def kit(*files, **head):
    """Of files as (use, name, bytes)."""
    described = [{"use": use, "name": name, "size": len(content)} for use, name, content in files]
    line = json.dumps({"kplog_kit": 1, "files": described, **head}, separators=(",", ":"))
    return line.encode() + b"\n" + b"".join(content for _, _, content in files)


DEFINITIONS = ("definitions", "events.ldf", b".LDF, or what is called so")
AUX = ("aux", "aux.ldf", b"\n\0\xff")
GERMAN = ("catalog", "de.res", CATALOG)

SEEDS = {
    "definitions": kit(DEFINITIONS),
    "versions": kit(DEFINITIONS, ("definitions", "events.ldf", b"others"), ("definitions", "c", b"")),
    "aux": kit(DEFINITIONS, AUX),
    "aux_twice": kit(DEFINITIONS, AUX, ("aux", "b", b"2"), ("aux", "b", b"3")),
    "catalog": kit(DEFINITIONS, GERMAN, ("catalog", "ja.res", CATALOG)),
    "catalog_damaged": kit(DEFINITIONS, ("catalog", "de.res", CATALOG[:60])),
    "catalog_other_ending": kit(DEFINITIONS, GERMAN, ("catalog", "de.txt", b"")),
    "all": kit(DEFINITIONS, AUX, GERMAN),
    "nothing": kit(),
    "other_form": kit(DEFINITIONS, kplog_kit=2),
    "form_beyond": kit(DEFINITIONS).replace(b'"kplog_kit":1', b'"kplog_kit":1e300'),
    "more_members": kit(DEFINITIONS, more={"a": [[[[1]]]]}),
    "deep": b'{"kplog_kit":1,"files":' + b"[" * 500 + b"]" * 500 + b"}\n",
    "files_no_list": b'{"kplog_kit":1,"files":{"a":1}}\n',
    "no_files": b'{"kplog_kit":1}\n',
    "no_end": kit(DEFINITIONS).split(b"\n", maxsplit=1)[0],
    "cut": kit(DEFINITIONS, AUX)[:-2],
    "longer": kit(DEFINITIONS) + b"more",
    "size_negative": kit(DEFINITIONS).replace(b'"size":26', b'"size":-1'),
    "size_huge": kit(DEFINITIONS).replace(b'"size":26', b'"size":18446744073709551615'),
    "size_beyond": kit(DEFINITIONS).replace(b'"size":26', b'"size":108446744073709551307'),
    "size_fraction": kit(DEFINITIONS).replace(b'"size":26', b'"size":1.5'),
    "name_up": kit(("definitions", "..", b"")),
    "name_elsewhere": kit(("definitions", "../../elsewhere", b"")),
    "name_absolute": kit(("aux", "/tmp/elsewhere", b"")),
    "name_empty": kit(("definitions", "", b"")),
    "name_nul": kit(("definitions", "a\0b", b"")),
    "name_long": kit(("definitions", "n" * 255, b"x")),
    "name_too_long": kit(("definitions", "n" * 256, b"x")),
    "name_number": kit(DEFINITIONS).replace(b'"events.ldf"', b"1"),
    "name_surrogate": kit(("definitions", "\ud800", b"")),
    "use_unknown": kit(("other", "a", b"")),
    "no_json": b"kplog\n",
    "empty": b"",
}

FOLDER.mkdir(parents=True, exist_ok=True)
for name, content in SEEDS.items():
    (FOLDER / name).write_bytes(content)
