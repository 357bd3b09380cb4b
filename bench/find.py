#!/usr/bin/env python3
"""Times kplog render where few records are looked for, beside jq and grep on the same file.

usage: find.py KPLOG [RUNS]

kplog emit makes a million stored records of two events, as a file and as a journal whose segments are
compressed. For each condition kplog and grep are run several times (5), in turns, and jq, which takes
long, once; they must find the same records. The quickest run counts. Rates are of the processor's time,
decompression included, and of the clock's, which is less where several programs or threads share the
work. Then come the last ten of five million records, a journal of which most is skipped, memory, and what
it costs to write a journal. Takes 4 GB in the temporary folder.

The exit status is 1 where a goal is missed by more than the runs scatter.
"""
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

from command_runs import ENVIRONMENT, compile_events, emit, missed, told
from login_records import SOURCE as LOGIN_SOURCE

RECORDS = 1_000_000
COPIES = 5  # of all of them, in which the last are looked for
PLAIN_GOAL, COMPRESSED_GOAL = 1_500_000, 800_000  # records a second of one core
LAST_GOAL = 0.050  # seconds of the clock
SKIPPED_GOAL = 5  # times as quick as reading everything
MEMORY_GOAL = 1024  # KiB more for ten times the records

SOURCE = LOGIN_SOURCE + """  USER_LOGOUT:
    id: 1002
    attributes: {USER_NAME: MBChar64}
    message: "User {USER_NAME} logged out"
"""

# What is looked for; how kplog is asked, jq, and grep; whether the message has to be rendered.
CONDITIONS = [
    ("an event", ["--event", "USER_LOGOUT"], ".event==1002", ["-F", '"event":1002,'], False),
    ("a time", ["--since", "2026-11-15T01:23:19Z"], '.time>="2026-11-15T01:23:19"',
     ["-F", '"time":"2026-11-15T01:23:19'], False),
    ("a level", ["--level", "0"], ".level==0", ["-F", '"level":0,'], False),
    ("a number", ["--where", "PORT=7"], ".attributes.PORT==7", ["-F", '"PORT":7,'], False),
    ("a text", ["--where", "USER_NAME=user77"], '.attributes.USER_NAME=="user77"',
     ["-F", '"attributes":{"USER_NAME":"user77"'], False),
    ("an expression", ["--where", "USER_NAME~r99.7$"], '.attributes.USER_NAME|test("r99.7$")',
     ["-E", '"attributes":\\{"USER_NAME":"[^"]*r99.7"'], False),
    ("in the message", ["--grep", "^User user77 "], '.message|test("^User user77 ")',
     ["-F", '"message":"User user77 '], True),
]
class Run:
    """Costs of a command: seconds of the processor and of the clock; and what it wrote."""

    def __init__(self, command, folder):
        with open(os.path.join(folder, "out"), "w+b") as out:
            begin = time.perf_counter()
            child = subprocess.Popen(command, cwd=folder, env=ENVIRONMENT, stdout=out,
                                     shell=isinstance(command, str))
            _, status, usage = os.wait4(child.pid, 0)
            self.clock = time.perf_counter() - begin
            child.returncode = os.waitstatus_to_exitcode(status)
            if child.returncode != 0:
                sys.exit(f"{command} ended with {child.returncode}")
            out.seek(0)
            self.lines = out.read().splitlines()
        self.processor = usage.ru_utime + usage.ru_stime


class Runs:
    """Several runs of one command, of which the quickest counts."""

    def __init__(self):
        self.runs = []

    def add(self, run):
        self.runs.append(run)

    @property
    def processor(self):
        return min(run.processor for run in self.runs)

    @property
    def clock(self):
        return min(run.clock for run in self.runs)

    @property
    def lines(self):
        return self.runs[0].lines

    def scatter(self, what):
        times = [getattr(run, what) for run in self.runs]
        return statistics.median(times) / min(times)


