#!/usr/bin/env python3
"""Runs the benchmark program and prints each ratio beside its target.

usage: report.py PROGRAM [OPTION-OF-GOOGLE-BENCHMARK...]

Each benchmark is repeated and the repetitions of all are interleaved, so that a busy moment of the
machine does not fall on one side of a ratio alone; a ratio is one of medians.
"""
import json
import subprocess
import sys

# (what is done, our benchmark, the peer, its benchmark, target): the target is (kind, number), where
# "faster" wants peer time / our time of at least the number, and "within" wants our time / peer time of
# at most the number. None: told, without a target.
RATIOS = [
    ("make and fill an event", "entry_make_kplog",
     "checked unordered_map", "entry_make_unordered_map", ("faster", 1)),
    ("make and fill an event", "entry_make_kplog",
     "checked flat_hash_map", "entry_make_flat_hash_map", None),
    ("render through ICU, string", "render_icu_kplog_string",
     "MessageFormat per call", "render_icu_message_format_per_call", ("faster", 10)),
    ("render through ICU, string", "render_icu_kplog_string",
     "MessageFormat built once", "render_icu_message_format_once", ("faster", 1)),
    ("render through ICU, buffer", "render_icu_kplog_buffer",
     "MessageFormat per call", "render_icu_message_format_per_call", ("faster", 10)),
    ("render through ICU, buffer", "render_icu_kplog_buffer",
     "MessageFormat built once", "render_icu_message_format_once", ("faster", 1)),
    ("render bytes, string", "render_bytes_kplog_string",
     "snprintf per placeholder", "render_bytes_snprintf", ("faster", 1)),
    ("render bytes, string", "render_bytes_kplog_string",
     "fmt at run time", "render_bytes_fmt", None),
    ("render bytes, buffer", "render_bytes_kplog_buffer",
     "snprintf per placeholder", "render_bytes_snprintf", ("faster", 1)),
    ("render bytes, buffer", "render_bytes_kplog_buffer",
     "fmt at run time", "render_bytes_fmt", None),
    ("find_entry among 1", "find_entry_kplog/1",
     "rwlock read lock, unlock", "find_entry_rwlock", None),
    ("find_entry among 64", "find_entry_kplog/64",
     "rwlock read lock, unlock", "find_entry_rwlock", None),
    ("find_entry among 128", "find_entry_kplog/128",
     "rwlock read lock, unlock", "find_entry_rwlock", ("within", 2)),
    ("filtered-out debug line", "debug_line_kplog",
     "empty function, same arguments", "debug_line_empty_line", ("within", 3)),
    ("filtered-out debug line", "debug_line_kplog",
     "empty function, no arguments", "debug_line_empty_function", None),
    ("load 1,000 definitions", "load_kplog",
     "read the file's bytes", "load_fread", None),
    ("load and ask for each", "load_all_kplog",
     "the same as YAML", "load_all_yaml", None),
    ("filter by fields, rejected", "filter_rejects_kplog",
     "spdlog, below its level", "filter_rejects_spdlog", None),
    ("filter by fields, rejected", "filter_rejects_kplog",
     "Boost.Log's filter", "filter_rejects_boost", ("faster", 1)),
    ("filter by fields, accepted", "filter_accepts_kplog",
     "spdlog, null sink", "filter_accepts_spdlog", ("faster", 1)),
    ("filter by fields, accepted", "filter_accepts_kplog",
     "Boost.Log's filter", "filter_accepts_boost", ("faster", 1)),
    ("one key of the settings", "filter_key_kplog",
     "nested unordered_map", "filter_key_unordered_map", ("faster", 1)),
    ("filter by settings", "filter_configured_kplog",
     "nested unordered_map", "filter_configured_unordered_map", ("faster", 1)),
    ("log while settings change", "settings_changing_kplog",
     "log while they do not", "settings_quiet_kplog", ("within", 1.2)),
    ("count one key", "counter_one_kplog",
     "one pread, one pwrite", "counter_one_pread_pwrite", ("within", 1.05)),
    ("count one key", "counter_one_kplog",
     "SQLite, synchronous off", "counter_one_sqlite", ("faster", 1)),
    ("count 1,000 keys", "counter_many_kplog",
     "pread record by record", "counter_many_record_by_record", ("faster", 5)),
    ("count 1,000 keys", "counter_many_kplog",
     "buffered fread by record", "counter_many_fread", None),
    ("count 1,000 keys", "counter_many_kplog",
     "SQLite, synchronous off", "counter_many_sqlite", None),
    ("make a text log's name", "filename_make_kplog",
     "fmt", "filename_make_fmt", None),
    ("recognise a text log's name", "filename_recognise_kplog",
     "sscanf", "filename_recognise_sscanf", None),
]

OPTIONS = ["--benchmark_format=json", "--benchmark_repetitions=7",
           "--benchmark_report_aggregates_only=true", "--benchmark_enable_random_interleaving=true",
           "--benchmark_min_time=0.1"]


def medians(program, options):
    """The median CPU time of each benchmark in nanoseconds, by name."""
    run = subprocess.run([program, *OPTIONS, *options], stdout=subprocess.PIPE, check=True)
    times = {}
    for result in json.loads(run.stdout)["benchmarks"]:
        if result.get("error_occurred"):
            sys.exit(f"{result['name']}: {result['error_message']}")
        if result["aggregate_name"] == "median":
            times[result["run_name"]] = result["cpu_time"]
    return times


def judge(ours, theirs, target):
    """The ratio in words, the target in words, and whether it is met."""
    kind, number = target or ("faster", None)
    ratio = theirs / ours if kind == "faster" else ours / theirs
    told = f"{ratio:.2f} times " + ("as fast" if kind == "faster" else "the time")
    if target is None:
        return told, "", ""
    met = ratio <= number if kind == "within" else ratio >= number and (ratio > 1 or number > 1)
    wanted = "faster" if target == ("faster", 1) else \
        f"at least {number} times faster" if kind == "faster" else f"within {number} times"
    return told, wanted, "met" if met else "NOT MET"


def print_table(rows):
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    for row in rows:
        print("  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__.strip())
    times = medians(sys.argv[1], sys.argv[2:])
    rows = [("what", "kplog, ns", "peer", "peer, ns", "ratio", "target", "")]
    for what, ours, peer, theirs, target in RATIOS:
        if ours in times and theirs in times:
            rows.append((what, f"{times[ours]:.1f}", peer, f"{times[theirs]:.1f}",
                         *judge(times[ours], times[theirs], target)))
    print_table(rows)


main()
