# SPDX-License-Identifier: Apache-2.0
"""The figures of ./run bench: what each is, what is wanted of it, and how samples become one."""

import collections
import operator
import statistics

# Of a figure with a reference the unit is that of the two measurements; the figure itself is their quotient.
UNITS = {
    "frame_rate_vs_handover": "frames/s",
    "frame_rate_vs_bare": "frames/s",
    "frame_cpu_vs_handover": "us/frame",
    "frame_cpu_vs_bare": "us/frame",
    "announced_rate_vs_handover": "frames/s",
    "announced_cpu_vs_handover": "us/frame",
    "allocations_per_frame": "",
    "copies_per_frame": "",
    "wakeups_per_frame": "",
    "syscalls_per_frame": "",
    "locks_per_frame": "",
    "notifies_per_frame": "",
    "waits_per_frame": "",
    "latency_completion_to_consumer": "us",
    "register_read_vs_udp": "reads/s",
    "register_read_vs_aravis": "reads/s",
    "memory_read_vs_aravis": "reads/s",
    "open_to_first_frame_ms": "ms",
    "start_stop_ms": "ms",
    "memory_per_block": "bytes/block",
    "start_touch": "pages",
    "info_call_ns": "ns",
    "trace_closed_ns": "ns",
    "scale_buffers": "us/frame",
    "scale_cameras": "us/frame",
    "scale_cameras_rate": "frames/s",
    "scale_modules": "ns",
}

# (figure, where) or a figure wherever it was measured: what is wanted, a comparison and a number.
WANTED = {
    ("frame_rate_vs_handover", "4 KiB"): (">=", 1.05),
    "frame_rate_vs_handover": (">=", 1.0),
    ("frame_cpu_vs_handover", "4 KiB"): ("<=", 0.9),
    ("frame_cpu_vs_handover", "64 KiB"): ("<=", 0.95),
    "frame_cpu_vs_handover": ("<=", 1.0),
    "allocations_per_frame": ("<=", 0),
    ("latency_completion_to_consumer", "p50"): ("<=", 1.0),
    ("latency_completion_to_consumer", "p99"): ("<=", 1.2),
    "register_read_vs_udp": (">=", 0.97),
    "register_read_vs_aravis": (">=", 1.0),
    "memory_read_vs_aravis": (">=", 1.0),
    "start_touch": ("<=", 0),
    "memory_per_block": ("<=", 1.02),
    "trace_closed_ns": ("<=", 2),
    ("scale_buffers", "99 over 4, stated"): ("<=", 1.1),
    ("scale_buffers", "99 over 4, standard"): ("<=", 1.1),
}
SIZES = ("4 KiB", "64 KiB", "1 MiB", "16 MiB")
for _size in SIZES:
    # Four hand-overs of a frame: fewer notifications are fewer than one wake-up for each of them.
    WANTED["notifies_per_frame", f"{_size}, library"] = ("<", 4)
    for _kind, _mode, _copies in (("library-allocated", "stated", 0), ("library-allocated", "standard", 0),
                                  ("announced", "stated", 1), ("announced", "standard", 0)):
        WANTED["copies_per_frame", f"{_size}, {_kind}, {_mode}"] = ("<=", _copies)
    # A copy of the library's against a copy of the reference's; memory of the consumer as if it were the library's.
    WANTED["announced_rate_vs_handover", f"{_size}, stated"] = (">=", 0.95)
    WANTED["announced_rate_vs_handover", f"{_size}, standard"] = WANTED.get(
        ("frame_rate_vs_handover", _size), WANTED["frame_rate_vs_handover"])
    WANTED["announced_cpu_vs_handover", f"{_size}, standard"] = WANTED.get(
        ("frame_cpu_vs_handover", _size), WANTED["frame_cpu_vs_handover"])


COMPARISONS = {">=": operator.ge, "<=": operator.le, "<": operator.lt}


def wanted_of(name, at):
    """A comparison and a number, or None for what is only reported."""
    return WANTED.get((name, at), WANTED.get(name))


def one_figure(name, at, rows, judge):
    """One entry of the report out of the rows of all rounds."""
    ours = [row["ours"] for row in rows]
    references = [row["reference"] for row in rows if row.get("reference") is not None]
    samples = [mine / other for mine, other in zip(ours, references)] if references else ours
    figure = {
        "name": name,
        "at": at,
        "unit": "ratio" if references else UNITS[name],
        "median": statistics.median(samples),
        "low": min(samples),
        "high": max(samples),
        "samples": samples,
    }
    if references:
        figure["measured_in"] = UNITS[name]
        figure["ours"] = statistics.median(ours)
        figure["reference"] = statistics.median(references)
    wanted = wanted_of(name, at)
    if wanted:
        figure["wanted"] = f"{wanted[0]} {wanted[1]}"
        if judge:
            figure["met"] = COMPARISONS[wanted[0]](figure["median"], wanted[1])
    return figure


def figures_of(rows, judge):
    """The figures in the order of UNITS, each in the order in which it was measured first. `judge`: say what is met."""
    by_figure = collections.defaultdict(list)
    for row in rows:
        by_figure[row["name"], row["at"]].append(row)
    order = list(UNITS)
    keys = sorted(by_figure, key=lambda key: order.index(key[0]))  # stable
    return [one_figure(*key, by_figure[key], judge) for key in keys]


def number(value):
    """Four digits that count."""
    return f"{value:.4g}" if abs(value) < 10000 else f"{value:.0f}"


def table(figures):
    """Lines of text, one for each figure."""
    rows = [("figure", "at", "median", "from", "to", "", "ours", "reference", "wanted", "")]
    for figure in figures:
        both = "ours" in figure
        met = {True: "met", False: "not met", None: ""}[figure.get("met")]
        rows.append((figure["name"], figure["at"], number(figure["median"]), number(figure["low"]),
                     number(figure["high"]), "" if both else figure["unit"],
                     f"{number(figure['ours'])} {figure['measured_in']}" if both else "",
                     number(figure["reference"]) if both else "", figure.get("wanted", ""), met))
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    numbers = {2, 3, 4, 7}
    return ["  ".join(cell.rjust(width) if column in numbers else cell.ljust(width)
                      for column, (cell, width) in enumerate(zip(row, widths))).rstrip() for row in rows]
