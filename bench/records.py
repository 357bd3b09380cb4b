#!/usr/bin/env python3
"""Times kplog emit on records of a five-attribute event, beside a program that does less with spdlog.

usage: records.py KPLOG PEER [RUNS]

Both read the same JSON Lines with the same parser and write the same lines to a log. Each is run several
times (5), in turns, and the quickest run counts. Times are those of the processor.
"""
import os
import resource
import subprocess
import sys
import tempfile

FEW, MANY = 30_000, 300_000
TARGET = 150_000  # records a second

SOURCE = """kplog: 1
log_version: "2.0"
events:
  USER_LOGIN:
    id: 1001
    attributes:
      USER_NAME: MBChar64
      PORT: UInt2
      HOST: MBChar128
      ATTEMPTS: UInt4
      SECONDS: Float
    message: "User {USER_NAME} logged in from {HOST} on port {PORT} after {ATTEMPTS} attempts in {SECONDS} s"
"""


def write_records(path, count):
    with open(path, "w", encoding="utf-8") as records:
        for i in range(count):
            second = i // 200
            records.write(
                f'{{"event":"USER_LOGIN","level":3,'
                f'"time":"2026-11-15T{second // 3600:02}:{second // 60 % 60:02}:{second % 60:02}+00:00",'
                f'"attributes":{{"USER_NAME":"user{i * 7919 % 10007}","PORT":{i * 31 % 65536},'
                f'"HOST":"host{i * 17 % 997}.example.org","ATTEMPTS":{i % 9},'
                f'"SECONDS":{i * 37 % 10000 / 1000:.3f}}}}}\n')


def cost(command, folder):
    """Seconds of the processor, and the most memory in KiB."""
    child = subprocess.Popen(command, cwd=folder, env={**os.environ, "TZ": "UTC", "LC_ALL": "C"})
    _, status, usage = os.wait4(child.pid, 0)
    child.returncode = os.waitstatus_to_exitcode(status)
    if child.returncode != 0:
        sys.exit(f"{command[0]} ended with {child.returncode}")
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss


def emit(kplog, records, log):
    return [kplog, "emit", "--quiet", "--definitions", "events.ldf", "--locale", "en_US",
            "--to", f"text:{log},max-size=4G", records]


def same_lines(folder):
    with open(os.path.join(folder, "ours.20261115.0001"), encoding="utf-8") as ours, \
         open(os.path.join(folder, "peer.log"), encoding="utf-8") as peers:
        return sum(1 for a, b in zip(ours, peers) if a.split()[:-2] == b.split()[:-2])


def main():
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__.strip())
    kplog, peer = map(os.path.abspath, sys.argv[1:3])
    runs = int(sys.argv[3]) if len(sys.argv) == 4 else 5
    with tempfile.TemporaryDirectory() as folder:
        with open(os.path.join(folder, "events.yaml"), "w", encoding="utf-8") as source:
            source.write(SOURCE)
        subprocess.run([kplog, "compile", "-q", "events.yaml", "-o", "events.ldf"], cwd=folder, check=True)
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


main()
