# SPDX-License-Identifier: Apache-2.0
"""Sums up the logs of ./run fuzz: fuzz_table.py TARGET...; exit code 1 when a target crashed or did not run."""

import pathlib
import re
import sys

FOLDER = pathlib.Path("out/fuzz")


def last(pattern, text):
    found = re.findall(pattern, text)
    return int(found[-1]) if found else 0


def main():
    failed = False
    print(f"{'target':<14} {'runs':>10} {'seconds':>8} {'edges':>7} {'crashes':>8}")
    for target in sys.argv[1:]:
        log = (FOLDER / f"{target}.log").read_text(errors="replace")
        seconds = (FOLDER / f"{target}.seconds").read_text().strip()
        crashes = [path for kind in ("crash", "leak", "timeout", "oom") for path in FOLDER.glob(f"{target}-{kind}-*")]
        runs = last(r"number_of_executed_units: *(\d+)", log)
        edges = last(r"cov: (\d+)", log)
        print(f"{target:<14} {runs:>10} {seconds:>8} {edges:>7} {len(crashes):>8}")
        broken = re.findall(r"^broken: .*|^\w+ gave .*|^SUMMARY: .*|^==\d+== ?ERROR: .*", log, re.MULTILINE)
        for path in crashes:
            print(f"    {path}: {broken[0] if broken else 'see ' + target + '.log'}")
        if runs == 0:
            print(f"    inconclusive: no run at all, see {FOLDER / (target + '.log')}")
        # A run that ends without its last word has found something, whether or not it left a file.
        failed = failed or bool(crashes) or runs == 0 or not re.search(r"^Done \d+ runs", log, re.MULTILINE)
    return 1 if failed else 0


sys.exit(main())
