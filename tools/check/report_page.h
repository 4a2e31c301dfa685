// SPDX-License-Identifier: Apache-2.0
// What every HTML report has: its head, its style and the script behind its filters.
#pragma once

#include <string_view>

namespace nq::check
{

constexpr std::string_view kPageHead = R"page(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline'">
<meta name="color-scheme" content="light dark">
)page";

constexpr std::string_view kPageStyle = R"page(<style>
:root { --back: #fff; --card: #f5f6f8; --text: #1b1f24; --dim: #57606a; --line: #d0d7de; --link: #0550ae;
  --failed: #b3261e; --warned: #8a5300; --not-tried: #57606a; --passed: #1a6b2f; }
@media (prefers-color-scheme: dark) { :root { --back: #14171b; --card: #1f242a; --text: #e6e8eb; --dim: #a3adb8;
  --line: #3a424c; --link: #79b8ff; --failed: #ff8a80; --warned: #ffb74d; --not-tried: #a3adb8; --passed: #7fd08f; } }
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 72rem; padding: 1rem; background: var(--back); color: var(--text);
  font: 1rem/1.5 system-ui, sans-serif; overflow-wrap: anywhere; }
h1 { margin: 0; font-size: 1.5rem; }
h2 { margin: 1.5rem 0 0.5rem; font-size: 1.15rem; }
h4 { margin: 0.75rem 0 0.25rem; font-size: 0.85rem; color: var(--dim); }
dl { display: grid; grid-template-columns: max-content 1fr; gap: 0 1rem; margin: 0.5rem 0; font-size: 0.9rem; }
dt { color: var(--dim); }
dd { margin: 0; }
#summary { display: flex; flex-wrap: wrap; gap: 0.75rem; margin: 1rem 0; }
#summary div { flex: 1 1 5rem; padding: 0.5rem 0.75rem; background: var(--card); border-left: 0.3rem solid; }
#summary dd { font-size: 1.75rem; font-weight: 600; }
#filters { display: flex; flex-wrap: wrap; gap: 0.75rem 2rem; align-items: end; padding: 0.75rem; border: 1px solid var(--line); }
#filters[hidden] { display: none; }
fieldset { display: flex; flex-wrap: wrap; gap: 0.25rem 1rem; margin: 0; padding: 0; border: 0; }
legend { padding: 0; color: var(--dim); font-size: 0.85rem; }
label { display: inline-flex; align-items: center; gap: 0.35rem; min-height: 2rem; white-space: nowrap; }
input, select { font: inherit; max-width: 100%; }
input[type=checkbox] { width: 1.1rem; height: 1.1rem; }
input[type=search], select { min-width: 0; padding: 0.25rem; color: inherit; background: var(--back); border: 1px solid var(--dim); }
.count { color: var(--dim); }
#shown { flex-basis: 100%; margin: 0; color: var(--dim); }
details { border-top: 1px solid var(--line); }
summary { display: grid; grid-template-columns: 1rem 5.5rem 4.5rem 1fr max-content 4rem; gap: 0 0.5rem; padding: 0.4rem 0.25rem; cursor: pointer; }
summary::before { content: "\25B8"; color: var(--dim); }
[open] > summary::before { content: "\25BE"; }
summary:hover { background: var(--card); }
.rule > :not(summary) { margin-left: 1.75rem; margin-right: 1rem; }
.rule > dl { margin-bottom: 0.75rem; }
.clause, .severity { color: var(--dim); }
.clause { max-width: 10rem; font-size: 0.9rem; }
pre { margin: 0; padding: 0.5rem; max-height: 24rem; overflow: auto; background: var(--card);
  font: 0.85rem/1.45 ui-monospace, monospace; white-space: pre-wrap; }
pre.consumer { font: inherit; }
pre.calls { white-space: pre; overflow-wrap: normal; }
.failed .result, div.failed, label.failed { color: var(--failed); }
.warned .result, label.warned { color: var(--warned); }
.not-tried .result, div.not-tried, label.not-tried { color: var(--not-tried); }
.passed .result, div.passed, label.passed { color: var(--passed); }
.result { font-weight: 600; }
:focus-visible { outline: 0.2rem solid var(--link); outline-offset: 0.1rem; }
@media (max-width: 40rem) {
  body { padding: 0.75rem; }
  summary { grid-template-columns: 1rem max-content max-content 1fr; }
  summary .clause { display: none; }
  summary .severity { text-align: right; }
  summary .words { grid-column: 1 / -1; grid-row: 2; }
  .rule > :not(summary) { margin-left: 0; margin-right: 0; }
  #filters > label { flex: 1 1 100%; min-width: 0; }
  #filters > label > * { flex: 1 1 0; }
}
@media print { #filters { display: none; } pre { max-height: none; white-space: pre-wrap !important; } }
</style>
</head>
<body>
)page";

constexpr std::string_view kPageScript = R"page(<script>
"use strict";
const form = document.getElementById("filters");
const rules = [...document.querySelectorAll(".rule")];
const texts = rules.map(rule => rule.textContent.toLowerCase());
function ticked(name) {
  return [...form.querySelectorAll("input[name=" + name + "]:checked")].map(box => box.value);
}
function filter() {
  const results = ticked("result");
  const severities = ticked("severity");
  const family = form.elements.family.value;
  const text = form.elements.text.value.trim().toLowerCase();
  let shown = 0;
  rules.forEach((rule, index) => {
    const section = rule.parentElement;
    rule.hidden = !(results.includes(rule.dataset.result) && severities.includes(rule.dataset.severity) &&
      (family === "" || family === section.dataset.family) && texts[index].includes(text));
    shown += rule.hidden ? 0 : 1;
  });
  for (const section of document.querySelectorAll("section")) {
    section.hidden = !section.querySelector(".rule:not([hidden])");
  }
  document.getElementById("shown").textContent = shown + " of " + rules.length + " rules are shown";
}
form.addEventListener("input", filter);
form.addEventListener("change", filter);
form.addEventListener("submit", event => event.preventDefault());
form.hidden = false;
filter();
</script>
)page";

} // namespace nq::check
