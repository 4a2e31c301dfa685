#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints the tests of ctest's JSON listing by kind and subject, each requirement in plain words, and behind them what
the library promises and no test names: exported functions and trace lines."""
import collections
import json
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
LITERAL = re.compile(r'"((?:[^"\\\n]|\\.)*)"')


def in_words(name):
    """'ABufferOf15BytesIsRefused/Size' gives 'A buffer of 15 bytes is refused, size'. All capitals stay."""
    parts = re.findall(r"[A-Z]+(?![a-z])|[A-Z]?[a-z]+|[0-9]+|/", name)
    text = " ".join(part if part.isupper() and len(part) > 1 else part.lower() for part in parts)
    return text[:1].upper() + text[1:].replace(" /", ",")


def print_tests(listing):
    subjects = collections.defaultdict(list)
    for test in listing["tests"]:
        kind, _, rest = test["name"].partition(".")
        subject, _, requirement = rest.partition(".")
        subjects[(kind, subject)].append(in_words(requirement))
    for (kind, subject), requirements in sorted(subjects.items()):
        print(f"{kind}: {subject}")
        for requirement in requirements:
            print(f"    {requirement}")
    print(f"{sum(map(len, subjects.values()))} tests of {len(subjects)} subjects")


def texts(folder, *endings):
    """The files without comments, each literal in one piece."""
    for path in sorted((ROOT / folder).rglob("*")):
        if path.suffix in endings:
            yield path, re.sub(r'"\s*\n\s*"', "", re.sub(r"//.*", "", path.read_text()))


def exported():
    yield from re.findall(r"X\((\w+)\)", (ROOT / "include/GenTL/GenTLFunctions.h").read_text())
    for line in (ROOT / "tests/compile/exports.txt").read_text().splitlines():
        if name := re.search(r"([A-Za-z_]\w+)(\(|$)", line.partition("#")[0]):
            yield name[1]


def trace_lines(source):
    """The beginnings of the lines that a source traces, up to their first argument. The operation's name stands beside
    the format, or at its caller."""
    for statement in re.split(r"[;{}]", source):
        literals = LITERAL.findall(statement)
        names = [text for text in literals if re.fullmatch(r"_?[A-Za-z]\w+", text) and text not in ("NQGenTL", "NULL")]
        for form in (text for text in literals if text.startswith("%s ")):
            for name in names or [""]:
                yield re.split(r"%[-#0-9]*l*[a-z]", (name + form[2:]).strip())[0].strip()


def without_a_test():
    tests = "\n".join(text for _, text in texts("tests", ".cpp", ".h", ".c"))
    named = set(re.findall(r"\w+", tests))
    for name in exported():
        if name not in named:
            yield name
    for path, text in texts("src", ".cpp", ".h"):
        for line in sorted(set(trace_lines(text))):
            if line not in tests:
                yield f'{path.name}: traces "{line}"'


print_tests(json.load(sys.stdin))
print("Without a test:")
print("\n".join(f"    {what}" for what in without_a_test()) or "    nothing")
