#!/usr/bin/env python3
"""Times kplog ship to JetStream beside plain asynchronous publishing of the same lines.

usage: ship_nats.py KPLOG_SHIP PLAIN_NATS [RUNS]

kplog emit writes a million records of a five-attribute event to a journal. Three servers are started in a
temporary folder, as a cluster on loopback. In turns and several times (3), the journal is shipped to a
stream of three replicas, and its lines are published by plain_nats, 64 a message, to a subject of the same
stream. The quickest run counts; rates are of the clock, from a command's start to its end, with that of the
servers on the same processors.

The exit status is 1 where a goal is missed.
"""
import glob
import os
import sys
import tempfile

from command_runs import compile_events, missed, ship, timed, told, write_journal
from engine_servers import Cluster

RECORDS = 1_000_000
RATE_GOAL = 150_000  # records a second
MEMORY_GOAL = 64  # MiB


def time_shipping(kplog, plain, cluster, folder, runs):
    cluster.make(kplog)
    lines = os.path.join(folder, "lines")
    with open(lines, "wb") as together:
        for segment in sorted(glob.glob(os.path.join(folder, "journal", "*.jsonl"))):
            with open(segment, "rb") as file:
                together.write(file.read())
    shipped, published = [], []
    for run in range(runs):
        shipped.append(timed(ship(kplog, cluster.address, "--replicas", "3", "--host", f"host{run}"), folder))
        published.append(timed([plain, cluster.servers, "kplog.plain.1001.3", lines], folder))
    clock, processor = (min(run[i] for run in shipped) for i in range(2))
    memory = max(run[2] for run in shipped)
    plain_clock = min(run[0] for run in published)
    size = os.path.getsize(lines) / RECORDS
    print(f"{'kplog ship':17}{RECORDS / clock:10,.0f} records a second, of {size:.0f} bytes   " +
          told(f"at least {RATE_GOAL:,}", RECORDS / clock >= RATE_GOAL))
    print(f"{'plain publishing':17}{RECORDS / plain_clock:10,.0f}, of which kplog has {plain_clock / clock:.2f}")
    print(f"{'kplog itself':17}{processor / RECORDS * 1e6:10.1f} microseconds a record, {memory:.0f} MiB   " +
          told(f"at most {MEMORY_GOAL} MiB", memory <= MEMORY_GOAL))


def main():
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__.strip())
    kplog, plain = (os.path.abspath(name) for name in sys.argv[1:3])
    runs = int(sys.argv[3]) if len(sys.argv) == 4 else 3
    with tempfile.TemporaryDirectory() as folder:
        compile_events(kplog, folder)
        write_journal(kplog, folder, RECORDS)
        os.mkdir(os.path.join(folder, "servers"))
        cluster = Cluster(os.path.join(folder, "servers"))
        try:
            time_shipping(kplog, plain, cluster, folder, runs)
        finally:
            cluster.end()
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
