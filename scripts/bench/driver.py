#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""The measurements of ./run bench, one group after the other, and what is made of them: a report, a table, plots."""

import argparse
import datetime
import json
import os
import pathlib
import platform
import subprocess
import sys
import time

import jsonschema

import figures
import plots
import slices

ROOT = pathlib.Path(__file__).resolve().parents[2]


def machine():
    """What the numbers are of."""
    model = "unknown"
    for row in pathlib.Path("/proc/cpuinfo").read_text(encoding="ascii", errors="replace").splitlines():
        if row.startswith("model name"):
            model = row.partition(":")[2].strip()
    return {
        "processor": model,
        "processors": len(os.sched_getaffinity(0)),
        "memory_bytes": os.sysconf("SC_PAGESIZE") * os.sysconf("SC_PHYS_PAGES"),
        "kernel": platform.release(),
        "rdma": "software",
    }


def commit():
    """Of the checkout; what there is none of has no commit."""
    done = subprocess.run(["git", "describe", "--always", "--dirty", "--abbrev=12"], cwd=ROOT, capture_output=True,
                          text=True, check=False)
    return done.stdout.strip() or "unknown"


def measure(name, rounds, scale):
    """What one group gives, beside a camera of its own; None when it failed, which it has said."""
    address = [f"10.77.0.{number}" for number in range(3, 10)] if name == "cameras" else []
    environment = dict(os.environ, CAMERA_ARGUMENTS=slices.GROUPS[name][0], MORE_CAMERA_ADDRESSES=" ".join(address))
    done = subprocess.run(["scripts/two_hosts.sh", sys.executable, "scripts/bench/slices.py", name, str(rounds),
                           str(scale)], cwd=ROOT, env=environment, stdout=subprocess.PIPE, text=True, check=False)
    if done.returncode != 0:
        print(f"bench: the group {name} failed; it is not in the report", file=sys.stderr, flush=True)
        return None
    return json.loads(done.stdout)


def file_rate(folder):
    """The rate of nq-gev grab without files and with files of each format."""
    environment = dict(os.environ, CAMERA_ARGUMENTS=slices.still(640), GENICAM_GENTL64_PATH="build")
    done = subprocess.run(["scripts/two_hosts.sh", "scripts/bench_files.sh", "500", str(folder)], cwd=ROOT,
                          env=environment, stdout=subprocess.PIPE, text=True, check=True)
    return json.loads(done.stdout)["file_rate"]


def checked(report):
    """The report, once it fits its schema."""
    schema = json.loads((ROOT / "docs/bench.schema.json").read_text(encoding="utf-8"))
    jsonschema.Draft202012Validator(schema).validate(report)
    return report


def publish(report, folder):
    """Writes report and plots and prints the table."""
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "report.json").write_text(json.dumps(checked(report), indent=2) + "\n", encoding="utf-8")
    for name, drawing in plots.plots_of(report["figures"]).items():
        (folder / name).write_text(drawing, encoding="utf-8")
    print("\n".join(figures.table(report["figures"])))
    for one in report["left_out"]:
        print(f"left out: {one['name']} at {one['at']}: {one['reason']}")
    for name, median in report["steps"].items():
        print(f"{name}: {median:.1f}")


def report_of(measured, quick, rounds, seconds):
    """The report out of what the groups gave."""
    rows = [row for one in measured for row in one["rows"]]
    return {
        "schema": 1,
        "quick": quick,
        "rounds": rounds,
        "commit": commit(),
        "date": datetime.datetime.now(datetime.timezone.utc).date().isoformat(),
        "machine": machine(),
        "seconds": seconds,
        "figures": figures.figures_of(rows, judge=not quick),
        "left_out": [row for one in measured for row in one["left_out"]],
        "steps": {name: value for one in measured for name, value in one["steps"].items()},
    }


def main():
    """Measures what is asked for."""
    parser = argparse.ArgumentParser(prog="./run bench")
    parser.add_argument("--quick", action="store_true", help="each figure once and shortly, judging none")
    parser.add_argument("--rounds", type=int, help="how often each figure is measured; 7, or 1 with --quick")
    parser.add_argument("--only", nargs="+", choices=slices.GROUPS, default=list(slices.GROUPS), metavar="GROUP",
                        help="some of: " + ", ".join(slices.GROUPS))
    parser.add_argument("--out", type=pathlib.Path, default=ROOT / "out/bench", help="folder for report and plots")
    options = parser.parse_args()
    rounds = options.rounds or (1 if options.quick else 7)
    started = time.monotonic()
    measured = []
    for name in options.only:
        print(f"{time.monotonic() - started:5.0f} s: {name}", file=sys.stderr, flush=True)
        measured.append(measure(name, rounds, 0.2 if options.quick else 1))
    whole = [one for one in measured if one is not None]
    report = report_of(whole, options.quick, rounds, time.monotonic() - started)
    if not options.quick and set(options.only) == set(slices.GROUPS):
        report["file_rate"] = file_rate(options.out)
    report["seconds"] = time.monotonic() - started
    publish(report, options.out)
    return 0 if len(whole) == len(measured) else 1


if __name__ == "__main__":
    sys.exit(main())
