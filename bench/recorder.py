#!/usr/bin/env python3
"""Times what recording an event costs the calling thread, beside LTTng-UST and spdlog.

usage: recorder.py PROGRAM

PROGRAM is kplog_recorder_caller. Each operation runs in a process of its own, several times, the
operations in turn. For the tracepoints a session daemon of LTTng is started, as this user, in a
temporary folder, and ended again. Where that cannot be, it is told, and the others are timed.
"""
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

THREADS = [1, 2, 4]
ROUNDS = 5
# The peer, its name, and how many of our times its time is to be.
PEERS = [("tracepoint", "LTTng-UST tracepoint", 2), ("spdlog", "spdlog, asynchronous", 5)]


class Tracing:
    """A session of LTTng that takes the program's tracepoints, and its daemon."""

    def __init__(self, folder):
        self.folder = folder
        self.environment = dict(os.environ, LTTNG_HOME=folder)
        self.daemon = None

    def __enter__(self):
        for tool in ("lttng", "lttng-sessiond"):
            if shutil.which(tool) is None:
                raise RuntimeError(f"{tool} is not installed")
        self.daemon = subprocess.Popen(["lttng-sessiond", "--no-kernel"], env=self.environment,
                                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            self._wait_for_daemon()
            self._lttng("create", "sale", f"--output={self.folder}/trace")
            self._lttng("enable-channel", "--userspace", "--subbuf-size=1M", "--num-subbuf=8", "sales")
            self._lttng("enable-event", "--userspace", "--channel=sales", "kplog_bench:sale")
            self._lttng("start")
        except BaseException:
            self._end_daemon()
            raise
        return self

    def __exit__(self, *_):
        self._end_daemon()

    def stop(self):
        """Events that were discarded make the times worthless."""
        told = self._lttng("stop")
        if "discarded" in told:
            raise RuntimeError("LTTng discarded events: " + told.strip())
        size = sum(os.path.getsize(os.path.join(folder, name))
                   for folder, _, names in os.walk(f"{self.folder}/trace") for name in names)
        if size < 1 << 20:
            raise RuntimeError("LTTng has written no events")

    def _lttng(self, *arguments):
        done = subprocess.run(["lttng", "--no-sessiond", *arguments], env=self.environment, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        if done.returncode != 0:
            raise RuntimeError(f"lttng {arguments[0]}: {done.stdout.strip()}")
        return done.stdout

    def _wait_for_daemon(self):
        for _ in range(100):
            if self.daemon.poll() is not None:
                raise RuntimeError("lttng-sessiond ends at once; is another one running?")
            try:
                self._lttng("list")
                return
            except RuntimeError:
                time.sleep(0.1)
        raise RuntimeError("lttng-sessiond does not answer")

    def _end_daemon(self):
        self.daemon.terminate()
        self.daemon.wait()


def time_all(program, operations, environment):
    """Nanoseconds by operation and number of threads: medians of the rounds."""
    times = {}
    for _ in range(ROUNDS):
        for threads in THREADS:
            for operation in operations:
                told = subprocess.run([program, operation, str(threads)], env=environment, text=True,
                                      stdout=subprocess.PIPE, check=True).stdout
                times.setdefault((operation, threads), []).append(float(told))
    return {key: statistics.median(of) for key, of in times.items()}


def report(times):
    print("\nrecord an event of five values, processor time of the calling thread")
    for threads in THREADS:
        own = times["record", threads]
        print(f"{threads} thread{'s' if threads > 1 else ' '}  log.Record {own:23.0f} ns")
        for peer, name, goal in PEERS:
            if (peer, threads) not in times:
                continue
            ratio = times[peer, threads] / own
            verdict = "met" if ratio >= goal else "NOT MET"
            print(f"           {name:<22} {times[peer, threads]:7.0f} ns  {ratio:5.1f} times ours, goal {goal}: {verdict}")


def main():
    if len(sys.argv) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    program = sys.argv[1]
    operations = subprocess.run([program, "--operations"], text=True, stdout=subprocess.PIPE,
                                check=True).stdout.split()
    if "tracepoint" not in operations:
        print("the tracepoint of LTTng-UST is not measured: the program was built without liblttng-ust-dev")
        report(time_all(program, operations, None))
        return 0
    with tempfile.TemporaryDirectory() as folder:
        try:
            with Tracing(folder) as tracing:
                times = time_all(program, operations, tracing.environment)
                tracing.stop()
        except RuntimeError as error:
            print(f"the tracepoint of LTTng-UST is not measured: {error}")
            operations.remove("tracepoint")
            times = time_all(program, operations, None)
    report(times)
    return 0


if __name__ == "__main__":
    sys.exit(main())
