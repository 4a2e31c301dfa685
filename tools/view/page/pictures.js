// SPDX-License-Identifier: Apache-2.0
// Takes the pictures of all cameras out of one answer without an end.

const blank = [13, 10, 13, 10];

function indexOfBlank(bytes, size) {
  for (let at = 0; at + 4 <= size; ++at) {
    if (blank.every((byte, index) => bytes[at + index] === byte)) {
      return at;
    }
  }
  return -1;
}

/** Bytes that come in pieces and go in parts. */
class Inflow {
  constructor() {
    this.bytes = new Uint8Array(1 << 20);
    this.size = 0;
  }

  add(piece) {
    if (this.size + piece.length > this.bytes.length) {
      const larger = new Uint8Array(2 * (this.size + piece.length));
      larger.set(this.bytes.subarray(0, this.size));
      this.bytes = larger;
    }
    this.bytes.set(piece, this.size);
    this.size += piece.length;
  }

  drop(count) {
    this.bytes.copyWithin(0, count, this.size);
    this.size -= count;
  }

  /** The next whole part, or nothing. */
  part() {
    const end = indexOfBlank(this.bytes, Math.min(this.size, 8192));
    if (end < 0) {
      return undefined;
    }
    const head = new TextDecoder().decode(this.bytes.subarray(0, end));
    const length = Number(/Content-Length: (\d+)/.exec(head)[1]);
    if (this.size < end + 4 + length + 2) {
      return undefined;
    }
    const jpeg = this.bytes.slice(end + 4, end + 4 + length);
    this.drop(end + 4 + length + 2);
    return { about: JSON.parse(/X-Picture: (.*)/.exec(head)[1]), jpeg };
  }
}

/** While a picture of a camera is decoded, only the newest of those that come then is kept. */
class Decoder {
  constructor(show) {
    this.show = show;
    this.busy = false;
    this.next = undefined;
  }

  async take(part) {
    if (this.busy) {
      this.next = part;
      return;
    }
    this.busy = true;
    for (let one = part; one; one = this.next) {
      this.next = undefined;
      const image = one.jpeg.length === 0 ? null
        : await createImageBitmap(new Blob([one.jpeg], { type: "image/jpeg" })).catch(() => null);
      this.show(one.about, image);
    }
    this.busy = false;
  }
}

/** Calls `show(about, image)` for each picture while the page can be seen, for ever; `image` is null for one that cannot
 * be shown. */
export async function showPictures(show) {
  const decoders = new Map();
  for (;;) {
    if (document.hidden) {
      await new Promise(seen => document.addEventListener("visibilitychange", seen, { once: true }));
      continue;
    }
    const end = new AbortController();
    const hide = () => document.hidden && end.abort();
    document.addEventListener("visibilitychange", hide);
    try {
      const reader = (await fetch("pictures", { signal: end.signal })).body.getReader();
      const inflow = new Inflow();
      for (let piece = await reader.read(); !piece.done; piece = await reader.read()) {
        inflow.add(piece.value);
        for (let part = inflow.part(); part; part = inflow.part()) {
          const camera = part.about.camera;
          decoders.set(camera, decoders.get(camera) ?? new Decoder(show));
          decoders.get(camera).take(part);
        }
      }
    } catch {
      // nq-gev has ended, or the page was hidden
    }
    document.removeEventListener("visibilitychange", hide);
    await new Promise(later => setTimeout(later, 1000));
  }
}
