"""What programs share that time the kplog command: its definitions and records, runs, and goals."""
import os
import subprocess

from login_records import SOURCE, write_records

ENVIRONMENT = {**os.environ, "TZ": "UTC", "LC_ALL": "C"}
missed = []  # goals


def told(goal, is_met, is_missed=None):
    """The goal and whether it is met. What is missed, by more than the runs scatter where that is told, is remembered."""
    if is_missed is None:
        is_missed = not is_met
    if is_missed:
        missed.append(goal)
    return f"{goal}   {'met' if is_met else 'NOT MET'}"


def compile_events(kplog, folder, source=SOURCE):
    """Makes events.ldf."""
    with open(os.path.join(folder, "events.yaml"), "w", encoding="utf-8") as file:
        file.write(source)
    subprocess.run([kplog, "compile", "-q", "events.yaml", "-o", "events.ldf"], cwd=folder, check=True)


def emit(kplog, *arguments):
    return [kplog, "emit", "--quiet", "--definitions", "events.ldf", "--locale", "en_US", *arguments]


def write_journal(kplog, folder, count, **kinds):
    """So many records in journal/shop, by events.ldf."""
    write_records(os.path.join(folder, "records"), count, **kinds)
    os.mkdir(os.path.join(folder, "journal"))
    subprocess.run(emit(kplog, "--to", "journal:journal/shop", "records"), cwd=folder, env=ENVIRONMENT, check=True)


def ship(kplog, address, *options):
    return [kplog, "ship", "-q", "journal/shop", "--definitions", "events.ldf", "--once", *options, "--to", address]


def timed(command, folder):
    """Seconds of the clock and of the processor, and MiB of memory."""
    measures = os.path.join(folder, "measures")
    subprocess.run(["time", "-f", "%e %U %S %M", "-o", measures, *command], cwd=folder, check=True)
    with open(measures, encoding="ascii") as file:
        clock, user, system, memory = (float(word) for word in file.read().split())
    return clock, user + system, memory / 1024
