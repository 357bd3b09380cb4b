#!/usr/bin/env python3
"""Holds the includes of the product against the floors of docs/architecture.md: nothing includes upwards, nor across
from one room to another of the same floor, and only the headers of logging/ that the page lists leave the library."""
import pathlib
import re
import subprocess
import sys

PAGE = pathlib.Path("docs/architecture.md")
ROOTS = ("base", "include", "logging", "recording", "recorder", "tools", "engines", "examples")
EVERYWHERE = {"logging/logmsg.h"}  # forward declarations alone
ON_TOP = 99  # the programs, which are in no room


def rows_of(heading):
    """The cells of the table whose head begins with `heading`."""
    lines = iter(PAGE.read_text(encoding="utf-8").splitlines())
    for line in lines:
        if line.startswith(f"| {heading} |"):
            break
    else:
        sys.exit(f"{PAGE}: no table with the heading \"{heading}\"")
    next(lines)
    for line in lines:
        if not line.startswith("|"):
            return
        yield [cell.strip() for cell in line.strip("|").split("|")]


def names_in(cell):
    return re.findall(r"`([^`]+)`", cell)


FLOORS = {name: int(floor) for floor, names, _ in rows_of("floor") for name in names_in(names)}
OPEN = {folder.rstrip("/"): set(names_in(headers)) for folders, headers in rows_of("outside")
        for folder in names_in(folders)}


def floor_of(path):
    """The floor of a file and its room there, or None for a file that no row is about."""
    root = path.parts[0]
    if root == "base":
        return -1, "base"
    if root == "include":
        return FLOORS.get(path.name, 0), "include"
    if root == "logging":
        stems = [name for name in FLOORS if "." not in name and "/" not in name and path.name.startswith(name)]
        return (FLOORS[max(stems, key=len)], "logging") if stems else None
    if path in (pathlib.Path("tools/main.cpp"), pathlib.Path("engines/main.cpp")):
        return ON_TOP, root
    for room in (f"{root}/", "/".join(path.parts[:2]) + "/"):
        if room in FLOORS:
            return FLOORS[room], room
    return None


def resolve(include):
    """The repository's file that an include names, or None for one of the system's."""
    for candidate in (pathlib.Path(include), pathlib.Path("include") / include):
        if candidate.exists() and candidate.parts[0] in ROOTS:
            return candidate
    return None


def fault_of(path, include):
    """Why the file may not include that, or None."""
    here, target = floor_of(path), resolve(include)
    if target is None:
        is_made_by_the_build = path.parts[0] == "examples"
        return None if is_made_by_the_build else f'"{include}" is not a file of this repository'
    there = floor_of(target)
    if there is None:
        return f'"{include}" has no floor'
    root = path.parts[0]
    if target.parts[0] == "logging" and root in OPEN:
        return None if target.name in OPEN[root] else f'{root}/ may not include "{include}"'
    if include in EVERYWHERE:
        return None
    if there[0] > here[0]:
        return f'floor {here[0]} includes upwards: "{include}" stands on floor {there[0]}'
    is_of_another_room = there[0] == here[0] and "/" in here[1] and there[1] != here[1]
    return f'"{include}" is another room of the same floor' if is_of_another_room else None


def faults_of(path):
    if floor_of(path) is None:
        yield 1, f"no floor is given for this file: add it to the table of {PAGE}"
        return
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        found = re.match(r'\s*#\s*include\s*"([^"]+)"', line)
        fault = fault_of(path, found.group(1)) if found else None
        if fault:
            yield number, fault


def main():
    files = subprocess.run(["git", "ls-files", *ROOTS], capture_output=True, text=True, check=True).stdout.split()
    bad = 0
    for name in files:
        if name.endswith((".h", ".cpp")):
            for number, fault in faults_of(pathlib.Path(name)):
                print(f"{name}:{number}: error: {fault}")
                bad += 1
    return 1 if bad else 0


sys.exit(main())