def write_records(path):
    with open(path, "w", encoding="utf-8") as records:
        for i in range(RECORDS):
            second = i // 200
            level = 0 if i % 15013 == 3 else 2 + i % 5
            stamp = f"2026-11-15T{second // 3600:02}:{second // 60 % 60:02}:{second % 60:02}+00:00"
            begin = f'"level":{level},"time":"{stamp}","attributes":{{"USER_NAME":"user{i * 7919 % 10007}"'
            if i % 20011 == 7:
                records.write(f'{{"event":"USER_LOGOUT",{begin}}}}}\n')
                continue
            records.write(f'{{"event":"USER_LOGIN",{begin},"PORT":{i * 31 % 65536},'
                          f'"HOST":"host{i * 17 % 997}.example.org","ATTEMPTS":{i % 9},'
                          f'"SECONDS":{i * 37 % 10000 / 1000:.3f}}}}}\n')


def render(kplog, *arguments):
    return [kplog, "render", "--quiet", "--definitions", "events.ldf", "--locale", "en_US", *arguments]


def in_turns(runs, folder, *commands):
    all_runs = [Runs() for _ in commands]
    for _ in range(runs):
        for runs_of_one, command in zip(all_runs, commands):
            runs_of_one.add(Run(command, folder))
    return all_runs


def messages(lines):
    return [json.loads(line)["message"].encode() for line in lines]


def time_condition(kplog, folder, runs, condition, stored, read=None):
    """Of the records in `stored`; `read` writes them to the peers' standard input, where they cannot open them."""
    what, ours, jq, grep, is_rendered = condition
    quoted = " ".join("'" + word + "'" for word in grep)
    feed = f"{read} | " if read else ""
    file = "" if read else stored
    kplogs, greps = in_turns(runs, folder, render(kplog, *ours, stored), f"{feed}grep {quoted} {file}")
    jqs = Run(f"{feed}jq -c 'select({jq})' {file}", folder)
    found = kplogs.lines
    if not found or found != messages(greps.lines) or found != messages(jqs.lines):
        sys.exit(f"{what}: kplog, jq and grep do not find the same records")
    goal = COMPRESSED_GOAL if read else PLAIN_GOAL
    rate = RECORDS / kplogs.processor
    verdict = "" if is_rendered else told(f"at least {goal:,}", rate >= goal,
                                          rate * kplogs.scatter("processor") < goal)
    print(f"{what:15}{len(found):7,}{rate:13,.0f}{RECORDS / kplogs.clock:13,.0f}"
          f"{RECORDS / jqs.processor:13,.0f}{RECORDS / greps.processor:13,.0f}   {verdict}")


def time_conditions(kplog, folder, runs):
    print(f"{RECORDS:,} stored records, {os.path.getsize(os.path.join(folder, 'stored')) / RECORDS:.0f} bytes each; "
          "records a second of the processor, and of the clock")
    print(f"{'':15}{'found':>7}{'kplog':>13}{'by clock':>13}{'jq':>13}{'grep':>13}")
    for condition in CONDITIONS:
        time_condition(kplog, folder, runs, condition, "stored")
    print("\nthe same in a journal, compressed but for the last segment; jq and grep behind zstdcat")
    read = "(zstdcat journal/*.zst; cat journal/*.jsonl)"
    for condition in CONDITIONS[3:6]:
        time_condition(kplog, folder, runs, condition, "journal/shop", read)


def time_skipping(kplog, folder, runs):
    since = ["--since", "2026-11-15T01:23:19Z"]
    some, everything = in_turns(runs, folder, render(kplog, *since, "journal/shop"),
                                render(kplog, "--where", "PORT=7", "journal/shop"))
    ratio = everything.processor / some.processor
    scatter = some.scatter("processor") * everything.scatter("processor")
    print(f"\nthe last second of that journal, most segments skipped: {some.processor * 1000:.0f} ms, "
          f"{ratio:.1f} times as quick as all of it   "
          + told(f"at least {SKIPPED_GOAL}", ratio >= SKIPPED_GOAL, ratio * scatter < SKIPPED_GOAL))


