// SPDX-License-Identifier: Apache-2.0
// The features of a camera by category, found by a text and set in place.
import { get, post } from "./api.js";
import { make, say } from "./dom.js";

const levels = ["Beginner", "Expert", "Guru"];
const refreshMs = 3000;

function isLocked(feature) {
  return feature.locked || !feature.available || !feature.access.includes("W");
}

function limitsOf(feature) {
  const range = feature.min !== null && feature.max !== null ? `${feature.min} to ${feature.max}` : "";
  const step = feature.step !== null && feature.step !== 1 && range ? `, in steps of ${feature.step}` : "";
  return range + step;
}

/** A long name may break where a word of it begins. */
function breakable(name) {
  return name.split(/(?<=[a-z])(?=[A-Z])/).flatMap((word, at) => at ? [make("wbr"), word] : [word]);
}

/** Texts come in quotation marks, as `nq-gev get` prints them. */
function shownText(feature) {
  return feature.problem || (feature.type === "string" ? feature.value ?? "" : feature.text ?? "");
}

/** One feature with its editor. */
class Row {
  constructor(feature, panel) {
    this.panel = panel;
    this.camera = panel.camera; // which may be another one by the time that an edit ends
    this.cameraName = panel.cameraName;
    this.id = `feature-${feature.name}`;
    this.error = make("p", { className: "error", role: "alert", id: `${this.id}-error`, hidden: true });
    this.limits = make("p", { className: "limits number" });
    this.field = make("div", { className: "field" });
    this.element = make("div", { className: "feature" }, make("div", { className: "row" }), this.limits,
      make("p", { className: "about", id: `${this.id}-about`, textContent: feature.description }), this.error);
    this.element.dataset.name = feature.name;
    this.kind = "";
    this.update(feature);
  }

  /** What edits it depends on its type and on whether it can be set now. */
  kindOf(feature) {
    return feature.type === "command" ? "command" : isLocked(feature) ? "output" : feature.type;
  }

  update(feature) {
    this.feature = feature;
    if (this.kind !== this.kindOf(feature)) {
      this.kind = this.kindOf(feature);
      this.build(feature);
    }
    say(this.limits, limitsOf(feature));
    if (this.kind === "command") {
      this.editor.disabled = feature.locked || !feature.available;
    } else if (this.kind === "output") {
      say(this.editor, shownText(feature) || "–");
    } else if (document.activeElement !== this.editor) {
      this.fill(feature);
    }
  }

  fill(feature) {
    if (this.kind === "boolean") {
      this.editor.checked = feature.value === true;
    } else if (this.kind === "enumeration") {
      const open = feature.entries.filter(entry => entry.available).map(entry => entry.name);
      if ([...this.editor.options].map(option => option.value).join() !== open.join()) {
        this.editor.replaceChildren(...open.map(name => make("option", { value: name, textContent: name })));
      }
      this.editor.value = feature.value;
    } else {
      this.editor.value = shownText(feature);
    }
  }

  build(feature) {
    const id = this.id;
    const title = feature.description;
    const apply = () => this.apply();
    const makers = {
      command: () => make("button", { type: "button", id, textContent: "Execute", title, onclick: () => this.execute() }),
      output: () => make("output", { id, title, className: "number" }),
      boolean: () => make("input", { type: "checkbox", id, title, onchange: apply }),
      enumeration: () => make("select", { id, title, onchange: apply }),
    };
    const text = () => make("input", { type: "text", id, title, autocomplete: "off", spellcheck: false, onchange: apply,
      onkeydown: event => this.onKey(event) });
    this.editor = (makers[this.kind] ?? text)();
    this.editor.setAttribute("aria-describedby", `${id}-about ${id}-error`);
    if (this.kind === "command") {
      this.editor.setAttribute("aria-label", `Execute ${feature.name}`);
    }
    this.element.dataset.kind = this.kind;
    const label = make("label", { htmlFor: id, title }, ...breakable(feature.name));
    this.field.replaceChildren(this.editor, ...(feature.unit ? [make("span", { className: "unit", textContent: feature.unit })] : []));
    this.element.firstChild.replaceChildren(label, this.field);
  }

  onKey(event) {
    if (event.key === "Escape") {
      this.fill(this.feature);
      this.complain("");
    } else if (event.key === "Enter" && this.error.hidden === false) {
      this.apply(); // the same value once more is no change
    }
  }

