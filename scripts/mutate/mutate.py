# SPDX-License-Identifier: Apache-2.0
"""Draws a sample of mutants of an area of src/ and tells which of them no test notices."""
import argparse
import concurrent.futures
import fnmatch
import glob
import json
import os
import pathlib
import random
import shutil
import sys

from build import Build
from cases import Lines, list_cases, run_case
from places import Mutant, Places

AREAS = {
    "gentl-entry": ["src/gentl/*", "src/entry/*"],
    "gige-gev": ["src/gige/*", "src/gev/*"],
    "rdma": ["src/rdma/*", "src/gev/*data_stream*"],
}
KINDS = ("unit", "wire", "module", "e2e", "tools")
WANTED_PERCENT = 90
# A header line that is compiled into more objects than this is changed in the first ones of the link only.
MOST_OBJECTS = 8
MOST_PROGRAMS = 3


class Trial:
    """One mutant: its own folder, its objects and libraries, and what became of it."""

    def __init__(self, build, lines, mutant, folder):
        self._build = build
        self._lines = lines
        self._folder = folder
        self._overlay = f"{folder}/overlay"
        self.mutant = mutant
        self.killer = None
        self.ran = 0
        shutil.rmtree(folder, ignore_errors=True)
        changed = pathlib.Path(self._overlay, mutant.file.removeprefix("src/"))
        changed.parent.mkdir(parents=True)
        source = pathlib.Path(build.tree, mutant.file).read_bytes()
        changed.write_bytes(source[:mutant.begin] + mutant.text.encode() + source[mutant.end:])

    def run(self):
        """One of "invalid" (no mutant at all), "killed", "survived"."""
        units = self._units()
        objects = self._objects(units)
        if not objects:
            return "invalid"
        libraries = {name: f"{self._folder}/{os.path.basename(name)}" for name in self._build.libraries}
        for name, output in libraries.items():
            self._build.link(name, output, objects)
        if self._killed(self._lines.cases_of(self.mutant, units), libraries):
            return "killed"
        if self.mutant.file.endswith(".h") and self._killed_in_programs(objects, libraries):
            return "killed"
        return "invalid" if self._same_when_optimised(objects) else "survived"

    def _units(self):
        if self.mutant.file.endswith(".cpp"):
            return [self.mutant.file]
        units = self._build.dependents(self.mutant.file, "src/")
        return units[:MOST_OBJECTS] if self.mutant.function else units

    def _objects(self, units):
        """{object of the build: changed object}; none when one does not compile or nothing changes."""
        changed = {}
        for unit in units:
            old = self._build.object_of(unit)
            new = f"{self._folder}/{old}"
            if not self._build.compile(unit, self._overlay, new):
                return {}
            if pathlib.Path(new).read_bytes() != pathlib.Path(self._build.folder, old).read_bytes():
                changed[old] = new
        return changed

    def _killed(self, cases, replaced):
        for case in cases:
            limit = 15 + 5 * self._lines.seconds.get(case, 1)
            self.ran += 1
            code = run_case(self._build, case, replaced, limit)
            # A failure counts when it repeats itself: a busy machine kills nothing.
            if code is None or (code != 0 and run_case(self._build, case, replaced, limit) != 0):
                self.killer = f"{case} ({'timeout' if code is None else f'exit code {code}'})"
                return True
        return False

    def _killed_in_programs(self, objects, libraries):
        """Inline code is also compiled into the tests of its header."""
        header = f'#include "{self.mutant.file.removeprefix("src/")}"'
        programs = [(program, unit) for program, unit in self._build.programs(KINDS).items()
                    if header in pathlib.Path(self._build.tree, unit).read_text(encoding="utf-8")]
        for program, unit in programs[:MOST_PROGRAMS]:
            old = self._build.object_of(unit)
            new = f"{self._folder}/{old}"
            if not self._build.compile(unit, self._overlay, new):
                continue
            output = f"{self._folder}/{os.path.basename(program)}"
            self._build.link(program, output, {**objects, old: new})
            cases = [case for case in list_cases(self._build, program) if case in self._lines.seconds]
            if self._killed(cases, {**libraries, program: output}):
                return True
        return False

    def _same_when_optimised(self, objects):
        """True for a change that the optimiser proves to be none."""
        sources = {self._build.object_of(unit): unit for unit in self._units()}
        for old in objects:
            pair = [f"{self._folder}/optimised.o", f"{self._folder}/optimised_changed.o"]
            for output, overlay in zip(pair, ("/nonexistent", self._overlay)):
                if not self._build.compile(sources[old], overlay, output, "-O2"):
                    return False
            if pathlib.Path(pair[0]).read_bytes() != pathlib.Path(pair[1]).read_bytes():
                return False
        return True


