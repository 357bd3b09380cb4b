#!/usr/bin/env python3
"""Types in README's first page, as a reader with nothing but the installed package does.

usage: first_page_test.py README PREFIX FOLDER COMPILER

A block of code behind a line that ends in a name in backticks is a file. What a block of commands (sh) prints is the
block of text behind it, or whatever it likes where none follows.
"""
import os
import re
import shutil
import subprocess
import sys
import unittest

README, PREFIX, FOLDER, COMPILER = sys.argv[1:5]


def first_page():
    with open(README, encoding="utf-8") as page:
        return page.read().partition("## The first page\n")[2].partition("\n## ")[0]


def blocks():
    """The language, the content, and the line before each block of the page."""
    page = first_page()
    found = re.finditer(r"^```(\w+)\n(.*?)^```$", page, re.MULTILINE | re.DOTALL)
    return [(block[1], block[2], page[:block.start()].rstrip().rpartition("\n")[2]) for block in found]


def run(commands):
    environment = {"PATH": os.path.join(PREFIX, "bin") + os.pathsep + os.environ["PATH"], "CXX": COMPILER,
                   "CMAKE_PREFIX_PATH": PREFIX, "HOME": FOLDER, "LC_ALL": "C.UTF-8"}
    return subprocess.run(["sh", "-e", "-c", commands], cwd=FOLDER, env=environment, text=True, check=False,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)


class FirstPage(unittest.TestCase):
    maxDiff = None

    def test_every_block_does_what_the_page_says(self):
        shutil.rmtree(FOLDER, ignore_errors=True)
        os.makedirs(FOLDER)
        written, printed, compared = [], None, 0
        for language, content, line_before in blocks():
            if language == "sh":
                done = run(content)
                self.assertEqual(done.returncode, 0, content + done.stdout)
                printed = done.stdout
            elif language == "text":
                self.assertEqual(printed, content)
                compared += 1
            else:
                name = re.search(r"`([^`]+)`$", line_before)
                self.assertIsNotNone(name, "no name before a block of " + language)
                with open(os.path.join(FOLDER, name[1]), "w", encoding="utf-8") as file:
                    file.write(content)
                written.append(name[1])
        self.assertEqual(written, ["events.yaml", "CMakeLists.txt", "main.cpp", "de.po"])
        self.assertEqual(compared, 3)

    def test_nothing_stands_in_a_block_that_is_not_tried(self):
        self.assertEqual(first_page().count("\n```"), 2 * len(blocks()))


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
