// SPDX-License-Identifier: Apache-2.0
// What the doctor finds: what is wrong first, with the line that mends it.
import { post } from "./api.js";
import { make, say } from "./dom.js";

const order = ["wrong", "not known", "right"];

function shown(finding) {
  const verdict = make("span", { textContent: finding.verdict,
    className: `verdict ${{ wrong: "wrong", "not known": "unknown" }[finding.verdict] ?? ""}` });
  return make("div", { className: "finding" }, verdict, make("strong", { textContent: finding.question }),
    make("p", { textContent: finding.subject ? `${finding.subject}: ${finding.text}` : finding.text }),
    ...(finding.mend ? [make("pre", { tabIndex: 0 }, make("code", { textContent: finding.mend }))] : []));
}

export class Doctor {
  constructor(element) {
    this.button = make("button", { type: "button", textContent: "Examine", onclick: () => this.examine() });
    this.told = make("p", { className: "hint", role: "status",
      textContent: "Walks the chain from the library to the memory for frames. It takes some seconds and changes nothing." });
    this.list = make("div");
    element.append(this.told, this.button, this.list);
  }

  async examine() {
    this.button.disabled = true;
    say(this.told, "The doctor is examining …");
    try {
      const all = await post("doctor", {});
      say(this.told, `${all.wrong} wrong, ${all.not_known} not known, ${all.right} right`);
      this.list.replaceChildren(...order.flatMap(verdict =>
        all.findings.filter(one => one.verdict === verdict).map(shown)));
    } catch (failure) {
      say(this.told, failure.message);
    }
    this.button.disabled = false;
    this.button.focus();
  }
}
