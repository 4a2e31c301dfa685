#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""sum_up.py RESULTS [REPEATED]: sums up a JUnit file of ctest: failures with their output, skips with their reasons, and
the closing count. REPEATED has the cases that failed and ran once more, alone; what they did then is what counts."""
import collections
import sys
import xml.etree.ElementTree as ElementTree


def reason_of_skip(output):
    """The text that a skipped case printed, on one line."""
    lines = [line.strip() for line in output.splitlines()]
    begin = next((i for i, line in enumerate(lines) if "Skipped" in line), None)
    if begin is None:
        return "no reason given"
    return next((line for line in lines[begin + 1:] if line and not line.startswith("[")), lines[begin])


def results(path):
    """{name: (verdict, output)} of one file; the verdict is passed, failed or skipped."""
    found = {}
    for case in ElementTree.parse(path).getroot().iter("testcase"):
        output = case.findtext("system-out") or ""
        status = case.get("status")
        if status == "run":
            verdict = "passed"
        elif status in ("notrun", "disabled") and case.find("skipped") is not None and "Skipped" in output:
            verdict = "skipped"
        else:
            verdict = "failed"
        found[case.get("name")] = (verdict, output)
    return found


def main(path, repeated=None):
    try:
        cases = results(path)
        again = results(repeated) if repeated else {}
    except (OSError, ElementTree.ParseError) as error:
        print(f"no test results: {error}", file=sys.stderr)
        return 1
    for name, (verdict, output) in again.items():
        print(f"failed beside the others, {verdict} alone: {name}")
        cases[name] = (verdict, output)
    for name, (verdict, output) in cases.items():
        if verdict == "skipped":
            print(f"skipped {name}: {reason_of_skip(output)}")
        elif verdict == "failed":
            print(f"FAILED {name}\n{output[-4000:]}")
    count = collections.Counter(verdict for verdict, _ in cases.values())
    print(f"{count['passed']} passed, {count['failed']} failed, {count['skipped']} skipped")
    return 0 if count["failed"] == 0 and count["passed"] > 0 else 1


sys.exit(main(*sys.argv[1:]))
