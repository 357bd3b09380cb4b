#!/usr/bin/env python3
"""Functions that the library and its tools do not call: unbounded, locale-hidden or not re-entrant; and those that the tools
call by the wrappers of base/kp_clib.h alone, so that tests can make them fail."""
import re
import subprocess
import sys

BANNED = re.compile(r"(?<![\w.>:])(strcpy|strcat|sprintf|vsprintf|strtok|localtime|gmtime|asctime|ctime|"
                    r"alloca|atoi|atol|sscanf|gets|tmpnam|mktemp)\s*\(")

WRAPPED = re.findall(r"^  (\w+),", open("base/kp_fault.h", encoding="utf-8").read(), re.MULTILINE)
# Members of classes have these names, too.
SHARED_NAMES = {"open", "close", "read", "write"}
UNWRAPPED = re.compile(r"(?<![\w.>:])(%s)\s*\(" % "|".join(set(WRAPPED) - SHARED_NAMES))


def main():
    files = subprocess.run(["git", "ls-files", "base", "include", "logging", "recording", "recorder", "tools", "engines", "examples"],
                           capture_output=True, text=True, check=True).stdout.split()
    bad = 0
    for name in files:
        if not name.endswith((".h", ".cpp")):
            continue
        with open(name, encoding="utf-8") as source:
            for number, line in enumerate(source, 1):
                code = line.split("//")[0]
                found = BANNED.search(code)
                if found:
                    print(f"{name}:{number}: error: {found.group(1)} is not used here")
                    bad += 1
                found = name.startswith(("recording/", "recorder/", "tools/", "engines/")) and UNWRAPPED.search(code)
                if found:
                    print(f"{name}:{number}: error: KP_{found.group(1)} is used here")
                    bad += 1
    return 1 if bad else 0


sys.exit(main())
