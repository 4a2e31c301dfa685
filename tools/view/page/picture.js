// SPDX-License-Identifier: Apache-2.0
// What the picture of a camera consists of: a histogram, and the values along a line.
import { get } from "./api.js";
import { drawChart } from "./chart.js";
import { make, say } from "./dom.js";

const refreshMs = 500;
const coloursOf = channels => channels === 3 ? ["red", "green", "blue"] : ["accent"];

export class PicturePanel {
  constructor(element) {
    this.element = element;
    this.problem = make("p", { className: "hint", role: "status" });
    element.append(this.problem);
    this.histogram = this.plot("histogram", "Histogram", "How many pixels have which value, as the camera sends them.");
    this.profile = this.plot("profile", "Line profile",
      "Press Line above the numbers, then drag over the picture; by keyboard: arrows, Enter, arrows, Enter.");
    setInterval(() => this.refresh(), refreshMs);
  }

  plot(id, title, about) {
    const now = make("span");
    const canvas = make("canvas", { role: "img", ariaLabel: title });
    this.element.append(make("div", { className: "plot", id: `plot-${id}` }, make("h3", {}, title, now), canvas,
      make("p", { textContent: about })));
    return { canvas, now };
  }

  choose(camera) {
    this.camera = camera;
    this.refresh();
  }

  async refresh() {
    if (this.element.hidden || document.hidden || !this.camera || this.reading) {
      return;
    }
    this.reading = true;
    try {
      this.showHistogram(await get("histogram", { camera: this.camera.index }));
      const line = this.camera.screen.line;
      this.profile.canvas.hidden = !line;
      if (line) {
        this.showProfile(await get("line", { camera: this.camera.index, x0: line.from.x, y0: line.from.y, x1: line.to.x,
          y1: line.to.y }));
      } else {
        say(this.profile.now, "no line");
      }
      say(this.problem, "");
    } catch (failure) {
      say(this.problem, failure.message);
    }
    this.reading = false;
  }

  showHistogram({ channels, largest, histograms }) {
    const colours = coloursOf(channels);
    const series = histograms.map((one, at) => ({ colour: colours[at], points: one.bins.map((count, bin) => [bin, count]) }));
    const told = histograms.map(one => `${one.least} to ${one.largest}, mean ${one.mean.toFixed(1)}`).join("; ");
    say(this.histogram.now, told);
    this.histogram.canvas.setAttribute("aria-label", `Histogram: values from ${told}`);
    drawChart(this.histogram.canvas, { series, from: 0, to: 255, labels: ["0", String(largest)] });
  }

  showProfile({ channels, largest, values }) {
    const series = coloursOf(channels).map((colour, channel) =>
      ({ colour, points: values.map((value, at) => [at, value[channel]]) }));
    say(this.profile.now, `${values.length} pixels`);
    this.profile.canvas.setAttribute("aria-label", `Values of ${values.length} pixels along the line`);
    drawChart(this.profile.canvas, { series, from: 0, to: Math.max(1, values.length - 1), top: largest,
      labels: ["start", `pixel ${values.length - 1}`] });
  }
}
