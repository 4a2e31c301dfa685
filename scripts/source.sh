#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# source.sh FOLDER: the source as it is handed out, nq-gev-rdma-tl-VERSION.tar.xz: what is committed, and of a source that
# came without git all but what was built. It builds without a network. The same source gives the same bytes.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
folder=$1
version=$(sed -n 's/^project(.* VERSION \([0-9.]*\) .*/\1/p' CMakeLists.txt)
name=nq-gev-rdma-tl-$version
mkdir -p "$folder"
rm -f "$folder"/nq-gev-rdma-tl-*.tar.xz
if [ -e .git ]; then
    [ -z "$(GIT_OPTIONAL_LOCKS=0 git -c safe.directory='*' status --porcelain)" ] ||
        echo "what is not committed is not in the source that is packaged" >&2
    git -c safe.directory='*' archive --prefix="$name/" HEAD
else
    tar -c --sort=name --owner=0 --group=0 --numeric-owner --mtime="@$(date -d "$(sed -n 's/^ -- .*>  //p;T;q' debian/changelog)" +%s)" \
        --exclude='./build*' --exclude=./out --exclude=./.run.lock --transform="s,^\.,$name," .
fi | xz -T1 >"$folder/$name.tar.xz"
