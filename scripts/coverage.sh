#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run coverage [--label KIND]...: runs the tests on an instrumented library and prints which part of its lines and
# branches they execute, for each folder of src/. Missed lines by file: out/coverage/FOLDER.txt; pages: index.html there.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
install gcovr
export NQ_BUILD=build-coverage
export NQ_BUILD_ARGUMENTS="-DNQ_COVERAGE=ON -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-O0"
mkdir -p "$NQ_BUILD" out/coverage
find "$NQ_BUILD" -name '*.gcda' -delete
scripts/test.sh "$@"
# Branches that only an exception takes, and those that the compiler adds, are not the tests' to take.
gcovr --root . --filter src/ --object-directory "$NQ_BUILD" --exclude-throw-branches --exclude-unreachable-branches \
    -j "$(nproc)" --json out/coverage/coverage.json --html-details out/coverage/index.html --html-title "NQ GenTL producer" \
    "$NQ_BUILD/src" >out/coverage/gcovr.log 2>&1 || fail "gcovr failed; see out/coverage/gcovr.log"
python3 scripts/coverage_table.py out/coverage/coverage.json out/coverage
