// SPDX-License-Identifier: Apache-2.0
// Asks nq-gev. What it refuses comes out as an Error with its `code`, which is the exit code of the same verb.

async function answer(response) {
  const json = await response.json().catch(() => ({ error: `the answer is ${response.status}` }));
  if (!response.ok) {
    throw Object.assign(new Error(json.error), { code: json.code });
  }
  return json;
}

export async function get(name, query) {
  return answer(await fetch(`${name}?${new URLSearchParams(query)}`));
}

export async function post(name, query, body = {}) {
  return answer(await fetch(`${name}?${new URLSearchParams(query)}`, { method: "POST", body: JSON.stringify(body) }));
}
