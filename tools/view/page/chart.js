// SPDX-License-Identifier: Apache-2.0
// Draws numbers as lines or bars.

function pen(canvas) {
  const ratio = devicePixelRatio;
  const { clientWidth: width, clientHeight: height } = canvas;
  canvas.width = Math.round(width * ratio);
  canvas.height = Math.round(height * ratio);
  const context = canvas.getContext("2d");
  context.scale(ratio, ratio);
  const style = getComputedStyle(document.documentElement);
  // A colour of the page in the theme that is on: light-dark() is resolved by the element that uses it.
  const probe = document.createElement("span");
  canvas.parentElement.append(probe);
  const colour = name => {
    probe.style.color = `var(--${name})`;
    return getComputedStyle(probe).color;
  };
  return { context, width, height, colour, font: `11px ${style.fontFamily}`, end: () => probe.remove() };
}

const room = { left: 46, right: 8, top: 10, bottom: 18 };

function niceTop(value) {
  const power = 10 ** Math.floor(Math.log10(value));
  return [1, 2, 4, 6, 8, 10].map(one => one * power).find(one => one >= value);
}

/** Draws `series`, each with a `colour` name and `points` [x, y]; `bars` from the ground up instead of lines. x goes from
 * `from` to `to`, y from 0 to the largest. `labels` stand at the left and right end below. */
export function drawChart(canvas, { series, from, to, top, bars = false, labels }) {
  const { context, width, height, colour, font, end } = pen(canvas);
  const values = series.flatMap(one => one.points.map(point => point[1]));
  const most = top ?? niceTop(Math.max(1, ...values));
  const x = value => room.left + (value - from) / Math.max(1e-9, to - from) * (width - room.left - room.right);
  const y = value => height - room.bottom - value / most * (height - room.top - room.bottom);
  context.font = font;
  context.fillStyle = colour("soft");
  context.strokeStyle = colour("line");
  context.textBaseline = "middle";
  context.textAlign = "right";
  for (const part of [0, .5, 1]) {
    context.fillText(String(most * part), room.left - 6, y(most * part));
    context.beginPath();
    context.moveTo(room.left, y(most * part));
    context.lineTo(width - room.right, y(most * part));
    context.stroke();
  }
  context.textBaseline = "alphabetic";
  context.textAlign = "left";
  context.fillText(labels[0], room.left, height - 4);
  context.textAlign = "right";
  context.fillText(labels[1], width - room.right, height - 4);
  for (const one of series) {
    context.strokeStyle = context.fillStyle = colour(one.colour);
    context.lineWidth = 1.5;
    if (bars) {
      one.points.filter(point => point[1] > 0)
        .forEach(([at, value]) => context.fillRect(x(at) - 1.5, y(value), 3, y(0) - y(value)));
    } else {
      context.beginPath();
      one.points.forEach(([at, value], index) => context[index ? "lineTo" : "moveTo"](x(at), y(value)));
      context.stroke();
    }
  }
  end();
}
