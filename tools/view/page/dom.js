// SPDX-License-Identifier: Apache-2.0
// Makes elements. Texts of cameras become texts and nothing else.

export function make(name, attributes = {}, ...children) {
  const element = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (key in element && key !== "list") {
      element[key] = value;
    } else {
      element.setAttribute(key, value);
    }
  }
  element.append(...children);
  return element;
}

/** Sets a text only when it is another one, so that screen readers and selections are left in peace. */
export function say(element, text) {
  if (element.textContent !== text) {
    element.textContent = text;
  }
}
