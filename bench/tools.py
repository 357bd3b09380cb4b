#!/usr/bin/env python3
"""Times the kplog command on 10,000 events of six attributes each, beside targets.

usage: tools.py KPLOG [RUNS]

Each command is run several times (5), and the quickest run counts. Times are those of the processor: what
else the machine does adds little to them.
"""
import os
import resource
import subprocess
import sys
import tempfile

EVENTS = 10000
TYPES = ["UInt4", "MBChar64", "UInt1", "Timestamp", "Char256", "Float"]

# (what is done, arguments, target in seconds), in this order: each makes what the next one reads.
STEPS = [
    ("compile the source", ["compile", "-q", "events.yaml", "-o", "events.ldf"], 2.0),
    ("check the compiled file", ["check", "-q", "--fail-on", "error", "events.ldf"], 0.2),
    ("dump as YAML", ["dump", "events.ldf"], 1.0),
    ("dump as JSON", ["dump", "--format", "json", "events.ldf"], 1.0),
    ("dump as a table", ["dump", "--format", "table", "events.ldf"], 1.0),
    ("build a catalog", ["catalog", "build", "-q", "events.yaml", "--po", "de.po", "-o", "messages"], 1.0),
]


def event(number):
    attributes = "".join(f"      A{i}_{name.upper()}: {name}\n" for i, name in enumerate(TYPES))
    return (f"  EVENT_{number}:\n    id: {number}\n    note: The event of number {number}.\n"
            f"    attributes:\n{attributes}"
            f"    message: \"Event {number} of {{A1_MBCHAR64}}: {{A0_UINT4}}, {{A2_UINT1}}, "
            f"{{A3_TIMESTAMP:time}}, {{A4_CHAR256}}, {{A5_FLOAT:percent}}\"\n")


def write_source(path):
    with open(path, "w", encoding="utf-8") as source:
        source.write("kplog: 1\nlog_version: \"1.0\"\nevents:\n")
        for number in range(1, EVENTS + 1):
            source.write(event(number))


def write_translations(path):
    with open(path, "w", encoding="utf-8") as translations:
        translations.write('msgid ""\nmsgstr "Language: de\\n"\n')
        for number in range(1, EVENTS + 1):
            values = ("{A1_MBCHAR64}: {A0_UINT4}, {A2_UINT1}, {A3_TIMESTAMP:time}, {A4_CHAR256}, "
                      "{A5_FLOAT:percent}")
            translations.write(f'\nmsgctxt "EVENT_{number}"\nmsgid "Event {number} of {values}"\n'
                               f'msgstr "Ereignis {number} von {values}"\n')


def seconds(command, folder):
    with open(os.path.join(folder, "out"), "w", encoding="utf-8") as out:
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        subprocess.run(command, cwd=folder, stdout=out, check=True)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime


def main():
    if len(sys.argv) not in (2, 3):
        sys.exit(__doc__.strip())
    kplog = os.path.abspath(sys.argv[1])
    runs = int(sys.argv[2]) if len(sys.argv) == 3 else 5
    with tempfile.TemporaryDirectory() as folder:
        write_source(os.path.join(folder, "events.yaml"))
        write_translations(os.path.join(folder, "de.po"))
        print(f"kplog on {EVENTS:,} events of {len(TYPES)} attributes")
        for what, arguments, target in STEPS:
            best = min(seconds([kplog, *arguments], folder) for _ in range(runs))
            print(f"{what:<24}  {best:6.3f} s  under {target:g} s  "
                  f"{'met' if best < target else 'NOT MET'}")


main()
