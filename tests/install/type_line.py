# SPDX-License-Identifier: Apache-2.0
"""type_line.py LINE COMMAND...: starts an interactive shell on a terminal of its own, types the line when the shell has
printed "ready$ ", presses Enter, and prints what stands between "got<" and ">" of its answer."""
import os
import pty
import re
import select
import sys
import time


def read_until(terminal, pattern):
    seen = b""
    end = time.monotonic() + 60
    while not re.search(pattern, seen):
        if not select.select([terminal], [], [], max(0, end - time.monotonic()))[0]:
            sys.exit(f"no answer; the shell printed {seen!r}")
        seen += os.read(terminal, 4096)
    return re.search(pattern, seen)


line, command = sys.argv[1], sys.argv[2:]
child, terminal = pty.fork()
if child == 0:
    os.execvp(command[0], command)
read_until(terminal, rb"ready\$ ")
os.write(terminal, line.encode() + b"\r")
print(read_until(terminal, rb"got<([^>]*)>").group(1).decode())
os.close(terminal)
os.waitpid(child, 0)
