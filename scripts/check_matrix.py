# SPDX-License-Identifier: Apache-2.0
"""Tries gentl-check on the made-up producer with each of its faults, and compares what it finds with faults.txt.

usage: check_matrix.py BUILD_FOLDER FAULTS_TXT [NAME...]: all faults, or those named. Prints rules by faults. Exit code 1
when a fault is found by no rule or by others than the file says, when a rule finds no fault, when the producer without faults
breaks a rule, or when the file and the code of the producer name different faults.
"""
import concurrent.futures
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys


def check(build, producer, fault):
    """The rules that are broken, and those that are kept."""
    environment = dict(os.environ, NQ_FAULTS=fault)
    done = subprocess.run([build / "gentl-check", "--json", producer], env=environment, capture_output=True, text=True)
    try:
        answer = json.loads(done.stdout)
    except json.JSONDecodeError:
        return {f"no answer, exit code {done.returncode}: {done.stderr}"}, set()
    if "problem" in answer:
        return {"LOAD"}, set()
    outcomes = {one["id"]: one["outcome"] for one in answer["findings"]}
    broken = {rule for rule, outcome in outcomes.items() if outcome in ("failed", "warned")}
    return broken, {rule for rule, outcome in outcomes.items() if outcome == "passed"}


def read_faults(path):
    faults = {}
    for line in path.read_text().splitlines():
        words = line.split("#")[0].split()
        if words:
            faults[words[0]] = set(words[1:])
    return faults


def faults_of_the_code(folder):
    return {name for file in folder.glob("*.cpp") for name in re.findall(r'Fault\("(\w+)"\)', file.read_text())}


def compare(build, expected, names):
    folder = build / "tests/support/faulty_producer"
    whole = folder / "nq_faulty_whole.cti"
    shutil.copy(whole, folder / "nq_faulty_whole.so")

    def one(name):
        if name.startswith("file:"):
            return name, check(build, folder / name[5:], "")[0]
        return name, check(build, whole, name)[0]

    wrong = []
    found = {}
    # A run waits for nine tenths of its time: for frames, events and what a fault makes hang.
    with concurrent.futures.ThreadPoolExecutor(max_workers=10 * (os.cpu_count() or 1)) as pool:
        for name, broken in pool.map(one, names):
            found[name] = broken
            print(f"{name:<30} {' '.join(sorted(broken)) or '-'}", flush=True)
            if not broken:
                wrong.append(f"{name}: no rule finds it")
            elif broken != expected[name]:
                wrong.append(f"{name}: found by {sorted(broken)} instead of {sorted(expected[name])}")
    return found, wrong


def main():
    build, path = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    expected = read_faults(path)
    names = sys.argv[3:] or list(expected)
    broken, kept = check(build, build / "tests/support/faulty_producer/nq_faulty_whole.cti", "")
    wrong = [f"without a fault: {rule} is broken" for rule in sorted(broken)]
    found, differences = compare(build, expected, names)
    wrong += differences
    if not sys.argv[3:]:
        finders = set().union(*found.values())
        rules = set(re.findall(r"^  ([A-Z]{2}-\d{3})", subprocess.check_output(
            [build / "gentl-check", "--list"], text=True), re.MULTILINE))
        wrong += [f"{rule}: no fault trips it" for rule in sorted(rules - finders)]
        wrong += [f"{rule}: not tried on the producer without faults" for rule in sorted(rules - kept - broken)]
        in_code = faults_of_the_code(path.parent)
        named = {name for name in expected if not name.startswith("file:")}
        wrong += [f"{name}: in the code of the producer or in the list, not in both" for name in sorted(in_code ^ named)]
        print(f"\n{len(expected)} faults, {len(rules)} rules")
    print("\n".join(wrong))
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