class Sample:
    """The mutants of an area by name, FILE:LINE or FILE:LINE#N for the Nth of a line."""

    def __init__(self, build, area, cache):
        self._build = build
        self._cache = cache
        self.names = {}
        files = {file for pattern in AREAS[area] for file in glob.glob(pattern, root_dir=build.tree)}
        for file in sorted(file for file in files if fnmatch.fnmatch(file, "*.cpp") or file.endswith(".h")):
            count = {}
            for mutant in self._mutants(file):
                count[mutant.line] = count.get(mutant.line, 0) + 1
                self.names[mutant] = f"{file}:{mutant.line}#{count[mutant.line]}"

    def _mutants(self, file):
        source = pathlib.Path(self._build.tree, file).read_text(encoding="utf-8")
        path = pathlib.Path(self._cache, file.replace("/", "_") + ".json")
        if path.exists():
            record = json.loads(path.read_text(encoding="utf-8"))
            if record["source"] == source:
                return [Mutant(*fields) for fields in record["mutants"]]
        found = Places(self._build.tree, file, self._build.arguments(file)).sorted()
        path.parent.mkdir(parents=True, exist_ok=True)
        fields = [list(vars(mutant).values()) for mutant in found]
        path.write_text(json.dumps({"source": source, "mutants": fields}), encoding="utf-8")
        return found

    def drawn(self, seed):
        mutants = list(self.names)
        random.Random(seed).shuffle(mutants)
        return mutants

    def selected(self, names):
        wanted = [m for m, name in self.names.items() if name in names or name.split("#")[0] in names]
        missing = set(names) - {self.names[m] for m in wanted} - {self.names[m].split("#")[0] for m in wanted}
        if missing:
            sys.exit(f"run: no mutant at {' '.join(sorted(missing))}")
        return wanted

    def difference(self, mutant):
        """The lines of the mutant before and after, as of a diff."""
        source = pathlib.Path(self._build.tree, mutant.file).read_bytes()
        begin = source.rfind(b"\n", 0, mutant.begin) + 1
        end = source.find(b"\n", mutant.end)
        new = source[begin:mutant.begin] + mutant.text.encode() + source[mutant.end:end]
        return "\n".join(f"    {sign} {line.strip()}" for sign, text in (("-", source[begin:end]), ("+", new))
                         for line in text.decode().splitlines())


def try_all(sample, mutants, wanted, attempt, log):
    """Tries mutants in their order until wanted of them are valid. (number of killed, number of survivors)."""
    killed, survived = 0, 0
    remaining = iter(mutants)
    with concurrent.futures.ThreadPoolExecutor(2 * os.cpu_count()) as pool:
        while killed + survived < wanted:
            batch = [m for _, m in zip(range(wanted - killed - survived), remaining)]
            if not batch:
                break
            for done in concurrent.futures.as_completed([pool.submit(attempt, m) for m in batch]):
                fate, trial = done.result()
                name = sample.names[trial.mutant]
                killed += fate == "killed"
                survived += fate == "survived"
                print(f"{name} {fate} {trial.killer or ''}\n{sample.difference(trial.mutant)}", file=log, flush=True)
                if fate == "survived":
                    print(f"{name} survived {trial.ran} cases\n{sample.difference(trial.mutant)}", flush=True)
                elif fate == "killed" and killed % 10 == 0:
                    print(f"{killed} killed so far", flush=True)
    return killed, survived


def main():
    parser = argparse.ArgumentParser(prog="./run mutate")
    parser.add_argument("area", choices=AREAS)
    parser.add_argument("--count", type=int, default=100)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--only", nargs="+", metavar="FILE:LINE[#N]", help="these mutants instead of a sample")
    parser.add_argument("--folder", required=True, help=argparse.SUPPRESS)
    given = parser.parse_args()
    build = Build(given.folder)
    sample = Sample(build, given.area, f"{given.folder}/places")
    mutants = sample.selected(given.only) if given.only else sample.drawn(given.seed)
    wanted = len(mutants) if given.only else given.count
    lines = Lines(build, f"{given.folder}/build-lines", f"{given.folder}/lines", build.programs(KINDS))
    for case in lines.failing:
        print(f"left out, it fails without any mutant: {case}")
    print(f"{wanted} of {len(sample.names)} mutants of {given.area}" + ("" if given.only else f", seed {given.seed}"))

    def attempt(mutant):
        folder = f"{given.folder}/trials/{sample.names[mutant].replace('/', '_')}"
        trial = Trial(build, lines, mutant, folder)
        fate = trial.run()
        shutil.rmtree(folder)
        return fate, trial

    with open(f"{given.folder}/{given.area}.log", "w", encoding="utf-8") as log:
        killed, survived = try_all(sample, mutants, wanted, attempt, log)
    count = killed + survived
    percent = 100 * killed / count if count else 0
    print(f"{count} mutants, {killed} killed ({percent:.0f} %), {survived} survived")
    return 0 if percent >= WANTED_PERCENT else 1


if __name__ == "__main__":
    sys.exit(main())
