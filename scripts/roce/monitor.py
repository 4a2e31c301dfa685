#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""monitor.py SOCKET COMMAND: gives QEMU one command of its monitor and waits until it is done."""
import json
import socket
import sys


def ask(stream, request):
    stream.write(json.dumps(request) + "\n")
    stream.flush()
    while True:
        answer = json.loads(stream.readline())
        if "return" in answer:
            return answer["return"]
        if "error" in answer:
            sys.exit(f"monitor: {answer['error']['desc']}")


with socket.socket(socket.AF_UNIX) as connection:
    connection.settimeout(30)
    connection.connect(sys.argv[1])
    with connection.makefile("rw") as lines:
        lines.readline()
        ask(lines, {"execute": "qmp_capabilities"})
        text = ask(lines, {"execute": "human-monitor-command", "arguments": {"command-line": sys.argv[2]}})
        if text.strip():
            sys.exit(f"monitor: {sys.argv[2]}: {text.strip()}")
