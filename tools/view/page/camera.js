// SPDX-License-Identifier: Apache-2.0
// One camera: its picture, what can be done with it, and its numbers.
import { post } from "./api.js";
import { make, say } from "./dom.js";
import { Screen } from "./screen.js";

const words = { opening: "opening", running: "live", quiet: "no frames", paused: "paused", lost: "lost",
  taken: "in use" };
const waits = { lost: "the page goes on as soon as the camera answers", taken: "the page takes it as soon as it is free" };

/** Means over the last second: what one window of 250 ms says jumps about. */
function recent(windows) {
  const last = windows.slice(-4);
  const mean = key => last.reduce((sum, one) => sum + one[key], 0) / Math.max(1, last.length);
  const delays = last.map(one => one.delay).filter(delay => delay !== null);
  return { rate: mean("rate"), megabytes: mean("megabytes"),
    delay: delays.length ? Math.max(...delays) : null };
}

const hints = {
  "frames/s": "Frames that came in the last second",
  "MB/s": "Megabytes of picture data that came in the last second, of a million bytes each",
  delay: "The longest time in the last second that a frame came later than the quickest one",
  lost: "Frames that the camera numbered and that never came, since this program shows it",
  incomplete: "Frames of which a part was missing, or that could not be taken",
  frame: "The number that the camera gave the newest frame",
};
const freshS = 10; // so long is a loss one of now

/** How long ago, as coarse as it matters. */
function agoText(seconds) {
  if (seconds < freshS) {
    return "just now";
  }
  const [count, unit] = seconds < 60 ? [Math.floor(seconds / 10) * 10, "s"]
    : seconds < 3600 ? [Math.floor(seconds / 60), "min"] : [Math.floor(seconds / 3600), "h"];
  return `last ${count} ${unit} ago`;
}

export class Camera {
  constructor(index, choose) {
    this.index = index;
    this.choose = choose;
    this.about = null;
    this.build();
    this.screen = new Screen(this.canvas, this.readout, index);
    this.element.addEventListener("pointerdown", () => choose(this));
    this.element.addEventListener("focusin", () => choose(this));
  }

  build() {
    this.title = make("h2", { id: `name-${this.index}` });
    this.state = make("span", { className: "state", role: "status" });
    this.why = make("p", { className: "why", hidden: true });
    this.canvas = make("canvas", { tabIndex: 0, role: "img" });
    this.readout = make("output", { className: "readout number", hidden: true });
    this.notice = make("p", { className: "notice", textContent: "no picture yet" });
    this.recording = make("p", { className: "recording", role: "status", hidden: true });
    this.fields = {};
    const numbers = make("dl", { className: "numbers" }, ...Object.entries(hints).map(([name, title]) => make("div", { title },
      make("dt", { textContent: name }), this.fields[name] = make("dd", { textContent: "–" }))));
    this.agos = {};
    for (const name of ["lost", "incomplete"]) {
      this.fields[name].after(this.agos[name] = make("dd", { className: "ago", hidden: true }));
    }
    this.element = make("article", { className: "camera" },
      make("header", {}, this.title, this.state),
      make("div", { className: "screen" }, this.canvas, this.notice, this.readout, this.why), this.tools(), this.recording,
      numbers);
    this.element.setAttribute("aria-labelledby", this.title.id);
  }

  tools() {
    const button = (text, about, act) => make("button", { type: "button", textContent: text, title: about, onclick: act });
    this.pause = button("Pause", "Stop the stream; locked features can be set then", () => this.togglePause());
    this.record = button("Record", "Write every frame to a folder", () => this.toggleRecord());
    this.record.className = "record";
    this.line = button("Line", "Draw a line on the picture for its profile: drag, or Enter twice", () => this.toggleLine());
    this.line.setAttribute("aria-pressed", false);
    return make("div", { className: "tools" },
      button("Fit", "The whole picture (key 0)", () => this.screen.fit()),
      button("1:1", "One pixel of the picture on one of the page", () => this.screen.zoomTo(1)),
      button("−", "Smaller (key -)", () => this.screen.zoomAtCursor(.5)),
      button("+", "Larger (key +)", () => this.screen.zoomAtCursor(2)), this.line,
      make("span", { className: "space" }), this.pause, this.record);
  }

