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
          ("audio", "src"), ("object", "data"), ("embed", "src"), ("form", "action"), ("video", "poster"), ("input", "src"),
          ("track", "src"), ("image", "href"), ("use", "href"), ("image", "xlink:href"),
          ("use", "xlink:href"), ("base", "href")}
# What a link element names without loading it.
NAMED = {"canonical", "next", "prev", "author", "license"}
ELSEWHERE = r"(?:[a-z]+:)?//"


def loaded_by_style(text):
    return (re.findall(rf"(?i)url\(\s*[\"']?({ELSEWHERE}[^)\"']*)", text) +
            re.findall(rf"(?i)@import\s+[\"']({ELSEWHERE}[^;\"']*)", text))


class Loads(html.parser.HTMLParser):
    def __init__(self):
        super().__init__()
        self.found = []

    def handle_starttag(self, tag, attrs):
        attributes = dict(attrs)
        if tag == "link" and attributes.get("rel") in NAMED:
            return
        for name, value in attrs:
            if (tag, name) in LOADED and re.match(rf"(?i)\s*{ELSEWHERE}", value or ""):
                self.found.append(value)
            elif name == "srcset":
                self.found += re.findall(rf"(?i)(?:^|,)\s*({ELSEWHERE}\S*)", value or "")
            elif name == "style":
                self.found += loaded_by_style(value or "")


def foreign(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        text = file.read()
    if path.endswith(".css"):
        return loaded_by_style(text)
    parser = Loads()
    parser.feed(text)
    return parser.found + loaded_by_style(" ".join(re.findall(r"(?is)<style.*?</style>", text)))


def main(folder):
    paths = [os.path.join(path, name) for path, _, files in os.walk(folder) for name in files]
    pages = [path for path in paths if path.endswith(".html")]
    bad = [(path, url) for path in sorted(paths) if path.endswith((".html", ".css")) for url in foreign(path)]
    for path, url in bad:
        print(f"{os.path.relpath(path, folder)} loads {url}")
    with open(os.path.join(folder, "search/search_index.json"), encoding="utf-8") as file:
        searched = {entry["location"].partition("#")[0] for entry in json.load(file)["docs"]}
    # The reference of the headers has a search of its own.
    own = {os.path.relpath(page, folder) for page in pages if not os.path.relpath(page, folder).startswith("api/")}
    missing = own - searched - {"404.html"}
    for page in sorted(missing):
        print(f"{page} is not in the index of the search")
    print(f"{len(pages)} pages, {len(bad)} of their parts from elsewhere, {len(missing)} not found by the search")
    return 1 if bad or missing or not pages else 0


sys.exit(main(*sys.argv[1:]))