def time_last(kplog, folder, runs):
    with open(os.path.join(folder, "large"), "wb") as large:
        for _ in range(COPIES):
            with open(os.path.join(folder, "stored"), "rb") as stored:
                shutil.copyfileobj(stored, large, 1 << 20)
    print(f"\nthe last 10 of {RECORDS * COPIES:,} records, by the clock")
    for what, condition in [("of all", []), ("of a fifth", ["--level", "3"]),
                            ("with a message", ["--grep", "logged in"])]:
        last = in_turns(runs, folder, render(kplog, "--last", "10", *condition, "large"))[0]
        if len(last.lines) != 10:
            sys.exit(f"{len(last.lines)} records are not the last 10")
        seconds = last.clock
        print(f"{what:15}{seconds * 1000:7.1f} ms   " +
              told(f"at most {LAST_GOAL * 1000:.0f} ms", seconds <= LAST_GOAL,
                   seconds > LAST_GOAL * last.scatter("clock")))
    os.remove(os.path.join(folder, "large"))


def memory(command, folder):
    """KiB. A child of this program would be counted from where it began, as a copy of that."""
    Run(["time", "-f", "%M", "-o", "memory", *command], folder)
    with open(os.path.join(folder, "memory"), encoding="ascii") as told_by_time:
        return int(told_by_time.read())


def measure_memory(kplog, folder):
    with open(os.path.join(folder, "stored"), "rb") as stored, open(os.path.join(folder, "tenth"), "wb") as tenth:
        for _ in range(RECORDS // 10):
            tenth.write(next(stored))
    print(f"\nmemory for {RECORDS // 10:,} records, and for {RECORDS:,}")
    for what, condition in [("some", ["--where", "PORT=7"]), ("the last 10", ["--last", "10", "--where", "PORT=7"])]:
        little, much = (memory(render(kplog, *condition, file), folder) for file in ("tenth", "stored"))
        print(f"{what:15}{little / 1024:5.1f} MiB, {much / 1024:5.1f} MiB   " +
              told(f"at most {MEMORY_GOAL / 1024:.0f} MiB more", much - little <= MEMORY_GOAL,
                   much - little > MEMORY_GOAL))


def time_writing(kplog, folder, runs):
    outputs = [("json:", "json:written/shop"), ("journal:", "journal:written/shop"),
               ("max-size=16M", "journal:written/shop,max-size=16M"),
               ("compress=zstd", "journal:written/shop,max-size=16M,compress=zstd")]
    costs = [Runs() for _ in outputs]
    sizes = {}
    for _ in range(runs):
        for (_, output), runs_of_one in zip(outputs, costs):
            os.mkdir(os.path.join(folder, "written"))
            runs_of_one.add(Run(emit(kplog, "--to", output, "records"), folder))
            sizes[output] = sum(entry.stat().st_size for entry in os.scandir(os.path.join(folder, "written")))
            shutil.rmtree(os.path.join(folder, "written"))
    print(f"\n{RECORDS:,} records written; records a second of the processor, and of the clock")
    for (what, output), cost in zip(outputs, costs):
        print(f"{what:15}{RECORDS / cost.processor:13,.0f}{RECORDS / cost.clock:13,.0f}"
              f"{sizes[output] / RECORDS:9.0f} bytes each{costs[0].processor / cost.processor:8.2f} of the rate of json")


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__.strip())
    kplog = os.path.abspath(sys.argv[1])
    runs = int(sys.argv[2]) if len(sys.argv) == 3 else 5
    with tempfile.TemporaryDirectory() as folder:
        compile_events(kplog, folder, SOURCE)
        write_records(os.path.join(folder, "records"))
        os.mkdir(os.path.join(folder, "journal"))
        for to in ("json:stored", "journal:journal/shop,max-size=16M,compress=zstd"):
            Run(emit(kplog, "--to", to, "records"), folder)
        time_conditions(kplog, folder, runs)
        time_skipping(kplog, folder, runs)
        time_last(kplog, folder, runs)
        measure_memory(kplog, folder)
        time_writing(kplog, folder, max(1, runs // 2))
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
