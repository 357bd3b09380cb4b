#!/usr/bin/env python3
"""No two files define a class, struct or enumeration of one name: without namespaces the linker would
silently merge them and run the wrong code."""
import collections
import re
import subprocess
import sys

DEFINITION = re.compile(
    r"^(?:template\s*<[^>]*>\s*)?(?:class|struct|union|enum(?:\s+class)?)\s+"
    r"(?:(?:KP_[A-Z_]+(?:\([^)]*\))?|alignas\([^)]*\))\s+)*"
    r"([A-Za-z_]\w*)\b(?!\s*::)(?:\s+final)?\s*(?::[^;{]*)?\{", re.M)


def main():
    files = subprocess.run(["git", "ls-files", "*.h", "*.cpp"], capture_output=True, text=True,
                           check=True).stdout.split()
    places = collections.defaultdict(set)
    for name in files:
        with open(name, encoding="utf-8") as source:
            for found in DEFINITION.finditer(source.read()):
                places[found.group(1)].add(name)
    twice = {name: where for name, where in places.items() if len(where) > 1}
    for name, where in sorted(twice.items()):
        print(f"{name} is defined in {', '.join(sorted(where))}")
    return 1 if twice else 0


sys.exit(main())
