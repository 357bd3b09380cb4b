#!/usr/bin/env python3
"""Every relative link of the documentation leads to a file of the repository, and so does every name of a file on
the page about additions."""
import pathlib
import re
import subprocess
import sys


ADDITIONS = "docs/adding.md"


def absent_files():
    """Names of files on the page, with or without their folders, that no file has; those in capitals are examples."""
    files = subprocess.run(["git", "ls-files"], capture_output=True, text=True, check=True).stdout.split()
    page = pathlib.Path(ADDITIONS).read_text(encoding="utf-8")
    named = re.findall(r"`([a-z_/]+[A-Za-z_/]*\.(?:cpp|h|py|md|json))`", page)
    return [name for name in named if not re.search("NAME|AREA", name)
            and not any(file == name or file.endswith("/" + name) for file in files)]


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
    for name in absent_files():
        print(f"{ADDITIONS}: error: no file has the name {name}")
        bad += 1
    return 1 if bad else 0


sys.exit(main())
