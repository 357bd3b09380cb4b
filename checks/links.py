#!/usr/bin/env python3
"""Every relative link of the documentation leads to a file of the repository."""
import pathlib
import re
import subprocess
import sys


def main():
    files = subprocess.run(["git", "ls-files", "*.md"], capture_output=True, text=True,
                           check=True).stdout.split()
    bad = 0
    for name in files:
        page = pathlib.Path(name)
        for number, line in enumerate(page.read_text(encoding="utf-8").splitlines(), 1):
            for target in re.findall(r"\]\(([^)#\s]+)[^)]*\)", line):
                if "://" in target or (page.parent / target).exists():
                    continue
                print(f"{name}:{number}: error: the link leads nowhere: {target}")
                bad += 1
    return 1 if bad else 0


sys.exit(main())
