#!/usr/bin/env python3
"""Counts the instructions of one operation with callgrind, and prints each beside its goal and its peers.

usage: instructions.py PROGRAM RECORDED [--record | --markdown | --only OPERATION...]

Other programs on the machine do not disturb a count. RECORDED is a file of what operations took when they
were last recorded. A goal that was met then and is missed by more than 3 % now gives exit status 1; other
operations that take over 3 % more than then are told. --record writes the file anew; --markdown
prints the table as the page on benchmarks has it; --only counts these operations and no others.
"""
import concurrent.futures
import datetime
import json
import os
import re
import subprocess
import sys

TIMES = 500
ALLOWED = 1.03  # what a count may grow by, unnoticed


class Row:
    """What is done, the operation that does it, its goal, and (peer, operation) of the same work.

    An operation is a name, or two: what the first takes beyond the second. A goal is a number, or a factor and an
    operation: so many times what that one takes.
    """

    def __init__(self, what, operation, goal=None, peers=()):
        self.what, self.operation, self.goal, self.peers = what, operation, goal, peers


ROWS = [
    Row("whole event, localised", "event", 2500,
        [("ICU's MessageFormat, kept", "icu_event"), ("made anew", "icu_event_anew")]),
    Row("its date and time as well", ("event_dated", "event"), 600,
        [("ICU's MessageFormat, kept", ("icu_event_dated", "icu_event"))]),
    Row("whole event, bytes", "event_bytes", 2200,
        [("fmt, named arguments", "fmt_named_event"), ("snprintf", "snprintf_event")]),
    Row("make and five adds", "make_and_add", 1200,
        [("checked unordered_map", "map_event"), ("checked flat_hash_map", "flat_map_event"),
         ("Protocol Buffers, reflection", "reflected_event")]),
    Row("the same by a generated class", "make_and_add_keyed", 800),
    Row("make", "make", 400),
    Row("make, more kinds than the cache", "make_beyond_cache", (2, "make")),
    Row("copy", "copy", None, [("unordered_map", "copy_map_event")]),
    Row("move, and back", "move"),
    Row("render, localised", "render", 1300, [("ICU's MessageFormat, kept", "icu_render")]),
    Row("render, bytes", "render_bytes", 900,
        [("snprintf", "snprintf_render"), ("fmt at run time", "fmt_render"),
         ("fmt, compiled", "fmt_compiled_render")]),
    Row("find a definition among 128", "find_entry", 100,
        [("scan under a lock", "scan_find"), ("unordered_map", "hash_find")]),
    Row("find one of 255 attributes", "find_attribute"),
    Row("find one of 255 global ones", "find_global_attribute"),
    Row("reject", "reject", 60, [("spdlog, below its level", "spdlog_reject")]),
    Row("reject, by a settings file", "reject_configured", 60),
    Row("asked before: reject", "filter_rejects", 60, [("spdlog, below its level", "spdlog_reject")]),
    Row("asked before: reject, settings file", "filter_rejects_settings", 60),
    Row("asked before: accept, settings file", "filter_accepts_settings"),
    Row("record an event in the own process", "record", 300),
    Row("record an entry", "record_entry", 400),
    Row("a recorder rejects", "record_rejected", 60),
    Row("a line of a text log", "text_line", 800),
    Row("a stored line", "stored_line"),
    Row("a stored line that tells its origin", "stored_line_with_origin", 1000),
    Row("a recorded event into a text log", "write_text"),
    Row("a recorded event into the stored form", "write_stored"),
    Row("a recorded event into both, and counted", "write_all"),
]


def names_in(operation):
    return list(operation) if isinstance(operation, tuple) else [operation]


def taken(operation, counts):
    """What an operation takes by these counts; None when one is missing."""
    if any(counts.get(name) is None for name in names_in(operation)):
        return None
    first, *others = [counts[name] for name in names_in(operation)]
    return first - sum(others)


def goal_of(row, counts):
    if not isinstance(row.goal, tuple):
        return row.goal
    factor, operation = row.goal
    base = taken(operation, counts)
    return None if base is None else factor * base


def keeps_goal(row, counts):
    count, goal = taken(row.operation, counts), goal_of(row, counts)
    return count is not None and goal is not None and count <= goal


def judge(row, counts, recorded):
    """In words how a count stands to goal and record, and whether that is a failure."""
    count, goal, before = taken(row.operation, counts), goal_of(row, counts), taken(row.operation, recorded)
    words = "" if goal is None else "met" if count <= goal else "NOT MET"
    fails = goal is not None and keeps_goal(row, recorded) and count > ALLOWED * goal
    if fails or (before is not None and count > ALLOWED * before):
        words += f"{' ' if words else ''}(was {before:,.0f})"
    return words, fails


