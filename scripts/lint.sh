#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run lint: formatting, both compilers with warnings as errors, clang-tidy on everything that is not a test.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
# shellcheck disable=SC2086
install $build_packages $test_packages $lint_packages
need_disk

echo "clang-format"
git ls-files '*.h' '*.cpp' '*.c' | xargs clang-format --dry-run -Werror || fail "run: clang-format -i on the files above"

build build-lint-gcc -DNQ_WARNINGS_AS_ERRORS=ON -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=-g0 -DCMAKE_CXX_COMPILER=g++
build build-lint-clang -DNQ_WARNINGS_AS_ERRORS=ON -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=-g0 \
    -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang

echo "clang-tidy"
git ls-files 'src/*.cpp' 'camera/*.cpp' 'loopback/*.cpp' 'tools/*.cpp' |
    xargs -P "$(nproc)" -n 4 clang-tidy -p build-lint-clang --quiet --warnings-as-errors='*' >out/clang-tidy.log 2>/dev/null || {
    grep -E '(warning|error):' out/clang-tidy.log | sort -u | head -n 60 >&2
    fail "clang-tidy found something; see out/clang-tidy.log"
}
echo "lint is clean"
