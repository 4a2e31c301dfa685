# SPDX-License-Identifier: Apache-2.0
"""Bars with their spread, as SVG."""

import xml.sax.saxutils

from figures import SIZES

COLOURS = ("#2a6f97", "#e07a1f", "#5a9a3c", "#8a5fa8")
WIDTH, HEIGHT = 760, 420
LEFT, RIGHT, TOP, BOTTOM = 70, 20, 50, 80


def text(content, x, y, anchor="middle", size=13):
    """A line of text."""
    return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-size="{size}">'
            f"{xml.sax.saxutils.escape(content)}</text>")


def line(x1, y1, x2, y2, colour="#444", more=""):
    """A straight line."""
    return f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" stroke="{colour}" {more}/>'


def step_of(highest):
    """A round number that goes about five times into the height."""
    step = 10.0 ** -6
    while True:
        for factor in (1, 2, 5):
            if highest / (step * factor) <= 6:
                return step * factor
        step *= 10


def bars(title, unit, places, series, mark=None):
    """A plot. `series`: a name, and for each place a figure of the report or None. `mark`: a value to draw a line at."""
    highest = max([figure["high"] for _, figures in series for figure in figures if figure] + [mark or 0]) or 1
    step = step_of(highest)
    top = step * (int(highest / step) + 1)
    height = HEIGHT - TOP - BOTTOM

    def y_of(value):
        return TOP + height * (1 - value / top)

    drawn = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif">',
             f"<title>{xml.sax.saxutils.escape(title)}</title>",
             f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>', text(title, WIDTH / 2, 24, size=16),
             text(unit, LEFT, TOP - 10, "start", 12)]
    for index in range(int(top / step + 0.5) + 1):
        value = index * step
        drawn.append(line(LEFT, y_of(value), WIDTH - RIGHT, y_of(value), "#ddd"))
        drawn.append(text(f"{value:g}", LEFT - 8, y_of(value) + 4, "end", 12))
    group = (WIDTH - LEFT - RIGHT) / len(places)
    width = group * 0.8 / len(series)
    for place, name in enumerate(places):
        drawn.append(text(name, LEFT + group * (place + 0.5), HEIGHT - BOTTOM + 20, size=12))
        for index, (_, figures) in enumerate(series):
            figure = figures[place]
            if figure is None:
                continue
            x = LEFT + group * (place + 0.1) + width * index
            y = y_of(figure["median"])
            drawn.append(f'<rect x="{x + 1:.1f}" y="{y:.1f}" width="{width - 2:.1f}" height="{y_of(0) - y:.1f}" '
                         f'fill="{COLOURS[index % len(COLOURS)]}"/>')
            middle = x + width / 2
            drawn.append(line(middle, y_of(figure["low"]), middle, y_of(figure["high"]), "#000"))
            drawn.append(text(f"{figure['median']:.3g}", middle, y_of(figure["high"]) - 5, size=11))
    if mark is not None:
        drawn.append(line(LEFT, y_of(mark), WIDTH - RIGHT, y_of(mark), "#000", 'stroke-dasharray="5 4"'))
    for index, (name, _) in enumerate(series):
        x = LEFT + index * (WIDTH - LEFT - RIGHT) / len(series)
        drawn.append(f'<rect x="{x:.1f}" y="{HEIGHT - 34}" width="12" height="12" '
                     f'fill="{COLOURS[index % len(COLOURS)]}"/>')
        drawn.append(text(name, x + 18, HEIGHT - 24, "start", 12))
    drawn.append("</svg>\n")
    return "\n".join(drawn)


def plot(figures, title, unit, places, wanted, mark=None):
    """`wanted`: by the name of a series, a function from a place to (figure, at). None where nothing was measured."""
    known = {(figure["name"], figure["at"]): figure for figure in figures}
    series = [(name, [known.get(key(place)) for place in places]) for name, key in wanted.items()]
    return bars(title, unit, places, series, mark) if any(any(column) for _, column in series) else None


def plots_of(figures):
    """The plots by their file names."""
    every = {}
    for what, title in (("rate", "Frames per second, ours over the reference: more is better"),
                        ("cpu", "Processor time per frame, ours over the reference: less is better")):
        every[f"frame_{what}.svg"] = plot(figures, title, "ratio", SIZES, {
            f"over the same hand-overs": lambda size, what=what: (f"frame_{what}_vs_handover", size),
            f"over one bare thread": lambda size, what=what: (f"frame_{what}_vs_bare", size),
        }, 1)
        every[f"announced_{what}.svg"] = plot(figures, title + " (announced buffers)", "ratio", SIZES, {
            "copied, over hand-overs and a copy":
                lambda size, what=what: (f"announced_{what}_vs_handover", f"{size}, stated"),
            "in place, over hand-overs":
                lambda size, what=what: (f"announced_{what}_vs_handover", f"{size}, standard"),
        }, 1)
    for key in ("wakeups", "syscalls", "locks"):
        every[f"{key}.svg"] = plot(figures, f"{key.capitalize()} per frame", "per frame", SIZES, {
            road: lambda size, key=key, road=road: (f"{key}_per_frame", f"{size}, {road}")
            for road in ("library", "handover", "bare")})
    every["latency.svg"] = plot(figures, "From the completion to the consumer, ours over two hand-overs", "ratio",
                                ("p50", "p99", "p99.9"), {
                                    "64 KiB, 500 frames/s": lambda part: ("latency_completion_to_consumer", part)}, 1)
    every["scale_buffers.svg"] = plot(figures, "Processor time per frame with many buffers, over four", "ratio",
                                      ("32", "99"), {
                                          mode: lambda count, mode=mode: ("scale_buffers", f"{count} over 4, {mode}")
                                          for mode in ("stated", "standard")}, 1)
    every["scale_cameras.svg"] = plot(figures, "Several cameras of 200 frames/s, over one", "ratio", ("2", "4", "8"), {
        "processor time per frame": lambda count: ("scale_cameras", f"{count} over 1"),
        "frames per second and camera": lambda count: ("scale_cameras_rate", f"{count} over {count} times 1")}, 1)
    return {name: drawing for name, drawing in every.items() if drawing is not None}
