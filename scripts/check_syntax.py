#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""check_syntax.py BUILD_FOLDER [LEFT_OUT...]: runs every compile command of the folder with -fsyntax-only, in parallel,
but those of C++ files below the folders left out that are the same with and without a sanitizer."""
import concurrent.futures
import json
import os
import shlex
import subprocess
import sys


def check(command):
    """The compiler's complaints about one file; an empty text when there are none."""
    words = shlex.split(command["command"])
    output = words.index("-o")
    del words[output:output + 2]
    result = subprocess.run(words + ["-fsyntax-only"], cwd=command["directory"], capture_output=True, text=True)
    return "" if result.returncode == 0 else f"{command['file']} ({words[0]}):\n{result.stderr}"


def is_left_out(path, root, folders):
    if not path.endswith(".cpp") or not os.path.relpath(path, root).startswith(folders):
        return False
    with open(path, encoding="utf-8") as file:
        return "SANITIZE" not in file.read()


def main(folder, *left_out):
    root = os.path.dirname(os.path.abspath(folder))
    with open(os.path.join(folder, "compile_commands.json"), encoding="utf-8") as file:
        commands = [command for command in json.load(file)
                    # Precompiled headers have been built.
                    if not command["file"].endswith("cmake_pch.hxx.cxx")
                    and not is_left_out(command["file"], root, left_out)]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        complaints = [text for text in pool.map(check, commands) if text]
    print("\n".join(complaints), end="")
    print(f"{len(commands)} compilations, {len(complaints)} with complaints")
    return 1 if complaints or not commands else 0


sys.exit(main(*sys.argv[1:]))
