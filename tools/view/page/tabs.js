// SPDX-License-Identifier: Apache-2.0
// One of several panels at a time; the arrow keys go from tab to tab.

export function makeTabs(list, changed) {
  const tabs = [...list.querySelectorAll("[role=tab]")];
  const choose = tab => {
    for (const one of tabs) {
      const chosen = one === tab;
      one.setAttribute("aria-selected", chosen);
      one.tabIndex = chosen ? 0 : -1;
      document.getElementById(one.getAttribute("aria-controls")).hidden = !chosen;
    }
    changed(tab.getAttribute("aria-controls"));
  };
  tabs.forEach((tab, at) => {
    tab.onclick = () => choose(tab);
    tab.onkeydown = event => {
      const step = { ArrowRight: 1, ArrowLeft: -1 }[event.key];
      if (step) {
        const next = tabs[(at + step + tabs.length) % tabs.length];
        next.focus();
        choose(next);
        event.preventDefault();
      }
    };
  });
}
