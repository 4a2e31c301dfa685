#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""show_progress.py LOG [--terminal]: copies what ctest prints to LOG. On a terminal it shows which of how many cases have
ended, and the one that started last. After ^C it says how far the run came; the exit code is 130 then."""
import re
import signal
import sys
import time

STARTED = re.compile(r" +Start +\d+: (\S+)")
ENDED = re.compile(r" *(\d+)/(\d+) +Test +#\d+: (\S+) \.*(\S.*)")
BAD = ("Failed", "Timeout", "Exception", "Not Run")


class Progress:
    def __init__(self):
        self.begin = time.monotonic()
        self.done, self.total, self.failed, self.case = 0, "?", 0, ""
        self.interrupted = False

    def text(self):
        return f"{self.done} of {self.total} cases, {self.failed} failed, {time.monotonic() - self.begin:.0f} s"

    def take(self, line):
        """The name of a case that has failed, or nothing."""
        if started := STARTED.match(line):
            self.case = started[1]
        elif ended := ENDED.match(line):
            self.done, self.total = int(ended[1]), ended[2]
            if any("***" + word in ended[4] for word in BAD):
                self.failed += 1
                return ended[3]
        return ""

    def interrupt(self, *_):
        self.interrupted = True


def main(path, terminal):
    progress = Progress()
    signal.signal(signal.SIGINT, progress.interrupt)
    clear = "\r\033[K" if terminal else ""
    sys.stdin.reconfigure(encoding="utf-8", errors="replace")
    with open(path, "w", encoding="utf-8") as log:
        for line in sys.stdin:
            log.write(line)
            log.flush()
            failed = progress.take(line)
            if terminal:
                told = f"{clear}{failed} failed\n" if failed else ""
                shown = f"{progress.text()}, {progress.case}"
                print(f"{told}{clear}{shown[:78]}", end="", flush=True)
    print(clear, end="")
    if progress.interrupted:
        print(f"ended by ^C after {progress.text()}; see {path}")
    return 130 if progress.interrupted else 0


sys.exit(main(sys.argv[1], "--terminal" in sys.argv[2:]))
