// SPDX-License-Identifier: Apache-2.0
// One picture on a canvas: fitted, or zoomed down to single pixels with the values that the camera sent.
import { get } from "./api.js";
import { say } from "./dom.js";

const mostScale = 64;
const valuesFrom = 36; // CSS pixels a pixel, from which a value has room in it
const keyMoves = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };

export class Screen {
  constructor(canvas, readout, camera) {
    Object.assign(this, { canvas, readout, camera, image: null, cursor: null, line: null, from: null, values: null,
      reading: false });
    this.fitted = true;
    this.scale = 1;
    this.left = 0;
    this.top = 0;
    this.lineMode = false;
    this.lineChanged = () => {};
    new ResizeObserver(() => this.draw()).observe(canvas);
    canvas.addEventListener("wheel", event => this.onWheel(event), { passive: false });
    canvas.addEventListener("pointerdown", event => this.onDown(event));
    canvas.addEventListener("pointermove", event => this.onMove(event));
    canvas.addEventListener("pointerup", () => { this.drag = null; });
    canvas.addEventListener("pointerleave", () => { this.drag = null; });
    canvas.addEventListener("keydown", event => this.onKey(event));
    setInterval(() => this.readValues(), 250);
  }

  show(image) {
    this.image?.close();
    this.image = image;
    this.draw();
  }

  fit() {
    this.fitted = true;
    this.draw();
  }

  /** Zooms so that the spot of the canvas stays where it is; the middle when none is given. */
  zoom(factor, x = this.canvas.clientWidth / 2, y = this.canvas.clientHeight / 2) {
    this.zoomTo(this.scale * factor, x, y);
  }

  zoomTo(wanted, x = this.canvas.clientWidth / 2, y = this.canvas.clientHeight / 2) {
    const scale = Math.min(mostScale, Math.max(1 / 32, wanted));
    this.left = x - (x - this.left) * scale / this.scale;
    this.top = y - (y - this.top) * scale / this.scale;
    this.scale = scale;
    this.fitted = false;
    this.draw();
  }

  place() {
    const { clientWidth: width, clientHeight: height } = this.canvas;
    if (this.fitted && this.image) {
      this.scale = Math.min(width / this.image.width, height / this.image.height);
      this.left = (width - this.image.width * this.scale) / 2;
      this.top = (height - this.image.height * this.scale) / 2;
    }
  }

  draw() {
    this.tell();
    const { clientWidth: width, clientHeight: height } = this.canvas;
    const ratio = devicePixelRatio;
    if (this.canvas.width !== Math.round(width * ratio) || this.canvas.height !== Math.round(height * ratio)) {
      this.canvas.width = Math.round(width * ratio);
      this.canvas.height = Math.round(height * ratio);
    }
    const pen = this.canvas.getContext("2d");
    pen.setTransform(ratio, 0, 0, ratio, 0, 0);
    pen.clearRect(0, 0, width, height);
    if (!this.image) {
      return;
    }
    this.place();
    pen.imageSmoothingEnabled = this.scale < 1;
    pen.drawImage(this.image, this.left, this.top, this.image.width * this.scale, this.image.height * this.scale);
    this.drawValues(pen);
    this.drawLine(pen);
    this.drawCursor(pen);
  }

  /** The pixels that can be seen. */
  visible() {
    const { clientWidth: width, clientHeight: height } = this.canvas;
    const x = Math.max(0, Math.floor(-this.left / this.scale));
    const y = Math.max(0, Math.floor(-this.top / this.scale));
    return { x, y, width: Math.min(64, Math.ceil((width - this.left) / this.scale) - x),
      height: Math.min(64, Math.ceil((height - this.top) / this.scale) - y) };
  }

  async readValues() {
    const near = this.scale >= valuesFrom;
    if (!this.image || document.hidden || this.reading || (!near && !this.cursor)) {
      return;
    }
    this.reading = true; // on a slow line answers come later than the next wish, which others would wait behind
    const wanted = near ? this.visible() : { ...this.cursor, width: 1, height: 1 };
    this.values = await get("pixels", { camera: this.camera, ...wanted }).catch(() => null);
    this.reading = false;
    this.tell();
    if (near) {
      this.draw();
    }
  }

  valueAt(spot) {
    const values = this.values;
    const column = spot.x - values?.x;
    const row = spot.y - values?.y;
    return values && column >= 0 && row >= 0 && column < values.width && row < values.height
      ? values.values[row * values.width + column] : null;
  }

  tell() {
    const spot = this.cursor;
    this.readout.hidden = !spot;
    if (spot) {
      // Not where the pixel is that is looked at.
      this.readout.classList.toggle("above", this.top + (spot.y + .5) * this.scale > this.canvas.clientHeight / 2);
      say(this.readout, `x ${spot.x}  y ${spot.y}  =  ${this.valueAt(spot)?.join(" ") ?? "…"}`);
    }
  }

