#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""coverage_table.py COVERAGE.JSON FOLDER: prints lines and branches executed, for each folder of src/, and writes what
was missed to FOLDER/NAME.txt. The report is gcovr's."""
import collections
import json
import os
import sys

# What the lines and the branches of each folder have to reach, in percent. The RDMA layer asks for lines alone.
WANTED = {"entry": (98, 90), "gentl": (98, 90), "gev": (98, 90), "gige": (98, 90), "rdma": (98, 0), "sync": (98, 90)}


class Tally:
    """Lines and branches of one folder: how many, and how many of them were executed."""

    def __init__(self):
        self.lines = self.lines_hit = self.branches = self.branches_hit = 0
        self.missed = []

    def add(self, path, line):
        taken = [branch["count"] > 0 for branch in line["branches"]]
        self.lines += 1
        self.lines_hit += line["count"] > 0
        self.branches += len(taken)
        self.branches_hit += sum(taken)
        if line["count"] == 0:
            self.missed.append(f"{path}:{line['line_number']}: not executed")
        elif not all(taken):
            self.missed.append(f"{path}:{line['line_number']}: {len(taken) - sum(taken)} of {len(taken)} branches not taken")

    def shares(self):
        return tuple(100 * hit / count if count else 100
                     for hit, count in ((self.lines_hit, self.lines), (self.branches_hit, self.branches)))


def main(report, folder):
    tallies = collections.defaultdict(Tally)
    with open(report, encoding="utf-8") as file:
        for source in json.load(file)["files"]:
            name = os.path.basename(os.path.dirname(source["file"]))
            for line in source["lines"]:
                if not line.get("gcovr/noncode"):
                    tallies[name].add(source["file"], line)
    below = not tallies
    print("folder      lines    executed  branches    executed")
    for name, tally in sorted(tallies.items()):
        lines, branches = tally.shares()
        short = lines < WANTED[name][0] or branches < WANTED[name][1]
        below |= short
        print(f"{name:8} {tally.lines:8} {lines:9.1f} % {tally.branches:9} {branches:9.1f} %{'  too few' if short else ''}")
        with open(os.path.join(folder, f"{name}.txt"), "w", encoding="utf-8") as missed:
            missed.write("\n".join(tally.missed) + "\n")
    return 1 if below else 0


sys.exit(main(*sys.argv[1:]))
