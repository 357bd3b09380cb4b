#!/usr/bin/env python3
"""The installed units of systemd: they run the installed command, for the sockets' path, and leave it little room."""
import pathlib
import re
import subprocess
import sys

units = pathlib.Path(sys.argv[1]) / "lib/systemd/system"
service = (units / "kplog-emit@.service").read_text(encoding="utf-8")
socket = (units / "kplog-emit@.socket").read_text(encoding="utf-8")

command, path = re.search(r"^ExecStart=(\S+) emit --listen unix:(\S+) \$KPLOG_EMIT_OPTIONS$", service, re.MULTILINE).groups()
subprocess.run([command, "--version"], check=True)
assert f"ListenStream={path}\n" in socket, path

# In tenths: the exposure is at most 1 of 10.
subprocess.run(["systemd-analyze", "security", "--no-pager", "--offline=yes", "--threshold=10",
                units / "kplog-emit@.service"], check=True, stdout=subprocess.DEVNULL)