# --- Counting


def count_some(program, operations):
    """What each operation takes, by one run of the program, which does each in a process of its own."""
    run = subprocess.run(
        ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null", "--toggle-collect=*counted_loop<*",
         program, "--each", str(TIMES), *operations], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if run.returncode != 0:
        sys.exit(f"instructions.py: the program failed:\n{run.stderr}")
    total_of = dict(re.findall(r"^==(\d+)== Collected : (\d+)", run.stderr, re.M))
    counts = {operation: int(total_of[process]) / int(times)
              for process, operation, times in map(str.split, run.stdout.splitlines()) if process in total_of}
    if set(counts) != set(operations):
        sys.exit(f"instructions.py: no count of {', '.join(set(operations) - set(counts))}:\n{run.stderr}")
    return counts


def count_all(program, operations):
    """The same, by as many runs at once as there are processors."""
    n = min(len(os.sched_getaffinity(0)), len(operations))
    with concurrent.futures.ThreadPoolExecutor(n) as pool:
        parts = pool.map(lambda i: count_some(program, operations[i::n]), range(n))
        return {operation: count for part in parts for operation, count in part.items()}


def operations_of(rows):
    """All that the rows speak of, each once."""
    operations = {}
    for row in rows:
        for operation in [row.operation, *(peer for _, peer in row.peers)]:
            operations.update(dict.fromkeys(names_in(operation)))
        if isinstance(row.goal, tuple):
            operations.update(dict.fromkeys(names_in(row.goal[1])))
    return list(operations)


# --- Telling


def table(rows, counts, recorded):
    lines = [("one operation", "instructions", "goal", "", "the same by others")]
    for row in rows:
        goal = goal_of(row, counts)
        lines.append((row.what, f"{taken(row.operation, counts):,.0f}", "" if goal is None else f"{goal:,.0f}",
                      judge(row, counts, recorded)[0],
                      ", ".join(f"{peer} {taken(operation, counts):,.0f}" for peer, operation in row.peers)))
    return lines


def print_table(lines):
    widths = [max(len(line[i]) for line in lines) for i in range(len(lines[0]))]
    for what, count, goal, words, peers in lines:
        print(f"{what:<{widths[0]}}  {count:>{widths[1]}}  {goal:>{widths[2]}}  {words:<{widths[3]}}  {peers}".rstrip())


def processor():
    with open("/proc/cpuinfo", encoding="utf-8") as info:
        found = re.search(r"^model name\s*:\s*(.+)$", info.read(), re.M)
    return found.group(1) if found else "unknown processor"


def print_markdown(lines, versions):
    print(f"{datetime.date.today()}, {processor()}, {versions}:\n")
    print("| one operation | instructions | goal | the same by others |\n|---|---:|---:|---|")
    for what, count, goal, _, peers in lines[1:]:
        print(f"| {what} | {count} | {goal} | {peers} |")


def record(path, rows, counts, versions):
    ours = {name: round(counts[name], 1) for row in rows for name in names_in(row.operation)}
    with open(path, "w", encoding="utf-8") as file:
        json.dump({"built with": versions, "instructions": ours}, file, indent=2)
        file.write("\n")


def report(rows, counts, recorded, versions):
    """Prints the table; 1 when a goal that was met is missed, else 0."""
    before = recorded["instructions"]
    print_table(table(rows, counts, before))
    missed = [row.what for row in rows if judge(row, counts, before)[1]]
    if not missed:
        return 0
    print(f"goals that were met, missed by more than {ALLOWED - 1:.0%}: {', '.join(missed)}")
    if versions != recorded["built with"]:
        print(f"recorded with {recorded['built with']}\nand built with {versions}")
    return 1


def main(arguments):
    options = ["--record", "--markdown", "--only"]
    if len(arguments) < 2 or (len(arguments) > 2 and arguments[2] not in options):
        sys.exit(__doc__.strip())
    program, path, option, *only = [*arguments, ""] if len(arguments) == 2 else arguments
    rows = [row for row in ROWS if not only or set(names_in(row.operation)) & set(only)]
    if not rows:
        sys.exit(f"instructions.py: operations are {', '.join(operations_of(ROWS))}")
    versions = subprocess.run([program, "--versions"], stdout=subprocess.PIPE, text=True, check=True).stdout.strip()
    counts = count_all(program, operations_of(rows))
    if option == "--markdown":
        print_markdown(table(rows, counts, {}), versions)
        return 0
    with open(path, encoding="utf-8") as file:
        status = report(rows, counts, json.load(file), versions)
    if option == "--record":
        record(path, rows, counts, versions)
        return 0
    return status


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
