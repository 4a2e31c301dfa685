#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""pictures.py FOLDER: every picture that a page below the folder shows stands in its docs/pictures.txt with what makes it, a file
that a command of ./run leaves or a case of tests/ that compares it, and nothing else stands there. Exit code 1 when one does not.
pictures.py --take FOLDER: copies those of these files that are there to where the pages show them."""
import os
import re
import shutil
import sys

from check_commands import cases
from check_links import pages, without_code


def shown(folder):
    """Every picture with the first page that shows it."""
    found = {}
    for page in sorted(pages(folder)):
        with open(page, encoding="utf-8") as file:
            for name in re.findall(r"!\[[^\]]*\]\(([^)\s]+)\)", without_code(file.read())):
                picture = os.path.relpath(os.path.normpath(os.path.join(os.path.dirname(page), name)), folder)
                found.setdefault(picture, os.path.relpath(page, folder))
    return found


def read_table(folder):
    with open(os.path.join(folder, "docs/pictures.txt"), encoding="utf-8") as file:
        lines = [line.strip() for line in file if line.strip() and not line.startswith("#")]
    return dict(re.split(r" <- ", line) for line in lines)


def complaints(folder):
    table, known, found = read_table(folder), cases(folder), shown(folder)
    yield from (f"{page}: nobody says what makes {picture}" for picture, page in found.items() if picture not in table)
    yield from (f"docs/pictures.txt: no page shows {picture}" for picture in table if picture not in found)
    yield from (f"docs/pictures.txt: nothing makes {picture}: {maker}" for picture, maker in table.items()
                if maker not in known and not re.match(r"(out|build)/", maker))


def take(folder):
    for picture, maker in read_table(folder).items():
        source = os.path.join(folder, maker)
        if os.path.isfile(source):
            shutil.copyfile(source, os.path.join(folder, picture))
            print(f"{picture}: {maker}")
    return 0


def main(folder):
    bad = list(complaints(folder))
    print("\n".join(bad + [f"{len(read_table(folder))} pictures, {len(bad)} wrong"]))
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(take(sys.argv[2]) if sys.argv[1] == "--take" else main(sys.argv[1]))
