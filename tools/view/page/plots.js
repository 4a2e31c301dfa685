// SPDX-License-Identifier: Apache-2.0
// Rate, loss and delay of a camera over the last two minutes, or less as long as less is known.
import { drawChart } from "./chart.js";
import { make, say } from "./dom.js";

const spans = [10, 30, 60, 120]; // seconds; the shortest that has room for all that is known

const subjects = [
  { id: "rate", title: "Rate", unit: "frames/s", colour: "accent", key: "rate" },
  { id: "lost", title: "Lost frames", unit: "", colour: "red", key: "lost", bars: true },
  { id: "delay", title: "Delay", unit: "ms", colour: "blue", key: "delay",
    about: "The longest delay of a frame in a quarter of a second, against the quickest frame of the stream: the clocks of "
      + "camera and computer need not agree." },
  { id: "gap", title: "Longest time between two frames", unit: "ms", colour: "blue", key: "gap" },
];

export class Plots {
  constructor(element) {
    this.element = element;
    this.plots = subjects.map(subject => {
      const now = make("span");
      const canvas = make("canvas", { role: "img" });
      element.append(make("div", { className: "plot", id: `plot-${subject.id}` },
        make("h3", {}, subject.title, now), canvas, ...(subject.about ? [make("p", { textContent: subject.about })] : [])));
      return { ...subject, canvas, now };
    });
  }

  take(about) {
    if (this.element.hidden) {
      return;
    }
    const windows = about.windows;
    const to = windows.at(-1)?.end ?? 0;
    const span = spans.find(one => one >= to - (windows[0]?.end ?? 0)) ?? spans.at(-1);
    const spanText = span <= 60 ? `${span} seconds` : `${span / 60} minutes`;
    for (const plot of this.plots) {
      const points = windows.filter(one => one.end >= to - span && one[plot.key] !== null).map(one => [one.end, one[plot.key]]);
      const sum = points.reduce((all, point) => all + point[1], 0);
      const told = plot.bars ? `${sum} in ${spanText}` : `${(points.at(-1)?.[1] ?? 0).toFixed(1)} ${plot.unit}`;
      say(plot.now, told);
      plot.canvas.setAttribute("aria-label", `${plot.title} over the last ${spanText}, ${told}`);
      plot.canvas.dataset.sum = sum;
      plot.canvas.dataset.span = span;
      drawChart(plot.canvas, { series: [{ colour: plot.colour, points }], from: to - span, to, bars: plot.bars,
        labels: [`${spanText} ago`, "now"] });
    }
  }
}
