// SPDX-License-Identifier: Apache-2.0
// One camera: its picture, what can be done with it, and its numbers.
import { post } from "./api.js";
import { make, say } from "./dom.js";
import { Screen } from "./screen.js";

const words = { opening: "opening", running: "live", quiet: "no frames", paused: "paused", lost: "lost" };

/** Means over the last second: what one window of 250 ms says jumps about. */
function recent(windows) {
  const last = windows.slice(-4);
  const mean = key => last.reduce((sum, one) => sum + one[key], 0) / Math.max(1, last.length);
  const delays = last.map(one => one.delay).filter(delay => delay !== null);
  return { rate: mean("rate"), megabytes: mean("megabytes"),
    delay: delays.length ? Math.max(...delays) : null };
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
    const numbers = make("dl", { className: "numbers" }, ...["frames/s", "MB/s", "delay", "lost", "incomplete", "frame"]
      .map(name => make("div", {}, make("dt", { textContent: name }), this.fields[name] = make("dd", { textContent: "–" }))));
    this.fields.delay.parentElement.title =
      "The longest time in the last second that a frame came later than the quickest one";
    this.element = make("article", { className: "camera" },
      make("header", {}, this.title, this.state), this.why,
      make("div", { className: "screen" }, this.canvas, this.notice, this.readout), this.tools(), this.recording, numbers);
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
    const why = this.refusal || about.text || numbers.refusal;
    this.why.hidden = !why;
    this.why.classList.toggle("lost", state === "lost");
    say(this.why, why);
    this.pause.disabled = state === "lost" || state === "opening";
    this.record.disabled = this.pause.disabled && !about.recording.running;
    say(this.pause, state === "paused" ? "Resume" : "Pause");
    this.takeNumbers(about.windows, numbers);
    this.takeRecording(about.recording);
    this.canvas.setAttribute("aria-label", `Picture of ${about.name}, ${numbers.width} x ${numbers.height} pixels. `
      + "Arrow keys move a cursor that tells values, plus and minus zoom, 0 shows all.");
  }

  takeNumbers(windows, numbers) {
    const streams = this.about.state === "running" || this.about.state === "quiet";
    const now = recent(streams ? windows : []);
    const set = (name, text, bad = false) => {
      say(this.fields[name], text);
      this.fields[name].parentElement.classList.toggle("bad", bad);
    };
    set("frames/s", streams ? now.rate.toFixed(1) : "–");
    set("MB/s", streams ? now.megabytes.toFixed(1) : "–");
    set("delay", now.delay === null ? "–" : `${now.delay.toFixed(1)} ms`);
    set("lost", String(numbers.lost), numbers.lost > 0);
    set("incomplete", String(numbers.incomplete + numbers.refused), numbers.incomplete + numbers.refused > 0);
    set("frame", numbers.frame_id === null ? "–" : String(numbers.frame_id));
  }

  takeRecording(recording) {
    this.record.setAttribute("aria-pressed", recording.running);
    say(this.record, recording.running ? "Stop recording" : "Record");
    this.recording.hidden = !recording.folder;
    const frames = recording.frames === 1 ? "1 frame" : `${recording.frames} frames`;
    say(this.recording, `${recording.running ? "recording" : "recorded"} ${frames} in ${recording.folder}`
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
