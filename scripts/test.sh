#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run test [KIND/NAME]... [--label KIND]... [--filter REGEX] [--list]: builds and runs the tests, and sums them up. A
# kind is a folder of tests/, KIND/NAME one program of it (unit/buffer_test is tests/unit/buffer_test.cpp); the expression
# is for names of cases, which --list explains. The first time takes about 25 minutes on
# two cores, nine of them for the tests. NQ_BUILD and NQ_BUILD_ARGUMENTS choose another build, as the sanitizer
# commands do, NQ_TEST_JOBS how many cases run at a time.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
# Cases about users want a real root, if there is a way to become it.
# shellcheck disable=SC2034
packages="$build_packages $test_packages" sudo_first=1
become_root "$@"
labels='' filter='' list='' NQ_TARGETS=''
while [ $# -gt 0 ]; do
    case "$1" in
    --label)
        labels="${labels:+$labels|}^$2/"
        NQ_TARGETS="$NQ_TARGETS tests_$2"
        shift 2
        ;;
    */*)
        [ -f "tests/$1.cpp" ] || fail "there is no tests/$1.cpp"
        labels="${labels:+$labels|}^$1\$"
        NQ_TARGETS="$NQ_TARGETS ${1/\//_}"
        shift
        ;;
    --filter) filter=$2; shift 2 ;;
    --list) list=1; shift ;;
    *) fail "unknown argument $1" ;;
    esac
done
need_disk
# shellcheck disable=SC2086
install $build_packages $test_packages
[[ ${NQ_BUILD_ARGUMENTS:-} != *clang* ]] || install clang "libclang-rt-$(clang_version)-dev"
need_namespaces
folder=${NQ_BUILD:-build}
# shellcheck disable=SC2086
build "$folder" "$(fast_linker)" ${NQ_BUILD_ARGUMENTS:-}
select=()
[ -z "$labels" ] || select+=(-L "$labels")
[ -z "$filter" ] || select+=(-R "$filter")
if [ -n "$list" ]; then
    ctest --test-dir "$folder" "${select[@]}" --show-only=json-v1 | python3 scripts/list_tests.py
    exit
fi
progress=()
[ ! -t 1 ] || progress=(--terminal)
# Results of an earlier run must not stand for this one, and the run fails when ctest says so, whatever the sum.
rm -f "$folder/tests.xml"
status=0
# Cases wait for four fifths of their time, with sanitizers too: three for each core. Those that do not, run alone.
scripts/private_tmp.sh ctest --test-dir "$folder" "${select[@]}" -j "${NQ_TEST_JOBS:-$(($(nproc) * 3))}" --no-tests=error \
    --output-junit "$PWD/$folder/tests.xml" 2>&1 |
    python3 scripts/show_progress.py "$folder/tests.log" "${progress[@]}" || status=$?
[ "$status" != 130 ] || exit 130
python3 scripts/sum_up.py "$folder/tests.xml" || fail "see $folder/tests.log"
[ "$status" = 0 ] || fail "ctest ended with $status; see $folder/tests.log"
