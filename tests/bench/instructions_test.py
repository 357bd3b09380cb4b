#!/usr/bin/env python3
"""Holds bench/instructions.py to what it says of counts, with made-up ones.

usage: instructions_test.py INSTRUCTIONS.PY
"""
import contextlib
import importlib.util
import io
import json
import os
import pathlib
import sys
import tempfile
import unittest

SCRIPT = sys.argv.pop()

# Stands for callgrind and for the program: tells each operation's process, and counts what the file
# beside it says for one, as often as asked.
VALGRIND = """#!/bin/sh
while [ "$1" != --each ]; do shift; done
times=$2 process=100
shift 2
for operation; do
  count=$(sed -n "s/^$operation //p" "${0%/*}/counts")
  [ -n "$count" ] || { echo "no such operation" >&2; exit 1; }
  echo "$process $operation $times"
  echo "==$process== Events    : Ir\n==$process== Collected : $((count * times))" >&2
  process=$((process + 1))
done
echo "==99== Collected : 0" >&2
"""
PROGRAM = "#!/bin/sh\necho 'a compiler'\n"


def load():
    spec = importlib.util.spec_from_file_location("instructions", SCRIPT)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


class Instructions(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        for name, text in ("valgrind", VALGRIND), ("program", PROGRAM):
            (self.folder / name).write_text(text)
            (self.folder / name).chmod(0o755)
        path = os.environ["PATH"]
        self.addCleanup(os.environ.__setitem__, "PATH", path)
        os.environ["PATH"] = f"{folder.name}:{path}"
        self.module = load()

    def run_with(self, rows, counts, recorded, *options):
        """The exit status and the lines below the table's head."""
        self.module.ROWS = [self.module.Row(*row) for row in rows]
        (self.folder / "counts").write_text("".join(f"{name} {count}\n" for name, count in counts.items()))
        (self.folder / "recorded.json").write_text(json.dumps({"built with": "a compiler", "instructions": recorded}))
        out = io.StringIO()
        with contextlib.redirect_stdout(out):
            status = self.module.main([str(self.folder / "program"), str(self.folder / "recorded.json"), *options])
        return status, out.getvalue().splitlines()[1:]

    def test_goal_that_is_met(self):
        self.assertEqual(self.run_with([("make", "make", 400)], {"make": 390}, {"make": 380}),
                         (0, ["make                    390   400  met"]))

    def test_goal_that_was_met_and_is_missed_by_more_than_3_percent(self):
        self.assertEqual(self.run_with([("make", "make", 400)], {"make": 413}, {"make": 400}),
                         (1, ["make                    413   400  NOT MET (was 400)",
                              "goals that were met, missed by more than 3%: make"]))

    def test_goal_that_was_met_and_is_missed_by_3_percent(self):
        self.assertEqual(self.run_with([("make", "make", 400)], {"make": 412}, {"make": 400}),
                         (0, ["make                    412   400  NOT MET"]))

    def test_goal_that_was_not_met(self):
        self.assertEqual(self.run_with([("make", "make", 400)], {"make": 900}, {"make": 401}),
                         (0, ["make                    900   400  NOT MET (was 401)"]))

    def test_goal_of_an_operation_that_was_never_recorded(self):
        self.assertEqual(self.run_with([("make", "make", 400)], {"make": 900}, {}),
                         (0, ["make                    900   400  NOT MET"]))

    def test_more_than_was_recorded_is_told_where_it_fails_nothing(self):
        self.assertEqual(self.run_with([("copy", "copy"), ("make", "make", 400)], {"copy": 104, "make": 310},
                                       {"copy": 100, "make": 300}),
                         (0, ["copy                    104        (was 100)",
                              "make                    310   400  met (was 300)"]))

    def test_goal_that_is_a_multiple_of_another_operation(self):
        rows = [("make beyond", "beyond", (2, "make"))]
        self.assertEqual(self.run_with(rows, {"make": 100, "beyond": 200}, {"make": 100, "beyond": 150}),
                         (0, ["make beyond             200   200  met (was 150)"]))
        self.assertEqual(self.run_with(rows, {"make": 90, "beyond": 200}, {"make": 100, "beyond": 150})[0], 1)
        self.assertEqual(self.run_with(rows, {"make": 90, "beyond": 200}, {"make": 60, "beyond": 150})[0], 0)

    def test_what_an_operation_takes_beyond_another(self):
        rows = [("date", ("dated", "event"), 600)]
        self.assertEqual(self.run_with(rows, {"dated": 3000, "event": 2450}, {}),
                         (0, ["date                    550   600  met"]))
        self.assertEqual(self.run_with(rows, {"dated": 3000, "event": 2370}, {"dated": 3000, "event": 2400})[0], 1)

    def test_peers_stand_beside_it(self):
        rows = [("make", "make", None, [("a map", "map"), ("made anew", ("anew", "map"))])]
        self.assertEqual(self.run_with(rows, {"make": 1000, "map": 2000, "anew": 1234567}, {}),
                         (0, ["make                  1,000          a map 2,000, made anew 1,232,567"]))

    def test_record_is_what_the_next_run_is_held_against(self):
        rows = [("date", ("dated", "event"), 600), ("make", "make", 400, [("a map", "map")])]
        counts = {"dated": 3000, "event": 2400, "make": 300, "map": 7}
        self.assertEqual(self.run_with(rows, counts, {"make": 1}, "--record")[0], 0)
        recorded = json.loads((self.folder / "recorded.json").read_text())
        self.assertEqual(recorded, {"built with": "a compiler",
                                    "instructions": {"dated": 3000, "event": 2400, "make": 300}})
        self.assertEqual(self.run_with(rows, {**counts, "make": 413}, recorded["instructions"])[0], 1)

    def test_one_operation_alone(self):
        rows = [("make", "make", 400), ("copy", "copy")]
        self.assertEqual(self.run_with(rows, {"copy": 5}, {}, "--only", "copy"), (0, ["copy                      5"]))

    def test_markdown(self):
        rows = [("make", "make", 400, [("a map", "map")])]
        lines = self.run_with(rows, {"make": 1300, "map": 7}, {}, "--markdown")[1]
        self.assertEqual(lines[-1], "| make | 1,300 | 400 | a map 7 |")

    def test_program_that_fails(self):
        with self.assertRaisesRegex(SystemExit, "the program failed:\nno such operation"):
            self.run_with([("make", "make", 400)], {}, {"make": 1})

    def test_another_build_than_the_recorded_one_is_told_where_it_fails(self):
        (self.folder / "program").write_text(PROGRAM.replace("a compiler", "another"))
        status, lines = self.run_with([("make", "make", 400)], {"make": 500}, {"make": 400})
        self.assertEqual((status, lines[-2:]), (1, ["recorded with a compiler", "and built with another"]))


unittest.main()
