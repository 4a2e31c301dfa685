#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""docs_tree.py FOLDER: copies every page of the checkout to the folder, and every file that a page links to, under the same
paths, so that links mean there what they mean in the checkout. A link to a folder leads to its page, or to the list of what is
where in the first page."""
import os
import re
import shutil
import sys

from check_links import pages, targets


def main(folder):
    copied = 0
    for page in sorted(pages(".")):
        path = os.path.relpath(page, ".")
        if path.startswith("."):
            continue
        links = {target.partition("#")[0] for target in targets(page) if not re.match(r"[a-z]+:", target)} - {""}
        for name in {path} | {os.path.normpath(os.path.join(os.path.dirname(path), link)) for link in links}:
            if os.path.isfile(name):
                os.makedirs(os.path.dirname(os.path.join(folder, name)) or folder, exist_ok=True)
                shutil.copyfile(name, os.path.join(folder, name))
                copied += 1
    print(f"{copied} files copied")
    return 0


sys.exit(main(*sys.argv[1:]))
