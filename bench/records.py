#!/usr/bin/env python3
"""Times kplog emit on records of a five-attribute event, beside a program that does less with spdlog, and on bad ones.

usage: records.py KPLOG PEER [RUNS]

Both read the same JSON Lines with the same parser, by one thread, and write the same lines to a log. Each is run several
times (5), in turns, and the quickest run counts. Times are those of the processor. Bad records are held against
512 events of such attributes, among which the names that were meant are looked for, and good ones as well.

Then kplog emit alone takes records one by one, each acknowledged before the next one is sent, without a
counter and with counters of several sizes. Times are those of the clock: the quickest of the runs, which
take turns.
"""
import datetime
import os
import re
import struct
import subprocess
import sys
import tempfile
import time

from command_runs import ENVIRONMENT, compile_events
from login_records import source_of, write_records

FEW, MANY = 30_000, 300_000
TARGET = 150_000  # records a second
BAD = 100_000
BAD_TARGET = 2.0  # times the cost of a good record
EVENTS = 512
ONE_BY_ONE = 5_000
COUNTERS = (0, 365 * 100, 3650 * 100)  # records in the counter: none, a year and ten of 100 events
COUNTED_TARGET = 0.8  # of the rate without a counter

BAD_RECORDS = [  # what is bad, what is replaced, and by what
    ("no JSON", r"}}$", "}"),
    ("an unknown key", '"level"', '"levle"'),
    ("an unknown event", '"USER_LOGIN"', '"USER_LOGON"'),
    ("an unknown attribute", '"ATTEMPTS"', '"ATEMPTS"'),
    ("a number that is too large", '"PORT":[0-9]+', '"PORT":70000'),
    ("a text that is too long", '"USER_NAME":"', '"USER_NAME":"' + "x" * 64),
]


def write_bad_records(path, good, pattern, replacement):
    with open(good, encoding="utf-8") as records, open(path, "w", encoding="utf-8") as bad:
        for line in records:
            bad.write(re.sub(pattern, replacement, line, count=1))


def cost(command, folder, status_expected=0, **streams):
    """Seconds of the processor, and the most memory in KiB."""
    child = subprocess.Popen(command, cwd=folder, env=ENVIRONMENT, **streams)
    _, status, usage = os.wait4(child.pid, 0)
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != status_expected:
        sys.exit(f"{command[0]} ended with {child.returncode}")
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss


def emit(kplog, records, log, definitions="events.ldf"):
    return [kplog, "emit", "--quiet", "--threads", "0", "--definitions", definitions, "--locale", "en_US",
            "--to", f"text:{log},max-size=4G", records]


def same_lines(folder):
    with open(os.path.join(folder, "ours.20261115.0001"), encoding="utf-8") as ours, \
         open(os.path.join(folder, "peer.log"), encoding="utf-8") as peers:
        return sum(1 for a, b in zip(ours, peers) if a.split()[:-2] == b.split()[:-2])


def time_bad_records(kplog, folder, runs):
    """The cost of a bad record of each kind beside that of a good one."""
    with open(os.path.join(folder, "many.yaml"), "w", encoding="utf-8") as source:
        source.write(source_of(EVENTS))
    subprocess.run([kplog, "compile", "-q", "many.yaml", "-o", "many.ldf"], cwd=folder, check=True)
    good = os.path.join(folder, "good.jsonl")
    write_records(good, BAD)

    def seconds(records, status):
        command = emit(kplog, records, "bad", "many.ldf")
        return min(cost(command, folder, status, stderr=subprocess.DEVNULL)[0] for _ in range(runs))

    nothing = os.path.join(folder, "nothing.jsonl")
    write_records(nothing, 0)
    start = seconds(nothing, 0)
    one = seconds(good, 0) - start
    print(f"\n{BAD:,} bad records beside as many good ones, held against {EVENTS} events; a good one takes "
          f"{one / BAD * 1e6:.1f} us")
    for what, pattern, replacement in BAD_RECORDS:
        bad = os.path.join(folder, "bad.jsonl")
        write_bad_records(bad, good, pattern, replacement)
        ratio = (seconds(bad, 1) - start) / one
        print(f"{what:28}{ratio:6.2f} times a good one   at most {BAD_TARGET}   "
              f"{'met' if ratio <= BAD_TARGET else 'NOT MET'}")


