#!/usr/bin/env python3
"""Holds the includes of the product against its floors: nothing includes upwards or across a wall.

A floor stands above everything it includes. The floors are listed in docs/architecture.md; this table
is what the build holds them to.
"""
import pathlib
import re
import subprocess
import sys

# Stems of logging/ by floor. A file belongs to the longest stem that it begins with.
FLOORS = {
    "entry_filter": 8, "logentry": 8,
    "logentry_i_message": 7,
    "logmsg_icu": 6, "logmsg_bytes": 6, "logmsg_choice": 6, "logmsg_placeholder": 6, "logmsg_cache": 6,
    "logentry_i": 5,
    "logcfg": 4,
    "ldf_load": 3, "logmsg_catalog": 3, "logmsg_token": 3, "logmsg": 3, "logcfg_file": 3,
    "log_definition": 2, "icu_text": 2,
    "def_read": 1, "attr_value": 1, "hash_tbl": 1, "hashed_name": 1,
    "log_util_": 0, "ustring": 0, "logentrycounter": 0,
}
# Public headers by the floor of the room that implements them; the rest of include/ is on floor 0.
PUBLIC = {
    "kp_LOG_LogEntry.h": 8, "kp_LOG_EntryFilter.h": 8, "kp_LOG_EntryAccess.h": 8, "kp_LOG_EventValue.h": 9,
    "kp_LOG_RenderMessage.h": 7,
    "kp_LOG_LogConfig.h": 4, "kp_LOG.h": 9,
}
# A declaration-only header that lower floors may include to reach what stands above them.
FORWARD_ONLY = {"logging/logmsg.h"}
# What a room outside the library may include, as prefixes.
ROOMS = {
    "base": ("base/",),
    "include": ("base/", "kp_LOG"),
    "tools": ("tools/", "base/", "kp_LOG", "logging/def_read", "logging/ldf_load.h",
              "logging/log_definition.h", "logging/logentry_i.h",
              # What renders a template before it is in any file.
              "logging/logmsg.h", "logging/logmsg_icu_depth.h"),
    "examples": ("examples/", "kp_LOG", "logging/logentry_i.h", "logging/attr_value.h", "base/"),
}


def floor_of(path):
    """The floor of a file of logging/ or include/, None for anything else."""
    name = path.name
    if path.parts[0] == "include":
        return PUBLIC.get(name, 0)
    if path.parts[0] != "logging":
        return None
    stems = [s for s in FLOORS if name.startswith(s)]
    return FLOORS[max(stems, key=len)] if stems else -1


def resolve(include):
    """The repository's file that an include names, or None for one of the system's."""
    for candidate in (pathlib.Path(include), pathlib.Path("include") / include):
        if candidate.exists():
            return candidate
    return None


def faults_of(path):
    floor = floor_of(path)
    if floor == -1:
        yield 1, "no floor is given for this file: add its stem to checks/layers.py"
    for number, line in enumerate(path.read_text().splitlines(), 1):
        found = re.match(r'\s*#\s*include\s*"([^"]+)"', line)
        if not found:
            continue
        include = found.group(1)
        target = resolve(include)
        if target is None:
            if path.parts[0] in ("tools", "examples"):
                continue
            yield number, f'"{include}" is not a file of this repository'
            continue
        room = path.parts[0]
        if room in ROOMS and not include.startswith(ROOMS[room]):
            yield number, f'{room}/ may not include "{include}"'
        if room == "logging":
            if target.parts[0] not in ("logging", "include", "base"):
                yield number, f'logging/ may not include "{include}"'
            above = floor_of(target)
            if above is not None and above > floor and include not in FORWARD_ONLY and floor != -1:
                yield number, f'floor {floor} includes upwards: "{include}" stands on floor {above}'


def main():
    files = subprocess.run(["git", "ls-files", "base", "include", "logging", "tools", "examples"],
                           capture_output=True, text=True, check=True).stdout.split()
    bad = 0
    for name in files:
        if not name.endswith((".h", ".cpp")):
            continue
        for number, fault in faults_of(pathlib.Path(name)):
            print(f"{name}:{number}: error: {fault}")
            bad += 1
    return 1 if bad else 0


sys.exit(main())
