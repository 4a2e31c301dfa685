#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run check [--matrix]: the tests of gentl-check, then gentl-check on a made-up producer with each of its faults; prints
# which rules find which. Exit code 1 when they are not those that tests/support/faulty_producer/faults.txt names. With
# --matrix only the latter.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
[ $# = 0 ] || [ "$*" = --matrix ] || fail "unknown arguments $*"
if [ $# = 0 ]; then
    scripts/test.sh --label check
fi
need_disk
# shellcheck disable=SC2086
install $build_packages $test_packages
folder=${NQ_BUILD:-build}
NQ_TARGETS="gentl-check nq_faulty_whole nq_faulty_short"
build "$folder" "$(fast_linker)"
python3 scripts/check_matrix.py "$folder" tests/support/faulty_producer/faults.txt
