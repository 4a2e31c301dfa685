#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""check_commands.py FOLDER: every command in a fenced block of a page below the folder stands in its docs/commands.txt with what
runs it, nothing else stands there, and what is said to run it is there: a case of tests/, a line of .ci/run or scripts/all.sh, a script.
`hardware` and `by hand` say that nothing does. Exit code 1 when one of these does not hold."""
import collections
import glob
import os
import re
import sys

from check_links import pages

COMMAND = re.compile(r"(\./run|(build/|/usr/bin/)?(nq-|gentl-check|examples/|python3)|scripts/|(\S*/)?with_camera\.sh|cmake|cc|gdb|docker"
                     r"|export|sudo|git|ninja|ctest|apt-get|apt|systemctl|ssh|\. /|[A-Z_]+=\S+ \S)")


def commands(page):
    """The lines that begin as commands do, without the remarks behind them."""
    with open(page, encoding="utf-8") as file:
        blocks = re.findall(r"^ *```\w*\n(.*?)^ *```", file.read(), flags=re.MULTILINE | re.DOTALL)
    for line in "".join(blocks).splitlines():
        command = re.sub(r"\s+# .*$", "", line.strip())
        if COMMAND.match(command):
            yield command


def read_table(path):
    table = {}
    with open(path, encoding="utf-8") as file:
        for line in file:
            if line.strip() and not line.startswith("#"):
                command, _, runs = line.rstrip("\n").rpartition(" -> ")
                table[command.strip()] = runs.strip()
    return table


def cases(folder):
    found = set()
    for path in glob.glob(os.path.join(folder, "tests/*/*.cpp")):
        with open(path, encoding="utf-8") as file:
            found.update(".".join(names) for names in re.findall(r"^TEST(?:_[FP])?\((\w+), (\w+)\)", file.read(), flags=re.MULTILINE))
    return found


def is_there(runs, folder, known):
    if runs in ("hardware", "by hand"):
        return True
    if runs == ".ci/run" or runs.startswith("scripts/"):
        return os.path.exists(os.path.join(folder, runs))
    return runs in known


def runs_itself(command, runs, folder):
    """Whether a script that is said to run the command has a line with it."""
    if runs not in (".ci/run", "scripts/all.sh"):
        return True
    with open(os.path.join(folder, runs), encoding="utf-8") as file:
        return " ".join(command.split()[:2]) in file.read()


def main(folder):
    table, known = read_table(os.path.join(folder, "docs/commands.txt")), cases(folder)
    used, bad, counts = set(), [], collections.Counter()
    for page in sorted(pages(folder)):
        for command in commands(page):
            used.add(command)
            if command not in table:
                bad.append(f"{os.path.relpath(page, folder)}: nobody says what runs: {command}")
    bad += [f"docs/commands.txt: no page has: {command}" for command in sorted(set(table) - used)]
    for command, runs in table.items():
        counts[runs if runs in ("hardware", "by hand") else "run"] += 1
        if not is_there(runs, folder, known) or not runs_itself(command, runs, folder):
            bad.append(f"docs/commands.txt: {runs} does not run: {command}")
    print("\n".join(bad + [f"{counts['run']} commands run by tests, {counts['hardware']} need hardware, {counts['by hand']} are run by "
                           f"hand, {len(bad)} wrong"]))
    return 1 if bad or not counts["run"] else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
