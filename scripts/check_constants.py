#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints each constant of tests/ that is not called kName, and fails when there is one: constexpr anywhere, const at
namespace scope, static const. Elsewhere clang-tidy holds the names; it would take minutes for the tests."""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
# What declares a constant, its type, its name. Behind the name of a function stands a parenthesis.
CONSTANT = re.compile(r"^(?:(?: *(?:inline |static |thread_local )*constexpr |(?:inline |static )*const | +static const )"
                      r"[\w:<>, *&()]*?[ *&>])(?!k[A-Z]|operator\b)(\w+)(?:\[[^]]*\])* *(?:=|\{|;)")


def main():
    found = [f"{path.relative_to(ROOT)}:{number}: {constant[1]}"
             for path in sorted((ROOT / "tests").rglob("*")) if path.suffix in (".h", ".cpp")
             for number, line in enumerate(path.read_text().split("\n"), 1) if (constant := CONSTANT.match(line))]
    print("\n".join(found), end="\n" if found else "")
    return 1 if found else 0


sys.exit(main())
