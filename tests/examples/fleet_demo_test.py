#!/usr/bin/env python3
"""Runs the demonstration of a fleet.

usage: fleet_demo_test.py DEMO BUILD
"""
import os
import subprocess
import sys
import tempfile
import unittest

DEMO, BUILD = sys.argv[1:3]


class FleetDemo(unittest.TestCase):
    def test_each_engine_has_all_records_and_tells_them_in_japanese(self):
        with tempfile.TemporaryDirectory() as folder, tempfile.TemporaryDirectory() as temporary:
            os.chmod(temporary, 0o755)
            done = subprocess.run([DEMO, "--build", BUILD, "--output", folder], capture_output=True, text=True, check=False,
                                  env=os.environ | {"TMPDIR": temporary})
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
            engines = done.stdout.split("== ")
            self.assertEqual([engine.split("\n")[0] for engine in engines[1:]], ["postgresql", "nats"])
            for told in engines[1:]:
                for machine, records in ("amber", 7), ("basalt", 8), ("coral", 7):
                    self.assertIn(f"  {machine}: kplog: {records} records: {records} stored, 0 bad\n", told)
                    self.assertIn(f"  {machine}: kplog: {records} records in the engine; all alike\n", told)
                self.assertIn("tea-timer:amd64 1.4-2 は展開されています\n", told)
                self.assertRegex(told, r"PACKAGE_STATUS +9\n")
            self.assertEqual(engines[1].split("Asked")[1].split("host ")[0], engines[2].split("Asked")[1].split("host ")[0])
            self.assertEqual(os.listdir(temporary), [], "what it started is gone")


unittest.main(argv=sys.argv[:1])
