#!/usr/bin/env python3
"""Writes the seeds of numbers_fuzz into seeds/numbers: each is a byte that chooses a kind of number, two that choose
a locale, and a number."""
import pathlib
import struct

FOLDER = pathlib.Path(__file__).parent / "seeds" / "numbers"

INTEGER, FLOATING, PERCENT = range(3)

DOUBLES = {
    "zero": 0.0, "minus_zero": -0.0, "half": 0.5, "tie_to_zero": 0.0005, "tie_to_even": 2.0015, "tie_down": 1.0005,
    "below_tie": 0.00049999999999999999, "third": 1 / 3, "price": 0.625, "percent_tie": 0.125, "carry": 9.9996,
    "carry_into_group": 999.9996, "groups": 1234567.891, "indian_groups": 98765432.1, "limit": 9999999999.9995,
    "beyond_limit": 1e14 + 0.5, "integers": 9007199254740991.0, "beyond_integers": 9007199254740992.0, "large": 1e21,
    "largest": 1.7976931348623157e308, "smallest": 5e-324, "nan": float("nan"), "infinity": float("inf"),
    "minus_infinity": float("-inf"),
}
INTEGERS = {"none": 0, "minus_one": -1, "nine": 9, "thousand": 1000, "ten_thousand": -10000, "million": 1234567,
            "most": 2**31 - 1, "least": -(2**31)}


def write(name, kind, locale, number):
    (FOLDER / name).write_bytes(bytes([kind]) + struct.pack(">H", locale) + number)


FOLDER.mkdir(parents=True, exist_ok=True)
for i, (name, value) in enumerate(DOUBLES.items()):
    for kind, word in ((FLOATING, "floating"), (PERCENT, "percent")):
        write(f"{word}_{name}", kind, 97 * i + 11 * kind, struct.pack("<d", value))
for i, (name, value) in enumerate(INTEGERS.items()):
    for kind, word in ((INTEGER, "integer"), (PERCENT, "percent_integer")):
        write(f"{word}_{name}", kind, 61 * i + 7 * kind, struct.pack("<i", value))
