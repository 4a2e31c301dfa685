#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run view-test: uses the page of nq-gev view in Chromium as a person does: picture, features by keyboard, plots, the doctor,
# a recording, two cameras of which one is lost and comes back, and what axe-core finds where npm reaches it. Leaves pictures of
# the page in out/view/. The picture must be less than 300 ms behind the camera, so the machine has to be idle.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
[ $# = 0 ] || fail "view-test takes no argument \"$1\""
need_disk
# shellcheck disable=SC2086
install $build_packages $test_packages $browser_packages
fetch_axe
need_namespaces
folder=${NQ_BUILD:-build}
NQ_TARGETS="tools_view_page_test"
build "$folder" "$(fast_linker)"
rm -rf out/view
mkdir -p out/view
NQ_VIEW_TEST=1 scripts/private_tmp.sh ctest --test-dir "$folder" -R '^tools\.ViewPage\.' --no-tests=error --verbose \
    >out/view/test.log 2>&1 || {
    cat out/view/test.log >&2
    fail "the page is not right; see out/view/test.log"
}
sed -n 's/^[0-9]*: \(the picture is .*\|axe-core .*\|.* is not installed\)/\1/p;/tests passed/p' out/view/test.log
echo "pictures of the page: $(echo out/view/*.png)"
