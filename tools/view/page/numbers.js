// SPDX-License-Identifier: Apache-2.0
// Hears states and numbers of all cameras, and keeps what plots need of the last two minutes.

const mostWindows = 480;

/** Calls `tell(cameras)` four times a second and `link(alive)` when nq-gev goes and comes. Each camera has its `windows`
 * of the last two minutes. */
export function hearNumbers(tell, link) {
  let history = [];
  let source = null;
  const open = () => {
    history = [];
    source = new EventSource("numbers");
    source.onmessage = event => {
      const { cameras } = JSON.parse(event.data);
      cameras.forEach((camera, at) => {
        history[at] = [...(history[at] ?? []), ...camera.numbers.windows].slice(-mostWindows);
        camera.windows = history[at];
      });
      link(true);
      tell(cameras);
    };
    source.onerror = () => {
      source.close();
      link(false);
      setTimeout(() => document.hidden || open(), 1000);
    };
  };
  document.addEventListener("visibilitychange", () => {
    source.close();
    if (!document.hidden) {
      open();
    }
  });
  open();
}
