# SPDX-License-Identifier: Apache-2.0
"""Runs single test cases against other builds of the library, and knows which lines each of them executes."""
import concurrent.futures
import hashlib
import json
import os
import re
import subprocess
import sys
import tempfile
import time

# The case sees the given files in place of those of the build, has a /tmp of its own, and nothing that it starts
# outlives it.
ENTER = """
ulimit -c 0; ulimit -f 4000000
while [ "$1" != -- ]; do mount --bind "$1" "$2"; shift 2; done
shift
case $PWD in /tmp/*) ;; *) mount -t tmpfs tmpfs /tmp ;; esac
echo ready
exec "$@" >/dev/null
"""


def run_case(build, case, replaced, limit, lines=""):
    """The exit code of PROGRAM:CASE, or None after limit seconds. replaced: {file of the build: other file}."""
    program, name = case.split(":", 1)
    command = ["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc", "sh", "-ec", ENTER, "sh"]
    for target, other in replaced.items():
        command += [other, f"{build.folder}/{target}"]
    command += ["--", f"{build.folder}/{program}", f"--gtest_filter={name}"]
    environment = dict(os.environ, NQ_LINES=lines) if lines else None
    try:
        done = subprocess.run(command, cwd=f"{build.folder}/tests", env=environment, timeout=limit, check=False,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
    except subprocess.TimeoutExpired:
        return None
    # A case that could not even start says nothing about a mutant.
    if done.stdout != b"ready\n" or done.returncode == 127:
        raise RuntimeError(f"{case} does not start")
    return done.returncode


def list_cases(build, program):
    text = subprocess.run([f"{build.folder}/{program}", "--gtest_list_tests"], check=True, stdout=subprocess.PIPE,
                          text=True).stdout
    suite, found = "", []
    for line in text.splitlines():
        name = line.split("#")[0].strip()
        if line.startswith(" "):
            found.append(f"{program}:{suite}{name}")
        else:
            suite = name
    return found


class Library:
    """The blocks of an instrumented library: {address after the call that marks the block: its (file, line) pairs}."""

    def __init__(self, path, tree):
        self.blocks = {}
        self._tree = tree + "/"
        block, starts, place = set(), False, None
        with subprocess.Popen(["objdump", "-d", "-l", "--no-show-raw-insn", path], stdout=subprocess.PIPE,
                              text=True) as objdump:
            for line in objdump.stdout:
                address = re.match(r" *([0-9a-f]+):\t(.*)", line)
                if address is None:
                    place = self._place(line) or place
                    continue
                if starts:
                    block = self.blocks.setdefault(int(address[1], 16), set())
                    starts = False
                starts = "<__sanitizer_cov_trace_pc>" in address[2] and address[2].startswith("call")
                if place and not starts:
                    block.add(place)

    def _place(self, line):
        found = re.match(r"(/.+):(\d+)(?: \(discriminator \d+\))?$", line)
        path = os.path.normpath(found[1]) if found else ""
        return (path.removeprefix(self._tree), int(found[2])) if path.startswith(self._tree) else None

    def executed(self, path):
        if not os.path.exists(path):
            return set()
        with open(path, "rb") as marks:
            data = marks.read(max(self.blocks) + 1)
        return set().union(*(places for address, places in self.blocks.items() if data[address]))


class Lines:
    """Which cases execute which line; measured once for each content of program and library."""

    def __init__(self, build, instrumented, cache, programs):
        self._build = build
        self._replaced = {name: f"{instrumented}/{name}" for name in build.libraries}
        self._libraries = {os.path.basename(name): Library(path, build.tree) for name, path in self._replaced.items()}
        self.known = {}
        for library in self._libraries.values():
            for file, line in set().union(*library.blocks.values()):
                self.known.setdefault(file, set()).add(line)
        self.by_line, self.seconds, self.breadth, self.failing = {}, {}, {}, []
        self._common = self._digest(*self._replaced.values())
        os.makedirs(cache, exist_ok=True)
        for number, program in enumerate(programs):
            if sys.stdout.isatty():
                print(f"\rlines of {number + 1} of {len(programs)} test programs", end="", flush=True)
            self._take(self._measured(program, f"{cache}/{os.path.basename(program)}.json"))
        if sys.stdout.isatty():
            print()

    @staticmethod
    def _digest(*paths):
        total = hashlib.sha256()
        for path in paths:
            with open(path, "rb") as file:
                total.update(hashlib.sha256(file.read()).digest())
        return total.hexdigest()

    def _measured(self, program, path):
        key = self._common + self._digest(f"{self._build.folder}/{program}")
        if os.path.exists(path):
            with open(path, encoding="utf-8") as file:
                record = json.load(file)
            if record["key"] == key:
                return record["cases"]
        with concurrent.futures.ThreadPoolExecutor(2 * os.cpu_count()) as pool:
            cases = dict(pool.map(self._measure, list_cases(self._build, program)))
        with open(path, "w", encoding="utf-8") as file:
            json.dump({"key": key, "cases": cases}, file)
        return cases

    def _measure(self, case):
        with tempfile.TemporaryDirectory(dir="/dev/shm") as folder:
            start = time.monotonic()
            passed = run_case(self._build, case, self._replaced, 300, folder) == 0
            seconds = time.monotonic() - start
            # One that fails on a busy machine only is no failing case.
            passed = passed or run_case(self._build, case, self._replaced, 300, folder) == 0
            places = set().union(*(library.executed(f"{folder}/{name}") for name, library in self._libraries.items()))
        lines = {}
        for file, line in sorted(places):
            lines.setdefault(file, []).append(line)
        return case, {"passed": passed, "seconds": seconds, "lines": lines}

    def _take(self, cases):
        for case, result in cases.items():
            if not result["passed"]:
                self.failing.append(case)
                continue
            self.seconds[case] = result["seconds"]
            self.breadth[case] = sum(map(len, result["lines"].values()))
            for file, lines in result["lines"].items():
                for line in lines:
                    self.by_line.setdefault(file, {}).setdefault(line, []).append(case)

    def cases_of(self, mutant, files):
        """Cases that execute the mutant, the quick and narrow ones first. Where it lies in no function, they execute
        anything of the given files."""
        found = set()
        known = self.known.get(mutant.file, set())
        if mutant.function:
            lines = {line for line in known if mutant.line <= line <= mutant.last_line}
            before = [line for line in known if mutant.function <= line < mutant.line]
            lines = lines or ({max(before)} if before else set())
            for line in lines:
                found.update(self.by_line.get(mutant.file, {}).get(line, []))
        else:
            for file in files:
                for cases in self.by_line.get(file, {}).values():
                    found.update(cases)
        return sorted(found, key=lambda case: self.seconds[case] * self.breadth[case])
