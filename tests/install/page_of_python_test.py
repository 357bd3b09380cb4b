#!/usr/bin/env python3
"""Runs the program in Python of docs/recorder.md with the installed library.

usage: page_of_python_test.py PAGE PREFIX LIBRARIES

LIBRARIES is the folder of the libraries below PREFIX.
"""
import glob
import os
import re
import subprocess
import sys
import tempfile
import unittest

PAGE, PREFIX, LIBRARIES = sys.argv[1:4]

SOURCE = """kplog: 1
log_version: "1.0"
events:
  STOCK_LOW: {id: 1, attributes: {ARTICLE: MBChar64, LEFT: UInt2}, message: "Only {LEFT} of {ARTICLE} are left"}
"""


class PageOfPython(unittest.TestCase):
    def run_program(self, folder, program):
        environment = {**os.environ, "LD_LIBRARY_PATH": os.path.join(PREFIX, LIBRARIES)}
        return subprocess.run([sys.executable, "-c", program], cwd=folder, env=environment, text=True, check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE)

    def test_its_program_records(self):
        with open(PAGE, encoding="utf-8") as page:
            programs = re.findall(r"^```python\n(.*?)^```$", page.read(), re.MULTILINE | re.DOTALL)
        self.assertEqual(len(programs), 1)
        with tempfile.TemporaryDirectory() as folder:
            done = self.run_program(folder, programs[0])
            self.assertIn("events.ldf: No such file or directory", done.stderr)
            with open(os.path.join(folder, "events.yaml"), "w", encoding="utf-8") as file:
                file.write(SOURCE)
            subprocess.run([os.path.join(PREFIX, "bin/kplog"), "compile", "-q", "events.yaml", "-o", "events.ldf"],
                           cwd=folder, check=True)
            done = self.run_program(folder, programs[0])
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            done = self.run_program(folder, programs[0].replace("LEFT=3", "LEFT=-3"))
            self.assertIn('ValueError: "LEFT" is a UInt2: ', done.stderr)
            logs = glob.glob(os.path.join(folder, "shop.*.0001"))
            self.assertEqual(len(logs), 1)
            with open(logs[0], encoding="utf-8") as log:
                lines = log.read().splitlines()
        self.assertEqual(lines[0].partition(" ")[2], "5 STOCK_LOW Only 3 of tea are left")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
