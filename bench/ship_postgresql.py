#!/usr/bin/env python3
"""Times kplog ship to PostgreSQL beside plain COPY into the same tables, and questions of ten million records.

usage: ship_postgresql.py KPLOG_SHIP [RUNS [--find]]

kplog emit writes a million records of a five-attribute event to a journal. A server is started in a
temporary folder; fsync is off, so that the disk of the machine does not count. In turns and several times
(3), the journal is shipped to a database, and what is there then is copied to another of the same schema by
COPY of its binary form: once with the index over attributes made afterwards, once live. The quickest run
counts; rates are of the clock. With --find, which takes 10 GB and some minutes, ten million records of a
hundred machines and twenty events are asked for those of one machine and event by kplog render.

The exit status is 1 where a goal is missed.
"""
import os
import select
import subprocess
import sys
import tempfile
import time

from command_runs import compile_events, missed, ship, timed, told, write_journal
from engine_servers import Database

RECORDS = 1_000_000
RATE_GOAL, LIVE_GOAL = 80_000, 30_000  # records a second
COPY_GOAL = 0.5  # of plain COPY
MEMORY_GOAL = 64  # MiB
FIRST_GOAL = 0.200  # seconds
LINES = 10_000  # of each of the hundred machines and ten days that are asked


def ship_and_copy(kplog, server, folder, options):
    """What it took to ship, and the seconds of plain COPY."""
    server.make(kplog, "shipped", *options)
    shipped = timed(ship(kplog, server.address("shipped")), folder)
    if (count := server.sql("shipped", "select count(*) from kplog.record")) != str(RECORDS):
        sys.exit(f"{count} records were shipped")
    rows = os.path.join(server.folder, "rows")
    server.sql("shipped", f"copy (select * from kplog.record) to '{rows}' (format binary)", "checkpoint")
    parts = server.sql("shipped", "select part from kplog.part where part < 'infinity'").split()
    server.make(kplog, "copied", *options)
    server.sql("copied", *(f"select kplog.make_part('{part}')" for part in parts), "checkpoint")
    begin = time.perf_counter()
    server.sql("copied", f"copy kplog.record from '{rows}' (format binary)")
    copied = time.perf_counter() - begin
    os.remove(rows)
    return shipped, copied


def time_shipping(kplog, server, folder, runs):
    for what, options, goal in (("index made later", [], RATE_GOAL), ("live index", ["--live-index"], LIVE_GOAL)):
        all_runs = [ship_and_copy(kplog, server, folder, options) for _ in range(runs)]
        clock = min(shipped[0] for shipped, _ in all_runs)
        processor = min(shipped[1] for shipped, _ in all_runs)
        memory = max(shipped[2] for shipped, _ in all_runs)
        copied = min(copied for _, copied in all_runs)
        print(f"{what:17}{RECORDS / clock:10,.0f} records a second   " +
              told(f"at least {goal:,}", RECORDS / clock >= goal))
        print(f"{'plain COPY':17}{RECORDS / copied:10,.0f}, of which kplog has {copied / clock:.2f}   " +
              told(f"at least {COPY_GOAL}", copied / clock >= COPY_GOAL))
        print(f"{'kplog itself':17}{processor / RECORDS * 1e6:10.1f} microseconds a record, {memory:.0f} MiB   " +
              told(f"at most {MEMORY_GOAL} MiB", memory <= MEMORY_GOAL))


FILL = """
insert into kplog.journal (tenant, host, journal)
  select 'default', 'host' || h, '/var/log/shop/shop' from generate_series(1, 100) h;
insert into kplog.segment (tenant, host, journal, name, first, day, part, lines, top, records, batches, events, kits)
  select 'default', 'host' || h, '/var/log/shop/shop', 'shop.' || to_char(d, 'YYYYMMDD') || '.0001.jsonl', 1, d, d,
    LINES, LINES, LINES, 1, array[1001] || array(select generate_series(982, 1000)), array['KIT']
  from generate_series(1, 100) h, generate_series(1, 10) n, lateral (select current_date - n as d) d;
"""


def first_line(command, folder):
    begin = time.perf_counter()
    with subprocess.Popen(command, cwd=folder, stdout=subprocess.PIPE) as child:
        select.select([child.stdout], [], [])
        line = child.stdout.readline()
        seconds = time.perf_counter() - begin
        rest = child.stdout.read().count(b"\n")
    return seconds, (1 if line else 0) + rest


def time_finding(kplog, server, folder, runs):
    """One record that was shipped, as many of others as are wanted."""
    server.sql("shipped", "truncate kplog.record", "update kplog.segment set is_pruned = true",
               *(f"select kplog.make_part(current_date - {n})" for n in range(1, 11)))
    kits = server.sql("shipped", "select kits[1] from kplog.segment limit 1")
    fill = FILL.replace("KIT", kits).replace("LINES", str(LINES))
    server.sql("shipped", *(part for part in fill.split(";\n") if part.strip()))
    server.sql("shipped", f"""insert into kplog.record
      select s.id, n, n, s.day + n * interval '8 seconds', event, s.part, 1, 3, s.tenant, s.host,
        format('{{"version":"2.0","event":%s,"name":"%s","level":3,"time":"%sT00:00:00Z","attributes":{{"USER_NAME":'
          '"user%s","PORT":%s,"HOST":"a host","ATTEMPTS":1,"SECONDS":1.5}},"types":{{"USER_NAME":"MBChar64",'
          '"PORT":"UInt2","HOST":"MBChar128","ATTEMPTS":"UInt4","SECONDS":"Float"}},"message_index":0,'
          '"message":"User user%s"}}', event, case when event = 1001 then 'USER_LOGIN' else 'OTHER' end, s.day, n, n, n)
      from kplog.segment s, generate_series(1, {LINES}) n, lateral (select 982 + n % 20 as event) e
      where not s.is_pruned""", "vacuum analyze")
    count = server.sql("shipped", "select count(*) from kplog.record")
    times = []
    for _ in range(runs):
        seconds, found = first_line([kplog, "render", "-q", server.address("shipped"), "--host", "host77",
                                     "--event", "USER_LOGIN", "--locale", "en_US"], folder)
        if found != LINES * 10 // 20:
            sys.exit(f"{found} records are found")
        times.append(seconds)
    print(f"\nthe first of {LINES * 10 // 20:,} records of one machine and event, of {int(count):,} records: "
          f"{min(times) * 1000:.0f} ms   " +
          told(f"at most {FIRST_GOAL * 1000:.0f} ms", min(times) <= FIRST_GOAL))


def main():
    arguments = [argument for argument in sys.argv[1:] if argument != "--find"]
    if len(arguments) not in (1, 2):
        sys.exit(__doc__.strip())
    kplog = os.path.abspath(arguments[0])
    runs = int(arguments[1]) if len(arguments) == 2 else 3
    with tempfile.TemporaryDirectory() as folder, tempfile.TemporaryDirectory() as server_folder:
        compile_events(kplog, folder)
        write_journal(kplog, folder, RECORDS)
        server = Database(server_folder)
        try:
            time_shipping(kplog, server, folder, runs)
            if "--find" in sys.argv:
                time_finding(kplog, server, folder, runs)
        finally:
            server.end()
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
