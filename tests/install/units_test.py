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


def is_hardened(unit, tenths):
    """Whether its exposure is at most so many tenths, of 100."""
    return subprocess.run(["systemd-analyze", "security", "--no-pager", "--offline=yes", f"--threshold={tenths}",
                           units / unit], stdout=subprocess.DEVNULL, check=False).returncode == 0


assert is_hardened("kplog-emit@.service", 10)

# What sends has the network beside that.
sender = units / "kplog-ship@.service"
if sender.exists():
    text = sender.read_text(encoding="utf-8")
    command = re.search(r"^ExecStart=(\S+) ship \$KPLOG_SHIP_OPTIONS$", text, re.MULTILINE).group(1)
    # The engines are those of the program beside it: an address that none of them has is a wrong command line.
    asked = subprocess.run([command, "ship", "/tmp/none", "--definitions", "none.ldf", "--to", "carrier-pigeon://coop"],
                           capture_output=True, text=True, check=False)
    assert asked.returncode == 2 and "syslog+tls" in asked.stderr, asked.stderr
    assert is_hardened("kplog-ship@.service", 15)
    # It says when it is ready, and is alive, to a systemd that sees no other process of its.
    assert "Type=notify\n" in text and "WatchdogSec=" in text
    # Bad records are no failure, a wrong command line is not tried again, all else is.
    assert {"SuccessExitStatus=1", "RestartPreventExitStatus=2", "Restart=on-failure", "RestartSec=5s"} <= set(text.split("\n"))
    # The folder that the other service writes to.
    folder = "LogsDirectory=kplog/%i\n"
    assert folder in text and folder in service
elif (pathlib.Path(sys.argv[1]) / "bin/kplog-ship").exists():
    sys.exit("kplog-ship is installed without its unit")