def write_counter(path, records):
    """A counter of the days before those of the records, 100 events each."""
    last = datetime.date(2026, 11, 14)
    with open(path, "wb") as counter:
        for i in range(records):
            day = last - datetime.timedelta((records - 1 - i) // 100)
            counter.write(struct.pack(">6I8x", 32, day.year, day.month, day.day, 2000 + i % 100, 7))


def one_by_one(kplog, records, counter, folder):
    """Seconds for records that are acknowledged one by one."""
    command = [kplog, "emit", "--quiet", "--definitions", "events.ldf", "--locale", "en_US",
               "--to", "text:single,max-size=4G", "--ack"] + (["--count", counter] if counter else [])
    with subprocess.Popen(command, cwd=folder, env=ENVIRONMENT, bufsize=0,
                          stdin=subprocess.PIPE, stdout=subprocess.PIPE) as child:
        acknowledged = child.stdout.fileno()
        begin = 0
        for number, record in enumerate(records):
            if number == 1:  # the first one finds everything opened and read
                begin = time.perf_counter()
            child.stdin.write(record)
            if int(os.read(acknowledged, 64)) != number + 1:
                sys.exit("records were not acknowledged one by one")
        seconds = time.perf_counter() - begin
        child.stdin.close()
    if child.returncode != 0:
        sys.exit(f"{kplog} ended with {child.returncode}")
    return seconds


def time_counters(kplog, folder, runs):
    with open(os.path.join(folder, "few.jsonl"), "rb") as lines:
        records = [next(lines) for _ in range(ONE_BY_ONE + 1)]
    for size in COUNTERS:
        write_counter(os.path.join(folder, f"c{size}.cnt"), size)
    best = {}
    for _ in range(runs):
        for counter in [""] + [f"c{size}" for size in COUNTERS]:
            seconds = one_by_one(kplog, records, counter, folder)
            best[counter] = min(seconds, best.get(counter, seconds))
    print(f"\n{ONE_BY_ONE:,} records, each acknowledged before the next, to a text log")
    print(f"no counter                     {ONE_BY_ONE / best['']:10,.0f} records/s")
    for size in COUNTERS:
        share = best[""] / best[f"c{size}"]
        print(f"counter of {size:9,} records   {ONE_BY_ONE / best[f'c{size}']:10,.0f} records/s   "
              f"{share:.2f} of that, at least {COUNTED_TARGET}   {'met' if share >= COUNTED_TARGET else 'NOT MET'}")


def main():
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__.strip())
    kplog, peer = map(os.path.abspath, sys.argv[1:3])
    runs = int(sys.argv[3]) if len(sys.argv) == 4 else 5
    with tempfile.TemporaryDirectory() as folder:
        compile_events(kplog, folder)
        write_records(os.path.join(folder, "few.jsonl"), FEW)
        write_records(os.path.join(folder, "many.jsonl"), MANY)
        _, little = cost(emit(kplog, "few.jsonl", "few"), folder)
        ours, peers, much = [], [], 0
        for _ in range(runs):
            for name in ("ours.20261115.0001", "peer.log"):
                path = os.path.join(folder, name)
                if os.path.exists(path):
                    os.remove(path)
            seconds, much = cost(emit(kplog, "many.jsonl", "ours"), folder)
            ours.append(seconds)
            peers.append(cost([peer, "many.jsonl", "peer.log"], folder)[0])
        if same_lines(folder) != MANY:
            sys.exit("the two logs differ in more than their last number")
        rate = MANY / min(ours)
        print(f"{MANY:,} records of a five-attribute event, from a file to a text log")
        print(f"kplog emit        {rate:10,.0f} records/s   at least {TARGET:,}   "
              f"{'met' if rate >= TARGET else 'NOT MET'}")
        print(f"spdlog and fmt    {MANY / min(peers):10,.0f} records/s   "
              f"kplog emit takes {min(ours) / min(peers):.2f} times its time")
        print(f"memory            {little / 1024:.1f} MiB for {FEW:,} records, {much / 1024:.1f} MiB for {MANY:,}")
        time_bad_records(kplog, folder, runs)
        time_counters(kplog, folder, runs)


main()
