#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""check_site.py FOLDER: the pages of a site load nothing from elsewhere: no script, style, font, picture or frame. Links to
follow may lead anywhere. And the site can be searched: its index knows every page."""
import html.parser
import json
import os
import re
import sys

LOADED = {("script", "src"), ("link", "href"), ("img", "src"), ("iframe", "src"), ("source", "src"), ("video", "src"),
          ("audio", "src"), ("object", "data"), ("embed", "src"), ("form", "action")}
# What a link element names without loading it.
NAMED = {"canonical", "next", "prev", "author", "license"}


class Loads(html.parser.HTMLParser):
    def __init__(self):
        super().__init__()
        self.found = []

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        if tag == "link" and attributes.get("rel") in NAMED:
            return
        self.found += [value for name, value in attrs if (tag, name) in LOADED and re.match(r"(?i)([a-z]+:)?//", value or "")]


def foreign(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        text = file.read()
    if path.endswith(".css"):
        return re.findall(r"url\([\"']?((?:[a-z]+:)?//[^)\"']*)", text) + re.findall(r"@import[^;]*//[^;]*", text)
    parser = Loads()
    parser.feed(text)
    return parser.found


def main(folder):
    paths = [os.path.join(path, name) for path, _, files in os.walk(folder) for name in files]
    pages = [path for path in paths if path.endswith(".html")]
    bad = [(path, url) for path in sorted(paths) if path.endswith((".html", ".css")) for url in foreign(path)]
    for path, url in bad:
        print(f"{os.path.relpath(path, folder)} loads {url}")
    with open(os.path.join(folder, "search/search_index.json"), encoding="utf-8") as file:
        searched = {entry["location"].partition("#")[0] for entry in json.load(file)["docs"]}
    missing = {os.path.relpath(page, folder) for page in pages} - searched - {"404.html"}
    for page in sorted(missing):
        print(f"{page} is not in the index of the search")
    print(f"{len(pages)} pages, {len(bad)} of their parts from elsewhere, {len(missing)} not found by the search")
    return 1 if bad or missing or not pages else 0


sys.exit(main(*sys.argv[1:]))
