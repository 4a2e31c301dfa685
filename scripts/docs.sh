#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run docs: makes the site of the documentation in out/docs/site/, with a reference of the installed headers in its api/,
# and fails when a page is missing, a link leads nowhere, a page would load anything from elsewhere, or nobody says what runs
# a command (docs/commands.txt) or makes a picture (docs/pictures.txt). Look at it by `python3 -m http.server --directory out/docs/site`.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
[ $# = 0 ] || fail "docs takes no argument \"$1\""
# shellcheck disable=SC2086
install $docs_packages
/usr/bin/python3 scripts/check_commands.py .
/usr/bin/python3 scripts/pictures.py .
rm -rf out/docs
mkdir -p out/docs/pages
/usr/bin/python3 scripts/docs_tree.py out/docs/pages
doxygen docs/doxygen.conf 2>out/docs/doxygen.txt || { cat out/docs/doxygen.txt >&2 && fail "doxygen found something"; }
/usr/bin/mkdocs build --strict >out/docs/mkdocs.txt 2>&1 || { cat out/docs/mkdocs.txt >&2 && fail "mkdocs found something"; }
echo "links"
# The style that newer Doxygen writes names pictures of tabs and of a search that it makes only with these.
linkchecker --no-status --no-warnings --ignore-url='/(mag|mag_sel|tab_a)_?d?\.(svg|png)$' out/docs/site/index.html >out/docs/links.txt 2>&1 ||
    { cat out/docs/links.txt >&2 && fail "links of the site lead nowhere"; }
/usr/bin/python3 scripts/check_site.py out/docs/site
# shellcheck disable=SC2086
if [ -n "$(missing_packages $browser_packages)" ]; then
    echo "the search is not tried: that takes $browser_packages"
else
    unshare --net sh -c 'ip link set lo up; exec /usr/bin/python3 scripts/search_site.py out/docs/site memlock docs/first-camera.html'
fi
