#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""faults.py PROGRAM_FOLDER RESULT_FOLDER PROGRAM...: runs each case of the programs in a process of its own and prints
the table of the rows they record. Exit code 1 when a case fails."""
import concurrent.futures
import json
import os
import subprocess
import sys
import textwrap

COLUMNS = [("fault", 26), ("sees", 44), ("after", 8), ("next", 22), ("as expected", 11)]


def cases(program):
    """Full names of the cases of one program."""
    listed = subprocess.run([program, "--gtest_list_tests"], capture_output=True, text=True, check=True).stdout
    suite = ""
    for line in listed.splitlines():
        if line and not line.startswith(" "):
            suite = line.split("#")[0].strip()
        elif line.strip():
            yield suite + line.split("#")[0].strip()


def run(program, case, results):
    """One row: the recorded properties and whether the case passed."""
    name = case.replace("/", "_")
    result = os.path.join(results, name + ".json")
    with open(os.path.join(results, name + ".log"), "w", encoding="utf-8") as log:
        try:
            code = subprocess.run([program, f"--gtest_filter={case}", f"--gtest_output=json:{result}"], stdout=log,
                                  stderr=subprocess.STDOUT, timeout=180).returncode
        except subprocess.TimeoutExpired:
            code = -1
    row = {"case": case, "ok": code == 0}
    if os.path.exists(result):
        with open(result, encoding="utf-8") as file:
            suites = json.load(file)["testsuites"]
        row.update(suites[0]["testsuite"][0] if suites else {})
    return row


def show(row):
    """Prints a row; what was seen and when stand side by side."""
    seen = row.get("sees", "").split("; ")
    times = row.get("after", "").split("; ")
    lines = []
    for what, when in zip(seen, times):
        wrapped = textwrap.wrap(what, COLUMNS[1][1]) or [""]
        lines += [(text, when if index == 0 else "") for index, text in enumerate(wrapped)]
    fault = textwrap.wrap(row.get("fault", row["case"]), COLUMNS[0][1])
    after = textwrap.wrap(row.get("next", "never came"), COLUMNS[3][1])
    for index in range(max(len(fault), len(lines), len(after))):
        what, when = lines[index] if index < len(lines) else ("", "")
        cells = [fault[index] if index < len(fault) else "", what, when, after[index] if index < len(after) else "",
                 ("yes" if row["ok"] else "NO") if index == 0 else ""]
        print("  ".join(cell.ljust(width) for cell, (_, width) in zip(cells, COLUMNS)).rstrip())
    print(flush=True)


def main(folder, results, programs):
    print("  ".join(name.ljust(width) for name, width in COLUMNS).rstrip())
    print("  ".join("-" * width for _, width in COLUMNS), flush=True)
    work = [(os.path.join(folder, name), case) for name in programs for case in cases(os.path.join(folder, name))]
    # The cases mostly wait, and each has a network of its own. Those that starve the processor come last, alone.
    starving = [item for item in work if "CpuStarved" in item[1]]
    waiting = [item for item in work if item not in starving]
    rows = []
    for items, workers in ((waiting, 3), (starving, 1)):
        with concurrent.futures.ThreadPoolExecutor(max_workers=workers) as pool:
            for row in pool.map(lambda item: run(item[0], item[1], results), items):
                show(row)
                rows.append(row)
    failed = [row["case"] for row in rows if not row["ok"]]
    for case in failed:
        print(f"not as expected: {case}; see {results}/{case.replace('/', '_')}.log", file=sys.stderr)
    return 1 if failed or not work else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2], sys.argv[3:]))
