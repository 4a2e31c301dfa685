#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run test [--label KIND]... [--filter REGEX] [--list]: builds and runs the tests, and sums them up. NQ_BUILD and
# NQ_BUILD_ARGUMENTS choose another build, as the sanitizer commands do.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
labels='' filter='' list='' NQ_TARGETS=''
while [ $# -gt 0 ]; do
    case "$1" in
    --label)
        labels="${labels:+$labels|}^$2\$"
        NQ_TARGETS="$NQ_TARGETS tests_$2"
        shift 2
        ;;
    --filter) filter=$2; shift 2 ;;
    --list) list=1; shift ;;
    *) fail "unknown argument $1" ;;
    esac
done
need_disk
# shellcheck disable=SC2086
install $build_packages $test_packages
need_namespaces
folder=${NQ_BUILD:-build}
# shellcheck disable=SC2086
build "$folder" -DCMAKE_EXE_LINKER_FLAGS=-fuse-ld=lld ${NQ_BUILD_ARGUMENTS:-}
select=()
[ -z "$labels" ] || select+=(-L "$labels")
[ -z "$filter" ] || select+=(-R "$filter")
if [ -n "$list" ]; then
    ctest --test-dir "$folder" "${select[@]}" --show-only=json-v1 | python3 scripts/list_tests.py
    exit
fi
progress=()
[ ! -t 1 ] || progress=(--progress)
# Results of an earlier run must not stand for this one, and the run fails when ctest says so, whatever the sum.
rm -f "$folder/tests.xml" "$folder/repeated.xml"
run_tests() { ctest --test-dir "$folder" "$@" "${progress[@]}" --no-tests=error >>"$folder/tests.log" 2>&1; }
: >"$folder/tests.log"
status=0 results=("$folder/tests.xml")
run_tests "${select[@]}" -j "$(($(nproc) * 2))" --output-junit "$PWD/$folder/tests.xml" || status=$?
# On a machine that is short of time the waits of GVCP can be too short for any test, so a few failures get a second try
# without neighbours, and are told. What a sanitizer reports stands.
failed=$(wc -l 2>/dev/null <"$folder/Testing/Temporary/LastTestsFailed.log" || echo 0)
if [ "$status" != 0 ] && [ "$failed" -gt 0 ] && [ "$failed" -le 10 ] &&
    ! grep -qE '(Address|Leak|Thread)Sanitizer: |runtime error: ' "$folder/tests.xml"; then
    results+=("$folder/repeated.xml")
    status=0
    run_tests --rerun-failed --output-junit "$PWD/$folder/repeated.xml" || status=$?
fi
python3 scripts/sum_up.py "${results[@]}" || fail "see $folder/tests.log"
[ "$status" = 0 ] || fail "ctest ended with $status; see $folder/tests.log"
