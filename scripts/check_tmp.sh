#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# check_tmp.sh [FOLDER]: prints each line of the tree that names a file in a folder where everybody may write, and fails
# when there is one. Whoever makes the name first, or a link of that name, has what a root writes there: use mktemp.
set -euo pipefail
cd "${1:-$(dirname "$(readlink -f "$0")")/..}"
folder='(/tmp|/dev/shm)'
ours='[A-Za-z0-9_.-]*'
# The software RDMA lets no folder pass that is a link or not its own; programs that are to meet need a name they know.
allowed="$folder/${ours}XXXXXX|temp_directory_path\(\) / \"${ours}XXXXXX|/tmp/nq-rdma-loopback-(\" \+ std::to_string\(geteuid\(\)\)|UID)"
# A name behind the folder, in or after the quotes or braces around it; one that is joined to it; functions that name.
names="${folder}[]\"'})]*/[\"']*[A-Za-z0-9_.\$%{<]"
joined="$folder/?[\"']\)? *([+,/]|<<)"
functions='temp_directory_path\(\)|TempDir\(\)|gettempdir|tempnam|tmpnam|mktemp\(|mktemp (-[a-z]+ )*-[a-z]*u'
# grep without a match is what is hoped for; any other failure of it is one of this check. Python's folders, where files
# come and go while somebody runs a script, are passed over: one that goes too early is a failure of grep.
search() {
    grep "$@" || [ $? = 1 ]
}
found=$(search -rnIE "$names|$joined|$functions" --exclude-dir='build*' --exclude-dir=out --exclude-dir=.git \
    --exclude-dir=__pycache__ --exclude=check_tmp.sh . | sed -E "s&$allowed&&g" | search -E "$names|$joined|$functions")
[ -z "$found" ] || {
    echo "$found" >&2
    echo "check_tmp.sh: fixed names in a folder of everybody" >&2
    exit 1
}
