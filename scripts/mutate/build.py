# SPDX-License-Identifier: Apache-2.0
"""The private copy of the tree and its build; compiles and links single mutants beside it."""
import json
import os
import pathlib
import shlex
import subprocess


def output_of(*command, **options):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True, **options).stdout


def copy_tree(source, target):
    """Makes target hold what git knows or would add of source; files of the same content keep their time."""
    names = set(output_of("git", "-C", source, "ls-files", "-co", "--exclude-standard").splitlines())
    for name in names:
        old, new = pathlib.Path(source, name), pathlib.Path(target, name)
        if not old.exists() or (new.exists() and new.read_bytes() == old.read_bytes()):
            continue
        new.parent.mkdir(parents=True, exist_ok=True)
        new.write_bytes(old.read_bytes())
        new.chmod(old.stat().st_mode)
    for path in pathlib.Path(target).rglob("*"):
        name = str(path.relative_to(target))
        if path.is_file() and not (name in names and pathlib.Path(source, name).exists()):
            path.unlink()


class Build:
    """A finished build of the tree copy."""

    def __init__(self, folder):
        self.tree = f"{folder}/tree"
        self.folder = f"{folder}/build"
        producer = os.path.realpath(f"{self.folder}/libnq_gev_rdma_tl.cti")
        self.libraries = ["src/libnq_layers.so", os.path.basename(producer)]
        self._links = {}
        with open(f"{self.folder}/compile_commands.json", encoding="utf-8") as commands:
            entries = json.load(commands)
        self._compiles = {os.path.relpath(e["file"], self.tree): shlex.split(e["command"]) for e in entries}
        self._dependents = self._read_dependencies()

    def _read_dependencies(self):
        """For each file of the tree the sources that include it, those of the layers in the order of their link."""
        users, unit = {}, None
        objects = {command[command.index("-o") + 1]: source for source, command in self._compiles.items()}
        for line in output_of("ninja", "-C", self.folder, "-t", "deps").splitlines():
            if line[:1].strip():
                unit = objects.get(line.split(":")[0])
            elif unit and line.strip().startswith(self.tree):
                users.setdefault(os.path.relpath(line.strip(), self.tree), []).append(unit)
        order = {name: at for at, name in enumerate(self._link_of(self.libraries[0]).split())}
        for units in users.values():
            units.sort(key=lambda unit: order.get(self.object_of(unit), len(order)))
        return users

    def _link_of(self, target):
        if target not in self._links:
            last = output_of("ninja", "-C", self.folder, "-t", "commands", target).splitlines()[-1]
            self._links[target] = last
        return self._links[target]

    def object_of(self, unit):
        """The object file of a source, relative to the build."""
        command = self._compiles[unit]
        return command[command.index("-o") + 1]

    def dependents(self, file, prefix):
        return [unit for unit in self._dependents.get(file, []) if unit.startswith(prefix)]

    def arguments(self, file):
        """Arguments with which libclang parses a file."""
        return ["-x", "c++", "-std=c++20", f"-I{self.tree}/src", f"-I{self.tree}/include"]

    def compile(self, unit, overlay, output, *extra):
        """Compiles a source with the files of the overlay folder before those of src/. False when it does not."""
        command = list(self._compiles[unit])
        if os.path.basename(command[0]) == "ccache":
            command.pop(0)
        command[command.index("-o") + 1] = output
        changed = f"{overlay}/{unit.removeprefix('src/')}"
        if os.path.exists(changed):
            command[-1] = changed
        command[1:1] = [f"-I{overlay}"]
        command[-2:-2] = ["-w", *extra]
        os.makedirs(os.path.dirname(output), exist_ok=True)
        return subprocess.run(command, cwd=self.folder, stderr=subprocess.DEVNULL, check=False).returncode == 0

    def link(self, target, output, objects):
        """Links a target of the build to another place, with {object of the build: other object} instead."""
        words = [objects.get(word, word) for word in shlex.split(self._link_of(target).split("&&")[1])]
        words[words.index("-o") + 1] = output
        subprocess.run(words, cwd=self.folder, check=True, stderr=subprocess.DEVNULL)

    def programs(self, kinds):
        """{path of a test program in the build: its source}."""
        found = {}
        for unit in sorted(self._compiles):
            kind = os.path.basename(os.path.dirname(unit))
            if unit.startswith("tests/") and kind in kinds and unit.endswith("_test.cpp"):
                found[f"tests/{kind}_{os.path.basename(unit)[:-4]}"] = unit
        return found
