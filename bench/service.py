#!/usr/bin/env python3
"""Times kplog emit as a service, that clients send records to.

usage: service.py KPLOG [RUNS]

Four clients (kplog send) send 250,000 records each of a five-attribute event, and end when all are acknowledged. What
counts is what the service took of the processor, system calls included: with one thread, so that it is a rate
of one core; the quickest of several runs (3). Then a million records are read from a file with one thread, and with as many as the
machine has processors, and the time of the clock is told. The command fails when a goal is missed by more than the
runs scatter.
"""
import os
import subprocess
import sys
import tempfile
import time

from command_runs import ENVIRONMENT, compile_events, emit
from login_records import write_records

CLIENTS = 4
RECORDS = 1_000_000
OUTPUTS = [  # what is written, the options, and records a second and core that are the goal
    ("a text log", ["--to", "text:log/log,max-size=4G"], 500_000),
    ("the stored form", ["--to", "json:log/stored"], 600_000),
    ("both, and counted", ["--to", "text:log/log,max-size=4G", "--to", "json:log/stored", "--count", "log/count"], 350_000),
]


def wait_for_socket(path):
    deadline = time.monotonic() + 60
    while not os.path.exists(path):
        if time.monotonic() > deadline:
            sys.exit("the service does not listen")
        time.sleep(0.01)


def empty_log(folder):
    log = os.path.join(folder, "log")
    os.makedirs(log, exist_ok=True)
    for name in os.listdir(log):
        os.remove(os.path.join(log, name))


def lines_in(folder):
    """Of each file of records: all of them have as many."""
    counts = set()
    for name in os.listdir(os.path.join(folder, "log")):
        if name.startswith("log.2026") or name == "stored":
            with open(os.path.join(folder, "log", name), "rb") as file:
                counts.add(sum(piece.count(b"\n") for piece in iter(lambda: file.read(1 << 20), b"")))
    return counts


def seconds_of_service(kplog, folder, outputs):
    empty_log(folder)
    socket = os.path.join(folder, "sock")
    service = subprocess.Popen(emit(kplog, *outputs, "--threads", "0", "--listen", "unix:sock"), cwd=folder, env=ENVIRONMENT)
    wait_for_socket(socket)
    senders = [subprocess.Popen([kplog, "send", "--quiet", "--socket", "sock", f"part{i}"], cwd=folder)
               for i in range(CLIENTS)]
    if any([sender.wait() != 0 for sender in senders]):
        sys.exit("records were not acknowledged")
    service.terminate()
    _, status, usage = os.wait4(service.pid, 0)
    service.returncode = os.waitstatus_to_exitcode(status)
    if service.returncode != 0 or lines_in(folder) != {RECORDS}:
        sys.exit("the service has not written everything once")
    return usage.ru_utime + usage.ru_stime


def seconds_by_the_clock(kplog, folder, outputs, threads):
    empty_log(folder)
    begin = time.perf_counter()
    subprocess.run(emit(kplog, *outputs, *threads, "records"), cwd=folder, env=ENVIRONMENT, check=True)
    seconds = time.perf_counter() - begin
    if lines_in(folder) != {RECORDS}:
        sys.exit("not everything was written once")
    return seconds


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__.strip())
    kplog = os.path.abspath(sys.argv[1])
    runs = int(sys.argv[2]) if len(sys.argv) == 3 else 3
    is_missed = False
    with tempfile.TemporaryDirectory() as folder:
        compile_events(kplog, folder)
        write_records(os.path.join(folder, "records"), RECORDS)
        for i in range(CLIENTS):
            write_records(os.path.join(folder, f"part{i}"), RECORDS // CLIENTS)
        print(f"{RECORDS:,} records of {CLIENTS} clients, acknowledged; a second of one core")
        for what, outputs, goal in OUTPUTS:
            times = [seconds_of_service(kplog, folder, outputs) for _ in range(runs)]
            rate = RECORDS / min(times)
            is_missed = is_missed or rate * max(times) / min(times) < goal
            print(f"{what:20}{rate:10,.0f} records/s   at least {goal:,}   {'met' if rate >= goal else 'NOT MET'}")
        print(f"\n{RECORDS:,} records of a file, by the clock, {os.cpu_count()} processors")
        for what, outputs, _ in OUTPUTS:
            one, all_of_them = (min(seconds_by_the_clock(kplog, folder, outputs, threads) for _ in range(runs))
                                for threads in (["--threads", "0"], []))
            print(f"{what:20}{RECORDS / one:10,.0f} records/s by one thread, "
                  f"{RECORDS / all_of_them:10,.0f} by all: {one / all_of_them:.2f} times")
    return 1 if is_missed else 0


sys.exit(main())
