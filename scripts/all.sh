#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run all: what CI runs, and what takes longer: the analyzer of clang-tidy to its end, the tools under ThreadSanitizer,
# Debian's packages, the examples, their container too, the page of nq-gev view in a browser, all tests on Debian 13, every
# fault, gentl-check in the guests, a minute of each fuzz target, and the endurance run. A few hours on two cores.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
[ $# = 0 ] || fail "all takes no argument \"$1\""
.ci/run
./run lint
./run tsan --label tools
./run bench --quick
./run package
./run examples
./run view-test
scripts/examples_container.sh
./run test --on trixie
./run faults
./run roce check check_long
./run fuzz 60
./run soak 20
