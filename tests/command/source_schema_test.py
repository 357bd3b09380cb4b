#!/usr/bin/env python3
"""Holds the JSON Schema of definition sources against the sources of the repository.

usage: source_schema_test.py SCHEMA KPLOG FOLDER...

Every source in the folders that `kplog compile` accepts must satisfy the schema. The wrong sources
below must be refused by both.
"""
import json
import pathlib
import subprocess
import sys
import unittest

import jsonschema
import yaml

SCHEMA, KPLOG, *FOLDERS = sys.argv[1:]


class CoreLoader(yaml.SafeLoader):
    """YAML as editors read it: words like "on" and dates are texts."""


CoreLoader.yaml_implicit_resolvers = {
    first: [(tag, pattern) for tag, pattern in resolvers
            if tag not in ("tag:yaml.org,2002:bool", "tag:yaml.org,2002:timestamp")]
    for first, resolvers in yaml.SafeLoader.yaml_implicit_resolvers.items()
}

HEAD = 'kplog: 1\nlog_version: "1.0"\n'
EVENT = HEAD + "events:\n  EVENT:\n    id: 1\n"

WRONG = {
    "no format": "log_version: 1.0\n",
    "another format": "kplog: 2\nlog_version: 1.0\n",
    "a log version of eight characters": "kplog: 1\nlog_version: 1.0-beta\n",
    "an unknown key": HEAD + "event: {}\n",
    "an unknown key of an event": EVENT + "    selekt: X\n",
    "an event without ID": HEAD + "events: {EVENT: {note: x}}\n",
    "an ID above 32 bits": HEAD + "events: {EVENT: {id: 4294967296}}\n",
    "a negative ID": HEAD + "events: {EVENT: {id: -1}}\n",
    "an empty name": HEAD + 'events: {"": {id: 1}}\n',
    "an unknown renderer": HEAD + "renderer: html\n",
    "an unknown type": EVENT + "    attributes: {A: MBChar63}\n",
    "a redirected global attribute": HEAD + "attributes: {A: {type: Bool, redirect: B}}\n",
    "an attribute without type": EVENT + "    attributes: {A: {note: x}}\n",
    "a message with text and raw": EVENT + "    message: {text: a, raw: b}\n",
    "a message without anything": EVENT + "    message: {}\n",
    "a selector message without value": EVENT + "    messages: [{index: 1, text: a}]\n",
    "a selector message with a name that is no identifier":
        EVENT + "    messages: [{index: 1, value: 1, name: a-b}]\n",
    "code pages that are no list": HEAD + "code_pages: UTF-8\n",
    "a flag that is no number": HEAD + "flags: {A: high}\n",
    "a level above 9": EVENT + "    level: 10\n",
    "a level of the source above 9": HEAD + "level: 10\n",
    "a named level above 9": HEAD + "levels: {error: 10}\n",
    "a level that is a list": EVENT + "    level: [1]\n",
    "retired IDs that are no range": HEAD + "retired: [1-2-3]\n",
    "a silence without a reason": EVENT + '    silence: {no-message: " "}\n',
    "an accepted difference by its code alone": EVENT + "    accept: {note: {since: 1, reason: x}}\n",
    "an accepted difference of no log version": EVENT + "    accept: {note/E: {reason: x}}\n",
    "an accepted difference since a long log version": EVENT + "    accept: {note/E: {since: 2.0-beta, reason: x}}\n",
    "an accepted difference without a reason": EVENT + "    accept: {note/E: {since: 1, reason: ' '}}\n",
}


def compiles(path):
    command = [KPLOG, "compile", "-q", str(path), "-o", "/dev/null"]
    return subprocess.run(command, stderr=subprocess.DEVNULL, check=False).returncode == 0


class SourceSchema(unittest.TestCase):
    def setUp(self):
        schema = json.loads(pathlib.Path(SCHEMA).read_text(encoding="utf-8"))
        jsonschema.Draft7Validator.check_schema(schema)
        self.validator = jsonschema.Draft7Validator(schema)

    def faults(self, text):
        return [f"{list(fault.path)}: {fault.message}"
                for fault in self.validator.iter_errors(yaml.load(text, CoreLoader))]

    def test_sources_of_the_repository_satisfy_it(self):
        sources = [path for folder in FOLDERS for path in pathlib.Path(folder).rglob("*.yaml")]
        good = [path for path in sources if compiles(path)]
        self.assertGreaterEqual(len(good), 3)
        for path in good:
            with self.subTest(path=path.name):
                self.assertEqual(self.faults(path.read_text(encoding="utf-8")), [])

    def test_wrong_sources_do_not(self):
        for what, text in WRONG.items():
            with self.subTest(what):
                self.assertNotEqual(self.faults(text), [])

    def test_the_compiler_refuses_what_the_schema_refuses(self):
        for what, text in WRONG.items():
            with self.subTest(what):
                run = subprocess.run([KPLOG, "compile", "-", "-o", "/dev/null"], check=False,
                                     input=text.encode(), stderr=subprocess.DEVNULL)
                self.assertEqual(run.returncode, 1)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
