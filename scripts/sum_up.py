#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Sums up a JUnit file of ctest: failures with their output, skips with their reasons, and the closing count."""
import sys
import xml.etree.ElementTree as ElementTree


def reason_of_skip(output):
    """The text that a skipped case printed, on one line."""
    lines = [line.strip() for line in output.splitlines()]
    begin = next((i for i, line in enumerate(lines) if "Skipped" in line), None)
    if begin is None:
        return "no reason given"
    return next((line for line in lines[begin + 1:] if line and not line.startswith("[")), lines[begin])


def main(path):
    passed, failed, skipped = 0, 0, 0
    try:
        cases = ElementTree.parse(path).getroot().iter("testcase")
    except (OSError, ElementTree.ParseError) as error:
        print(f"no test results: {error}", file=sys.stderr)
        return 1
    for case in cases:
        output = case.findtext("system-out") or ""
        status = case.get("status")
        if status == "run":
            passed += 1
        elif status in ("notrun", "disabled") and case.find("skipped") is not None and "Skipped" in output:
            skipped += 1
            print(f"skipped {case.get('name')}: {reason_of_skip(output)}")
        else:
            failed += 1
            print(f"FAILED {case.get('name')}\n{output[-4000:]}")
    print(f"{passed} passed, {failed} failed, {skipped} skipped")
    return 0 if failed == 0 and passed > 0 else 1


sys.exit(main(sys.argv[1]))
