#!/usr/bin/env python3
"""Runs the examples of the pages: every command line that begins with, or pipes into, kplog.

usage: documentation_examples_test.py KPLOG DOCS

Each page has a folder of its own with the files that its examples speak of; its command lines run there in
the order of the page, so that one finds what those before it wrote.
"""
import glob
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

KPLOG, DOCS = sys.argv[1:3]

COMMAND_PAGES = sorted("commands/" + page for page in os.listdir(os.path.join(DOCS, "commands")))
SERVER_PAGES = {"commands/fleet.md", "commands/ship.md"}  # whose examples reach servers, most of them
PAGES = ["tools.md", "translations.md", "definition-source.md", "generated-header.md"] + COMMAND_PAGES

# Lines that show the form of a command, write where only an administrator may, or reach servers.
NO_EXAMPLE = re.compile(r"\b(ADDRESS|SOURCE|INPUT|OLD|FILE|NAME|PRODUCT|COUNTER|RECORDS|SOCKET)\b|/usr/|/var/|~/|\.\.\.|: |://")

FINDING = 1  # the status of a command that found something to tell

SOURCE = "kplog: 1\nlog_version: \"2.0\"\nevents:\n"


def page_lines(page):
    with open(os.path.join(DOCS, page), encoding="utf-8") as text:
        return text.read().splitlines()


def first_block(page):
    """The first indented block, without its indentation."""
    block = []
    for line in page_lines(page):
        if line.startswith("    ") or (block and not line):
            block.append(line[4:])
        elif block:
            break
    return "\n".join(block) + "\n"


class OrderOfSettings(unittest.TestCase):
    """A catalog keeps the locale that it was opened with."""

    def test_the_locale_comes_before_the_catalog(self):
        pages = sorted(glob.glob(os.path.join(DOCS, "**", "*.md"), recursive=True))
        pages.append(os.path.join(DOCS, "..", "README.md"))
        seen = 0
        for path in pages:
            with open(path, encoding="utf-8") as page:
                calls = re.findall(r"LogConfig::(SetLocale|SetMessageCatalogPath)\(", page.read())
            seen += len(calls)
            for before, call in zip([None] + calls, calls):
                if call == "SetMessageCatalogPath":
                    self.assertEqual(before, "SetLocale", path)
        self.assertGreaterEqual(seen, 2)


def examples(page):
    """The command lines of the page, with their line numbers."""
    for number, line in enumerate(page_lines(page), 1):
        if re.match(r"    (kplog |[^|:]*\| kplog )", line) and not NO_EXAMPLE.search(line):
            yield number, line.strip()


def run(command, folder):
    path = os.path.join(folder, "bin") + os.pathsep + os.environ["PATH"]
    environment = {**os.environ, "PATH": path, "LESS": "-X", "HOME": folder}
    return subprocess.run(["bash", "-o", "pipefail", "-c", command], cwd=folder, env=environment, text=True,
                          stdin=subprocess.DEVNULL, capture_output=True, check=False)


def write(folder, name, text, mode=0o644):
    path = os.path.join(folder, name)
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    os.chmod(path, mode)


def write_counter(folder, name):
    with open(os.path.join(folder, name), "wb") as file:
        file.write(struct.pack(">Iiiiii8x", 32, 2026, 11, 15, 1001, 3))


def prepare(folder):
    """What the examples speak of: sources, compiled files, a catalog, records and counts, programs, and a
    repository with a tag."""
    login = SOURCE + "  LOGIN: {id: 1, attributes: {USER: Char64}, message: \"{USER} logged in\"}\n"
    write(folder, "events.yaml", first_block("definition-source.md"))
    write(folder, "standard.yaml", login)
    write(folder, "old.yaml", login)
    write(folder, "events-1.0.yaml", login.replace('"2.0"', '"1.0"'))
    write(folder, "new.yaml", SOURCE + "  LOGIN: {id: 1, message: somebody logged in}\n")
    write(folder, "product.yaml", SOURCE + "  PAID: {id: 2, message: paid}\n")
    write(folder, "base.yaml", SOURCE + "  STARTED: {id: 3, message: started}\n")
    write(folder, "large.yaml", SOURCE + "  EVENT_1: {id: 1}\n")
    write(folder, "network.yaml", SOURCE + "  LINK_UP: {id: 4, message: up}\n")
    record = '{"event":"USER_LOGIN","attributes":{"USER_NAME":"alice","PORT":51234,"OUTCOME":0}}\n'
    write(folder, "records.jsonl", record)
    write(folder, "entries.jsonl", record)
    write(folder, "shop.conf", "[global]\nLogLevelLow = 0\nLogLevelHigh = 6\n\n")
    write_counter(folder, "history.cnt")
    write_counter(folder, "shop-1.cnt")
    os.makedirs(os.path.join(folder, "bin"))
    os.symlink(os.path.abspath(KPLOG), os.path.join(folder, "bin", "kplog"))
    write(folder, "bin/generate", "#!/bin/sh\ncat events.yaml\n", 0o755)
    write(folder, "bin/shop", "#!/bin/sh\ncat records.jsonl\n", 0o755)
    made = run("for set in standard old new events events-1.0; do kplog compile -q $set.yaml -o $set.ldf || exit; done &&"
               " kplog compile -q product.yaml --std standard.ldf -o product.ldf &&"
               " kplog catalog merge -q events.yaml --po ja.po &&"
               " kplog catalog build -q events.yaml --po ja.po -o messages && rm ja.po &&"
               " git init -q . && git add events.yaml &&"
               " git -c user.name=a -c user.email=a@example.com commit -q -m one && git tag v1", folder)
    assert made.returncode == 0, made.stderr


class DocumentationExamples(unittest.TestCase):
    maxDiff = None

    def run_page(self, page):
        count = 0
        with tempfile.TemporaryDirectory() as folder:
            prepare(folder)
            for number, command in examples(page):
                with self.subTest(f"docs/{page}:{number}: {command}"):
                    done = run(command, folder)
                    allowed = [0, FINDING] if re.search(r"kplog (check|diff|catalog check) ", command) else [0]
                    self.assertIn(done.returncode, allowed, done.stdout + done.stderr)
                count += 1
        return count

    def test_every_example_runs(self):
        counts = {page: self.run_page(page) for page in PAGES}
        for page in COMMAND_PAGES:
            self.assertGreaterEqual(counts[page], 0 if page in SERVER_PAGES else 2, f"examples of {page} are not found any more")
        self.assertGreaterEqual(counts["translations.md"], 3, "examples are not found any more")

    def test_example_of_the_source_is_sound(self):
        with tempfile.TemporaryDirectory() as folder:
            prepare(folder)
            done = run("kplog compile events.yaml -o events.ldf", folder)
            self.assertEqual((done.returncode, done.stderr),
                             (0, "kplog: wrote events.ldf: 1 event, 1 global attribute\n"))

    def test_programs_that_the_examples_use_are_there(self):
        for program in ["git", "jq", "less"]:
            self.assertIsNotNone(shutil.which(program), program)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
