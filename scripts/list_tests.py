#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Prints the tests of ctest's JSON listing by kind and subject, each requirement in plain words."""
import collections
import json
import re
import sys

subjects = collections.defaultdict(list)
for test in json.load(sys.stdin)["tests"]:
    kind, _, rest = test["name"].partition(".")
    subject, _, requirement = rest.partition(".")
    words = re.sub(r"(?<=[a-z0-9])(?=[A-Z])|_", " ", requirement)
    subjects[(kind, subject)].append(words)
for (kind, subject), requirements in sorted(subjects.items()):
    print(f"{kind}: {subject}")
    for requirement in requirements:
        print(f"    {requirement}")