  /** The pixels with their values, in the brightness of these values: the picture may be of a later frame. */
  drawValues(pen) {
    if (this.scale < valuesFrom || !this.values) {
      return;
    }
    const { x, y, width, height, values, largest } = this.values;
    const shade = value => Math.round(value * 255 / largest);
    pen.font = `${Math.min(13, this.scale / 3.4)}px ui-monospace, monospace`;
    pen.textAlign = "center";
    pen.textBaseline = "middle";
    for (let row = 0; row < height; ++row) {
      for (let column = 0; column < width; ++column) {
        const value = values[row * width + column];
        const left = this.left + (x + column) * this.scale;
        const top = this.top + (y + row) * this.scale;
        const [red, green = red, blue = red] = value.map(shade);
        pen.fillStyle = `rgb(${red}, ${green}, ${blue})`;
        pen.fillRect(left, top, this.scale, this.scale);
        pen.fillStyle = (value[1] ?? value[0]) > largest / 2 ? "#000" : "#fff";
        pen.fillText(value.join(" "), left + this.scale / 2, top + this.scale / 2);
      }
    }
  }

  drawCursor(pen) {
    if (this.cursor) {
      const size = Math.max(this.scale, 5);
      const x = this.left + (this.cursor.x + .5) * this.scale - size / 2;
      const y = this.top + (this.cursor.y + .5) * this.scale - size / 2;
      pen.strokeStyle = "#000";
      pen.lineWidth = 3;
      pen.strokeRect(x, y, size, size);
      pen.strokeStyle = "#fff";
      pen.lineWidth = 1;
      pen.strokeRect(x, y, size, size);
    }
  }

  drawLine(pen) {
    if (!this.line) {
      return;
    }
    const at = spot => [this.left + (spot.x + .5) * this.scale, this.top + (spot.y + .5) * this.scale];
    for (const [style, width] of [["#000", 4], ["#ffd24a", 2]]) {
      pen.strokeStyle = style;
      pen.lineWidth = width;
      pen.beginPath();
      pen.moveTo(...at(this.line.from));
      pen.lineTo(...at(this.line.to));
      pen.stroke();
    }
  }

  /** The pixel at a spot of the canvas, moved into the picture. */
  pixelAt(x, y) {
    const inside = (value, size) => Math.min(size - 1, Math.max(0, Math.floor(value)));
    return { x: inside((x - this.left) / this.scale, this.image.width),
      y: inside((y - this.top) / this.scale, this.image.height) };
  }

  setCursor(spot) {
    this.cursor = spot;
    this.draw();
  }

  setLine(from, to) {
    this.line = from && { from, to };
    this.lineChanged(this.line);
    this.draw();
  }

  onWheel(event) {
    event.preventDefault();
    this.zoom(event.deltaY < 0 ? 1.25 : 0.8, event.offsetX, event.offsetY);
  }

  onDown(event) {
    if (!this.image) {
      return;
    }
    this.canvas.setPointerCapture(event.pointerId);
    this.drag = { x: event.offsetX, y: event.offsetY, left: this.left, top: this.top };
    this.from = this.pixelAt(event.offsetX, event.offsetY);
    this.setCursor(this.from);
  }

  onMove(event) {
    if (!this.image) {
      return;
    }
    const spot = this.pixelAt(event.offsetX, event.offsetY);
    if (this.drag && this.lineMode) {
      this.setLine(this.from, spot);
    } else if (this.drag) {
      this.left = this.drag.left + event.offsetX - this.drag.x;
      this.top = this.drag.top + event.offsetY - this.drag.y;
      this.fitted = false;
    }
    this.setCursor(spot);
  }

  /** Arrows move the cursor, ten pixels with the shift key; in line mode Enter begins and ends a line. */
  onKey(event) {
    if (!this.image || event.ctrlKey || event.altKey || event.metaKey) {
      return;
    }
    const actions = { "+": () => this.zoomAtCursor(2), "-": () => this.zoomAtCursor(.5), 0: () => this.fit(),
      Escape: () => this.setCursor(null), Enter: () => this.pin() };
    if (keyMoves[event.key]) {
      const step = event.shiftKey ? 10 : 1;
      const [across, down] = keyMoves[event.key];
      const now = this.cursor ?? { x: Math.floor(this.image.width / 2), y: Math.floor(this.image.height / 2) };
      const inside = (value, size) => Math.min(size - 1, Math.max(0, value));
      this.setCursor({ x: inside(now.x + across * step, this.image.width),
        y: inside(now.y + down * step, this.image.height) });
    } else if (actions[event.key]) {
      actions[event.key]();
    } else {
      return;
    }
    event.preventDefault();
  }

  zoomAtCursor(factor) {
    const spot = this.cursor;
    if (spot) {
      this.zoom(factor, this.left + (spot.x + .5) * this.scale, this.top + (spot.y + .5) * this.scale);
    } else {
      this.zoom(factor);
    }
  }

  pin() {
    if (!this.lineMode || !this.cursor) {
      return;
    }
    if (this.pinned) {
      this.setLine(this.pinned, this.cursor);
    }
    this.pinned = this.pinned ? null : this.cursor;
  }
}
