#!/usr/bin/env python3
"""Writes the seeds of record_joiner_fuzz into seeds/record_joiner: pieces of records as they arrive.
Each piece is a record, a number and what it is; of one that is not genuine its content follows."""
import pathlib
import random

FOLDER = pathlib.Path(__file__).parent / "seeds" / "record_joiner"

SMALL, LARGE, EMPTY, SINGLE = range(4)
FRAME = bytes.fromhex("28b52ffd0048190000616263")  # "abc"


def genuine(record, *numbers):
    return b"".join(bytes([record, number, 0, 0]) for number in numbers)


def other(record, number, content, last=False):
    return bytes([record, number, 3 if last else 1, len(content)]) + content


def shuffled(seed, count):
    numbers = list(range(count))
    random.Random(seed).shuffle(numbers)
    return numbers


SEEDS = {
    "in_order": genuine(SMALL, *range(12)),
    "backwards": genuine(SMALL, *range(11, -1, -1)),
    "twice": genuine(SMALL, *range(12)) * 2,
    "each_twice": b"".join(genuine(SMALL, number) * 2 for number in range(12)),
    "large": genuine(LARGE, *range(20)),
    "empty_record": genuine(EMPTY, *range(4)),
    "single": genuine(SINGLE, 0, 0),
    "one_missing": genuine(SMALL, *range(11)),
    "two_at_one_place": b"".join(genuine(SMALL, n) + genuine(LARGE, n) for n in range(12)),
    "all": b"".join(genuine(record, n) for n in range(12) for record in range(4)),
    "damaged": genuine(SMALL, 0, 1) + other(SMALL, 2, b"\0" * 8) + genuine(SMALL, *range(3, 12)),
    "frame_ends_early": other(SMALL, 0, FRAME) + genuine(SMALL, *range(1, 12)),
    "other_frame": other(SINGLE, 0, FRAME, last=True),
    "bytes_behind": other(SINGLE, 0, FRAME + b"x", last=True),
    "two_frames": other(SINGLE, 0, FRAME + FRAME, last=True),
    "empty_piece": other(SINGLE, 0, b"", last=True) + genuine(SINGLE, 0),
    "last_twice": other(SMALL, 3, b"x", last=True) + other(SMALL, 5, b"y", last=True),
    "beyond_the_last": other(SMALL, 255, b"x") + genuine(SMALL, *range(12)),
    "no_frame": other(SINGLE, 0, b"kplog", last=True),
    "skippable": other(SINGLE, 0, bytes.fromhex("502a4d180400000001020304") + FRAME, last=True),
    "window": other(SINGLE, 0, bytes.fromhex("28b52ffd00ff"), last=True),
    "cut": genuine(SMALL, 0, 1)[:-1],
    "empty": b"",
    **{f"shuffled_{seed}": genuine(SMALL, *shuffled(seed, 12)) for seed in range(10)},
    **{f"large_shuffled_{seed}": genuine(LARGE, *shuffled(seed, 20)) for seed in range(10)},
    **{
        f"mixed_{seed}": b"".join(
            genuine(random.Random(seed * 100 + i).randrange(4), i % 12) for i in range(100)
        )
        for seed in range(8)
    },
}

FOLDER.mkdir(parents=True, exist_ok=True)
for name, content in SEEDS.items():
    (FOLDER / name).write_bytes(content)
