#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""check_links.py FOLDER: every relative link of the Markdown files below the folder leads to a file, and to a heading where it
names one. Prints those that do not; exit code 1 when there are any, or no links at all."""
import os
import re
import sys

LEFT_OUT = re.compile(r"^(build.*|out|\.git)$")


def pages(folder):
    for path, folders, files in os.walk(folder):
        folders[:] = [name for name in folders if not LEFT_OUT.match(name)]
        yield from (os.path.join(path, name) for name in files if name.endswith(".md"))


def without_code(text):
    text = re.sub(r"^( *)```.*?^\1```$", "", text, flags=re.MULTILINE | re.DOTALL)
    return re.sub(r"`[^`\n]*`", "", text)


def anchors(path):
    """What the headings of a page are called in links: small letters, hyphens for spaces, numbers for repetitions."""
    with open(path, encoding="utf-8") as file:
        text = re.sub(r"^( *)```.*?^\1```$", "", file.read(), flags=re.MULTILINE | re.DOTALL)
    found = {}
    for heading in re.findall(r"^#+ +(.*?) *$", text, flags=re.MULTILINE):
        name = re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
        found[name] = found.get(name, -1) + 1
    return {name if number == 0 else f"{name}-{number}" for name, count in found.items() for number in range(count + 1)}


def targets(page):
    with open(page, encoding="utf-8") as file:
        text = without_code(file.read())
    # A link may have a title, and may be named in the text and stand elsewhere.
    return (re.findall(r"""\]\(([^)\s]+)(?: +(?:"[^"]*"|'[^']*'))? *\)""", text) +
            re.findall(r"^ {0,3}\[[^\]\n]+\]: +(\S+)", text, flags=re.MULTILINE))


def complaints(page):
    for target in targets(page):
        if re.match(r"[a-z]+:", target):
            yield target, None
            continue
        path, _, anchor = target.partition("#")
        file = os.path.normpath(os.path.join(os.path.dirname(page), path)) if path else page
        if not os.path.exists(file):
            yield target, "no such file"
        elif anchor and anchor not in anchors(file):
            yield target, "no such heading"
        else:
            yield target, None


def main(folder):
    links = 0
    bad = 0
    for page in sorted(pages(folder)):
        for target, complaint in complaints(page):
            links += 1
            if complaint:
                bad += 1
                print(f"{os.path.relpath(page, folder)}: {target}: {complaint}")
    print(f"{links} links, {bad} of them lead nowhere")
    return 1 if bad or not links else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
