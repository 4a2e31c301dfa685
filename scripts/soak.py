#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""soak.py MINUTES PROGRAM RESULT_FOLDER: runs the phases of the endurance program side by side, a process each, shows
their progress, and judges what each held from beginning to end. Exit code 1 when something was lost, grew, or was not
reached in the time."""
import os
import subprocess
import sys
import threading
import time

# Amounts for 20 minutes, and the camera that the phase has for itself.
FULL_MINUTES = 20
PHASES = {
    "frames": (10_000_000, "SOAK0"),
    "acquisitions": (1000, "SOAK1"),
    "opens": (2000, "SOAK2"),
    "updates": (10_000, "SOAK2"),
    "loads": (1000, ""),
}
HELD = ("threads", "descriptors", "resident KiB")
# Threads and descriptors stay as they are; memory may wander by this much, as allocators keep pages back.
MEMORY_SLACK_KB = 2048


class Phase:
    """One process and its samples (seconds, done, threads, descriptors, resident KiB)."""

    def __init__(self, name, total, serial, program, log):
        self.name, self.total, self.samples, self.last = name, total, [], ""
        self.log = log
        self.begin = time.monotonic()
        self.process = subprocess.Popen([program, name, str(total), serial], stdout=subprocess.PIPE,
                                        stderr=subprocess.STDOUT, text=True)
        self.reader = threading.Thread(target=self.read)
        self.reader.start()

    def read(self):
        with open(self.log, "w", encoding="utf-8") as log:
            for line in self.process.stdout:
                log.write(line)
                words = line.split()
                if words and words[0] == "sample":
                    self.samples.append((time.monotonic() - self.begin, *map(int, words[1:])))
                else:
                    self.last = line.strip()

    def done(self):
        return self.samples[-1][1] if self.samples else 0

    def finish(self):
        """Ends the process if it still runs, and waits for it."""
        if self.process.poll() is None:
            self.process.terminate()
        self.process.wait()
        self.reader.join()

    def faults(self):
        """What is wrong with the phase, one text each."""
        found = []
        if self.last != "done":
            found.append(self.last or f"ended with {self.process.returncode} after {self.done()} of {self.total}")
        # The first tenth is for what is made once.
        settled = [sample[2:] for sample in self.samples if sample[1] >= self.total / 10]
        if len(settled) < 4:
            return found + ["too few samples to tell whether it grows"]
        half = len(settled) // 2
        for index, name in enumerate(HELD):
            early = max(sample[index] for sample in settled[:half])
            late = min(sample[index] for sample in settled[half:]) if index < 2 else \
                sum(sample[index] for sample in settled[half:]) // (len(settled) - half)
            if late > early + (MEMORY_SLACK_KB if index == 2 else 0):
                found.append(f"{name} grew from {early} to {late}")
        return found


def plot(phases, path):
    """The three quantities over time, a line for each phase."""
    import matplotlib
    matplotlib.use("Agg")
    from matplotlib import pyplot
    figure, axes = pyplot.subplots(3, 1, sharex=True, figsize=(10, 9))
    for index, (axis, name) in enumerate(zip(axes, HELD)):
        for phase in phases:
            axis.plot([sample[0] for sample in phase.samples], [sample[2 + index] for sample in phase.samples],
                      label=f"{phase.name} ({phase.done()})")
        axis.set_ylabel(name)
        axis.set_ylim(bottom=0)
        axis.grid(True)
    axes[0].legend(loc="upper right")
    axes[2].set_xlabel("seconds")
    figure.tight_layout()
    figure.savefig(path)


def watch(phases, deadline):
    """Shows the progress until every phase has ended or the time is over."""
    terminal = sys.stdout.isatty()
    shown = 0.0
    while any(phase.process.poll() is None for phase in phases) and time.monotonic() < deadline:
        time.sleep(0.2)
        if time.monotonic() - shown < (1 if terminal else 30):
            continue
        shown = time.monotonic()
        line = "  ".join(f"{phase.name} {phase.done()}/{phase.total}" for phase in phases)
        print(f"\r{deadline - shown:5.0f} s left  {line}", end="" if terminal else "\n", flush=True)
    if terminal:
        print()


def main(minutes, program, results):
    scale = min(1.0, minutes / FULL_MINUTES)
    deadline = time.monotonic() + minutes * 60
    phases = [Phase(name, max(10, int(total * scale)), serial, program, os.path.join(results, name + ".log"))
              for name, (total, serial) in PHASES.items()]
    watch(phases, deadline)
    for phase in phases:
        phase.finish()
    failed = False
    for phase in phases:
        faults = phase.faults()
        failed = failed or bool(faults)
        held = ", ".join(f"{value} {name}" for value, name in zip(phase.samples[-1][2:], HELD)) if phase.samples else ""
        print(f"{phase.name}: {phase.done()} of {phase.total}; {held}; {'; '.join(faults) or 'nothing lost, flat'}")
    picture = os.path.join(results, "soak.png")
    plot(phases, picture)
    print(f"plot: {picture}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(int(sys.argv[1]), sys.argv[2], sys.argv[3]))