  toggleLine() {
    this.screen.lineMode = !this.screen.lineMode;
    this.line.setAttribute("aria-pressed", this.screen.lineMode);
    if (!this.screen.lineMode) {
      this.screen.setLine(null);
    }
  }

  async togglePause() {
    await this.act(() => post("pause", { camera: this.index, on: this.about.state === "paused" ? 0 : 1 }));
  }

  async toggleRecord() {
    await this.act(() => post("record", { camera: this.index, on: this.about.recording.running ? 0 : 1 }));
  }

  async act(work) {
    try {
      await work();
      this.refusal = "";
    } catch (failure) {
      this.refusal = failure.message;
    }
  }

  /** Takes what the numbers tell. */
  take(about) {
    this.about = about;
    const { numbers, state } = about;
    say(this.title.firstChild ?? this.title.appendChild(document.createTextNode("")), about.name);
    this.small ??= this.title.appendChild(make("small"));
    say(this.small, ` ${about.model}${about.address ? ` at ${about.address}` : ""}`);
    say(this.state, words[state]);
    this.state.className = `state ${state}`;
    this.element.classList.toggle("lost", state === "lost");
    const why = this.refusal || (waits[state] ? `${about.text}; ${waits[state]}` : about.text || numbers.refusal);
    this.why.hidden = !why;
    this.why.classList.toggle("lost", state === "lost");
    say(this.why, why);
    this.pause.disabled = state === "opening" || state in waits;
    this.record.disabled = this.pause.disabled && !about.recording.running;
    say(this.pause, state === "paused" ? "Resume" : "Pause");
    this.takeNumbers(about.windows, numbers);
    this.takeRecording(about.recording);
    this.canvas.setAttribute("aria-label", `Picture of ${about.name}, ${numbers.width} x ${numbers.height} pixels. `
      + "Arrow keys move a cursor that tells values, plus and minus zoom, 0 shows all.");
  }

  /** What was told last need not hold any more. */
  doubt() {
    say(this.state, "not known");
    this.state.className = "state unknown";
    this.pause.disabled = this.record.disabled = true;
  }

  takeNumbers(windows, numbers) {
    const streams = this.about.state === "running" || this.about.state === "quiet";
    const now = recent(streams ? windows : []);
    const set = (name, text) => say(this.fields[name], text);
    // What is wrong now is red, what once was is told.
    const count = (name, number, ago) => {
      set(name, String(number));
      this.agos[name].hidden = ago === null;
      say(this.agos[name], ago === null ? "" : agoText(ago));
      this.fields[name].parentElement.classList.toggle("bad", ago !== null && ago < freshS);
    };
    set("frames/s", streams ? now.rate.toFixed(1) : "–");
    set("MB/s", streams ? now.megabytes.toFixed(1) : "–");
    set("delay", now.delay === null ? "–" : `${now.delay.toFixed(1)} ms`);
    count("lost", numbers.lost, numbers.lost_ago_s);
    count("incomplete", numbers.incomplete + numbers.refused, numbers.incomplete_ago_s);
    set("frame", numbers.frame_id === null ? "–" : String(numbers.frame_id));
  }

  takeRecording(recording) {
    this.record.setAttribute("aria-pressed", recording.running);
    say(this.record, recording.running ? "Stop recording" : "Record");
    this.recording.hidden = !recording.folder;
    const frames = recording.frames === 1 ? "1 frame" : `${recording.frames} frames`;
    const ended = recording.problem ? "failed: recorded" : "recorded";
    this.recording.classList.toggle("failure", recording.problem !== "");
    say(this.recording, `${recording.running ? "recording" : ended} ${frames} in ${recording.folder}`
      + (recording.waits ? `; the disk was too slow ${recording.waits} times` : "")
      + (recording.problem ? `; ${recording.problem}` : ""));
  }

  show(about, image) {
    this.notice.hidden = image !== null;
    say(this.notice, about.problem || "no picture yet");
    this.canvas.dataset.frame = about.frame_id;
    this.screen.show(image);
  }
}