  complain(text) {
    this.error.hidden = !text;
    say(this.error, text);
    this.editor.setAttribute("aria-invalid", text !== "");
  }

  async apply() {
    const value = this.kind === "boolean" ? String(this.editor.checked) : this.editor.value;
    await this.act(async () => {
      const now = await post("feature", { camera: this.camera }, { name: this.feature.name, value });
      this.feature = now;
      this.fill(now);
    });
  }

  async execute() {
    await this.act(() => post("execute", { camera: this.camera }, { name: this.feature.name }));
  }

  async act(work) {
    try {
      await work();
      this.complain("");
      this.panel.tellLate(""); // who sets another value has read it
      this.element.classList.add("set");
      setTimeout(() => this.element.classList.remove("set"), 800);
    } catch (failure) {
      const why = failure.code === undefined ? failure.message : `${failure.message} (code ${failure.code})`;
      this.complain(why);
      if (!this.element.isConnected) {
        this.panel.tellLate(`${this.cameraName}: ${why}`);
      }
    }
    this.panel.refresh(); // one feature changes others
  }
}

export class Features {
  constructor(element) {
    this.element = element;
    this.camera = 0;
    this.cameraName = "";
    this.rows = new Map();
    this.search = make("input", { type: "search", placeholder: "name or description", oninput: () => this.filter() });
    this.level = make("select", { onchange: () => this.filter() },
      ...levels.map(name => make("option", { value: name, textContent: name, selected: name === "Expert" })));
    this.hint = make("p", { className: "hint", role: "status" });
    this.list = make("div");
    this.lateHint = make("p", { className: "error", role: "alert", hidden: true });
    element.append(make("div", { className: "search" }, make("label", {}, "Search", this.search),
      make("label", {}, "Visibility", this.level)), this.lateHint, this.hint, this.list);
    setInterval(() => this.refresh(), refreshMs);
  }

  /** Shows those of that camera. An edit that is under way ends, and goes to the camera where it began. */
  choose(camera, name) {
    if (this.list.contains(document.activeElement)) {
      document.activeElement.blur();
    }
    this.tellLate("");
    this.camera = camera;
    this.cameraName = name;
    this.list.replaceChildren();
    this.rows.clear();
    this.refresh();
  }

  /** What came of an edit whose field is not shown any more. */
  tellLate(text) {
    this.lateHint.hidden = !text;
    say(this.lateHint, text);
  }

  /** Reads all anew. What is being edited stays. */
  async refresh() {
    if (this.element.hidden || document.hidden || this.reading) {
      return;
    }
    this.reading = true;
    const camera = this.camera;
    try {
      const { features } = await get("features", { camera });
      if (camera === this.camera) {
        features.forEach(feature => this.take(feature));
        this.problem = "";
        this.filter();
      }
    } catch (failure) {
      this.problem = failure.message;
      say(this.hint, failure.message);
    }
    this.reading = false;
    if (camera !== this.camera) {
      this.refresh();
    }
  }

  take(feature) {
    const row = this.rows.get(feature.name);
    if (row) {
      row.update(feature);
      return;
    }
    const made = new Row(feature, this);
    this.rows.set(feature.name, made);
    this.category(feature.category).append(made.element);
  }

  category(path) {
    const known = [...this.list.children].find(one => one.dataset.path === path);
    if (known) {
      return known;
    }
    const made = make("details", { className: "category", open: true },
      make("summary", { textContent: path.split("/").pop() || "Root", title: path }));
    made.dataset.path = path;
    this.list.append(made);
    return made;
  }

  fits(feature) {
    const text = this.search.value.trim().toLowerCase();
    return levels.indexOf(feature.visibility) <= levels.indexOf(this.level.value) && feature.visibility !== "Invisible"
      && [feature.name, feature.display_name, feature.description].some(one => one.toLowerCase().includes(text));
  }

  filter() {
    let shown = 0;
    for (const row of this.rows.values()) {
      row.element.hidden = !this.fits(row.feature);
      shown += row.element.hidden ? 0 : 1;
    }
    for (const category of this.list.children) {
      category.hidden = ![...category.querySelectorAll(".feature")].some(one => !one.hidden);
    }
    const locked = [...this.rows.values()].some(row => row.feature.locked);
    say(this.hint, this.problem || `${shown} of ${this.rows.size} features`
      + (locked ? "; some are locked while the stream runs: Pause sets them free" : ""));
  }
}
