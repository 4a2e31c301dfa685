#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""page.py REPORT [PAGE]: writes what a report of ./run bench says into the page (docs/performance.md), between the two lines
that mark the place, and its plots into pictures/bench beside it. What the numbers mean stands around them, by hand."""

import json
import pathlib
import re
import sys
import xml.sax.saxutils

import figures
import plots

ROOT = pathlib.Path(__file__).resolve().parents[2]
BEGIN = "<!-- scripts/bench/page.py writes from here -->\n"
END = "<!-- to here -->\n"
COUNTED = ("locks_per_frame", "notifies_per_frame", "waits_per_frame", "wakeups_per_frame", "syscalls_per_frame")


def rows_of(cells):
    """Lines of a Markdown table, the first of them its head."""
    lines = ["| " + " | ".join(row) + " |" for row in cells]
    return [lines[0], "|" + "---|" * len(cells[0]), *lines[1:]]


def provenance(report):
    """What the numbers are of."""
    machine = report["machine"]
    return (f"Measured on {report['date']} at the commit `{report['commit']}`, {report['rounds']} rounds in "
            f"{report['seconds'] / 60:.0f} minutes, on {machine['processors']} processors of the kind "
            f"{machine['processor']} with {machine['memory_bytes'] / 2**30:.0f} GiB, Linux {machine['kernel']}, by the "
            "software RDMA. A median is that of the rounds, the range from the smallest to the largest of them.")


def verdict(figure):
    """What was measured over what was wanted, and whether any round met it where the median does not."""
    if "met" not in figure:
        return ""
    if figure["met"]:
        return "yes"
    comparison, limit = figure["wanted"].split()
    best = figure["high"] if comparison == ">=" else figure["low"]
    return "in some rounds" if figures.COMPARISONS[comparison](best, float(limit)) else "**no**"


def cells_of(figure):
    """All of a row but where it was measured."""
    both = "ours" in figure
    return (f"`{figure['name']}`", figure.get("wanted", "").replace(">=", "≥").replace("<=", "≤"),
            figures.number(figure["median"]) + ("" if both else f" {figure['unit']}".rstrip()),
            f"{figures.number(figure['low'])} to {figures.number(figure['high'])}",
            f"{figures.number(figure['ours'])} {figure['measured_in']}".rstrip() if both else "",
            figures.number(figure["reference"]) if both else "", verdict(figure))


def places_of(at):
    """Where something was measured; what was so at every size of a frame is said once."""
    sizes, others = [], []
    for one in at:
        first, _, rest = one.partition(", ")
        sizes.append(first)
        others.append(rest)
    sizes, others = list(dict.fromkeys(sizes)), list(dict.fromkeys(others))
    if tuple(sizes) != figures.SIZES or len(at) != len(sizes) * len(others):
        return "; ".join(at)
    return "; ".join(["every size" + (", " + others[0] if others[0] else ""), *others[1:]])


def figure_table(chosen):
    """One row for each figure; those that differ by nothing but the place have one together."""
    places = {}
    for figure in chosen:
        places.setdefault(cells_of(figure), []).append(figure["at"])
    cells = [["Figure", "Of", "Wanted", "Median", "Range", "Library", "Reference", "Met"]]
    for (name, *others), at in places.items():
        cells.append([name, places_of(at), *others])
    filled = [column for column in range(len(cells[0])) if any(row[column] for row in cells[1:])]
    return rows_of([[row[column] for column in filled] for row in cells])


def count_table(report):
    """What is counted of each size of frames, of the library and of the hand-overs."""
    known = {(figure["name"], figure["at"]): figure for figure in report["figures"]}
    cells = [("Per frame, the library / the hand-overs", *figures.SIZES)]
    for name in COUNTED:
        row = []
        for size in figures.SIZES:
            both = [known.get((name, f"{size}, {road}")) for road in ("library", "handover")]
            row.append(" / ".join(figures.number(one["median"]) if one else "-" for one in both))
        if any(cell != "- / -" for cell in row):
            cells.append((name.replace("_per_frame", ""), *row))
    return rows_of(cells) if len(cells) > 1 else []


def step_table(report):
    """The way to the first frame and back."""
    cells = [("Step of a start", "ms"), *((name.removesuffix("_ms").replace("_", " "), figures.number(value))
                                          for name, value in report["steps"].items())]
    return rows_of(cells) if len(cells) > 1 else []


def left_out(report):
    """A paragraph for each reason."""
    missing = {}
    for one in report["left_out"]:
        missing.setdefault((one["name"], one["reason"]), []).append(one["at"])
    return [[f"Left out: `{name}` at {places_of(at)}: {reason}."] for (name, reason), at in missing.items()]


def is_counted(figure):
    """Whether the table of counts has it."""
    return figure["name"] in COUNTED and "wanted" not in figure


def text_of(report, pictures):
    """What stands between the two lines. `pictures` are the plots by their file names."""
    shown = [figure for figure in report["figures"] if not is_counted(figure)]
    parts = [[provenance(report)], figure_table([figure for figure in shown if "wanted" in figure])]
    reported = [figure for figure in shown if "wanted" not in figure]
    if reported:
        parts += [["Reported, with nothing wanted of them:"], figure_table(reported)]
    parts += [count_table(report), step_table(report)]
    parts += left_out(report)
    for name, drawing in pictures.items():
        title = xml.sax.saxutils.unescape(re.search("<title>(.*)</title>", drawing)[1])
        parts.append([f"![{title}](pictures/bench/{name})"])
    return "\n\n".join("\n".join(part) for part in parts if part) + "\n"


def write(report, page):
    """Changes the page and the pictures beside it."""
    if report["quick"]:
        raise SystemExit("page: a quick run is too short to tell of")
    before, begin, rest = page.read_text(encoding="utf-8").partition(BEGIN)
    _, end, behind = rest.partition(END)
    if not begin or not end:
        raise SystemExit(f"page: {page} has no place for it: two lines, {BEGIN.strip()} and {END.strip()}")
    pictures = plots.plots_of(report["figures"])
    folder = page.parent / "pictures/bench"
    folder.mkdir(parents=True, exist_ok=True)
    for old in folder.glob("*.svg"):
        old.unlink()
    for name, drawing in pictures.items():
        (folder / name).write_text(drawing, encoding="utf-8")
    page.write_text(before + begin + "\n" + text_of(report, pictures) + "\n" + end + behind, encoding="utf-8")


def main():
    """Reads the report."""
    if len(sys.argv) not in (2, 3):
        raise SystemExit(__doc__)
    page = pathlib.Path(sys.argv[2]) if len(sys.argv) == 3 else ROOT / "docs/performance.md"
    write(json.loads(pathlib.Path(sys.argv[1]).read_text(encoding="utf-8")), page)


if __name__ == "__main__":
    main()
