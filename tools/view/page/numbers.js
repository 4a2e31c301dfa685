// SPDX-License-Identifier: Apache-2.0
// Hears states and numbers of all cameras, and keeps what plots need of the last two minutes.

const mostWindows = 480;

/** Calls `tell(cameras)` four times a second and `link(alive)` when nq-gev goes and comes. Each camera has its `windows`
 * of the last two minutes. */
export function hearNumbers(tell, link) {
  let history = [];
  let source = null;
  let later = 0;
  // A browser opens but few connections to one server, so there is never a second one of these.
  const close = () => {
    clearTimeout(later);
    source?.close();
  };
  const open = () => {
    close();
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
      close();
      link(false);
      later = setTimeout(open, 1000);
    };
  };
  const turn = () => document.hidden ? close() : open();
  document.addEventListener("visibilitychange", turn);
  turn();
}
