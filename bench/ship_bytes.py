#!/usr/bin/env python3
"""Tells how many bytes a record takes: in a journal, in PostgreSQL, and in JetStream.

usage: ship_bytes.py KPLOG_SHIP [RECORDS]

kplog emit writes so many records (100,000) of fifty five-attribute events to a journal, all of one day that is done.
It is shipped to a database, where the index over attributes is then made as kplog makes it for such a day, and to
a stream of three replicas. What is counted is what the files of one segment, of the tables and their indexes,
and of the stream take on each of the servers.
"""
import datetime
import os
import subprocess
import sys
import tempfile

from command_runs import compile_events, ship, write_journal
from engine_servers import Cluster, Database
from login_records import source_of

KINDS = 50


def size_of(folder):
    return sum(os.path.getsize(os.path.join(place, name)) for place, _, names in os.walk(folder) for name in names)


def tell(what, size, count):
    print(f"{what:60}{size / count:6.0f} bytes a record")


def measure_database(kplog, folder, count):
    with tempfile.TemporaryDirectory() as server_folder:
        server = Database(server_folder)
        try:
            server.make(kplog, "fleet")
            subprocess.run(ship(kplog, server.address("fleet")), cwd=folder, check=True)
            size = "select sum(pg_total_relation_size(relid)) from pg_partition_tree('kplog.record')"
            tell("PostgreSQL: rows and the indexes that are live", int(server.sql("fleet", size)), count)
            server.sql("fleet", "update kplog.part set made = made - interval '1 day'")
            if server.sql("fleet", "select kplog.finish_day()",
                          "select count(*) from kplog.part where is_finished").split()[-1] != "1":
                sys.exit("the day was not finished")
            tell("PostgreSQL: with the index over attributes of days that are done", int(server.sql("fleet", size)), count)
        finally:
            server.end()


def measure_stream(kplog, folder, count):
    with tempfile.TemporaryDirectory() as servers:
        cluster = Cluster(servers)
        try:
            cluster.make(kplog)
            subprocess.run(ship(kplog, cluster.address, "--replicas", "3"), cwd=folder, check=True)
        finally:
            cluster.end()
        # One of the three may not have all of it yet.
        sizes = (size_of(os.path.join(servers, str(i), "jetstream", "$G", "streams", "KPLOG")) for i in range(3))
        tell("JetStream, for each replica", max(sizes), count)


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__.strip())
    kplog = os.path.abspath(sys.argv[1])
    count = int(sys.argv[2]) if len(sys.argv) == 3 else 100_000
    day = datetime.date.today() - datetime.timedelta(3)
    with tempfile.TemporaryDirectory() as folder:
        compile_events(kplog, folder, source_of(KINDS))
        write_journal(kplog, folder, count, kinds=KINDS, day=day.isoformat())
        tell("journal, as text", size_of(os.path.join(folder, "journal")), count)
        measure_database(kplog, folder, count)
        measure_stream(kplog, folder, count)


if __name__ == "__main__":
    main()
