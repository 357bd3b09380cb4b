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
import socket
import subprocess
import sys
import tempfile
import time

from login_records import SOURCE, write_records

RECORDS = 1_000_000
RATE_GOAL = 150_000  # records a second
MEMORY_GOAL = 64  # MiB
missed = []


def told(goal, is_met):
    if not is_met:
        missed.append(goal)
    return f"{goal}   {'met' if is_met else 'NOT MET'}"


def free_ports(count):
    sockets = [socket.socket() for _ in range(count)]
    for one in sockets:
        one.bind(("127.0.0.1", 0))
    ports = [one.getsockname()[1] for one in sockets]
    for one in sockets:
        one.close()
    return ports


class Cluster:
    def __init__(self, folder):
        ports = free_ports(6)
        routes = ", ".join(f'"nats://127.0.0.1:{port}"' for port in ports[3:])
        self.processes = []
        for i in range(3):
            settings = os.path.join(folder, f"{i}.conf")
            with open(settings, "w", encoding="ascii") as file:
                file.write(f'listen: "127.0.0.1:{ports[i]}"\nserver_name: server{i}\n'
                           f'jetstream {{ store_dir: "{folder}/{i}" }}\n'
                           f'cluster {{ name: kplog, listen: "127.0.0.1:{ports[3 + i]}", routes: [{routes}] }}\n')
            self.processes.append(subprocess.Popen(["nats-server", "-c", settings], stderr=subprocess.DEVNULL))
        self.servers = ",".join(f"nats://127.0.0.1:{port}" for port in ports[:3])
        self.address = "nats://" + ",".join(f"127.0.0.1:{port}" for port in ports[:3]) + "?tls=off"

    def end(self):
        for process in self.processes:
            process.kill()
            process.wait()


def timed(command, folder):
    """Seconds of the clock and of the processor, and MiB of memory."""
    measures = os.path.join(folder, "measures")
    subprocess.run(["time", "-f", "%e %U %S %M", "-o", measures, *command], cwd=folder, check=True)
    with open(measures, encoding="ascii") as file:
        clock, user, system, memory = (float(word) for word in file.read().split())
    return clock, user + system, memory / 1024


def time_shipping(kplog, plain, cluster, folder, runs):
    create = [kplog, "ship", "-q", "--create", "--replicas", "3", "--to", cluster.address]
    while (status := subprocess.run(create, cwd=folder, stderr=subprocess.DEVNULL, check=False).returncode) == 3:
        time.sleep(0.1)  # the servers choose who leads
    if status != 0:
        sys.exit("the streams cannot be made")
    lines = os.path.join(folder, "lines")
    with open(lines, "wb") as together:
        for segment in sorted(glob.glob(os.path.join(folder, "journal", "*.jsonl"))):
            with open(segment, "rb") as file:
                together.write(file.read())
    shipped, published = [], []
    for run in range(runs):
        shipped.append(timed([kplog, "ship", "-q", "journal/shop", "--definitions", "events.ldf", "--once",
                              "--replicas", "3", "--host", f"host{run}", "--to", cluster.address], folder))
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
        with open(os.path.join(folder, "events.yaml"), "w", encoding="utf-8") as source:
            source.write(SOURCE)
        subprocess.run([kplog, "compile", "-q", "events.yaml", "-o", "events.ldf"], cwd=folder, check=True)
        write_records(os.path.join(folder, "records"), RECORDS)
        os.mkdir(os.path.join(folder, "journal"))
        subprocess.run([kplog, "emit", "--quiet", "--definitions", "events.ldf", "--locale", "en_US", "--to",
                        "journal:journal/shop", "records"], cwd=folder, check=True)
        os.mkdir(os.path.join(folder, "servers"))
        cluster = Cluster(os.path.join(folder, "servers"))
        try:
            time_shipping(kplog, plain, cluster, folder, runs)
        finally:
            cluster.end()
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
