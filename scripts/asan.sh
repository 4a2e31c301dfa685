#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run asan: all tests under AddressSanitizer (with leaks) and UndefinedBehaviorSanitizer, built by clang++: that takes
# half as long as by g++, and shows its warnings.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
export NQ_BUILD=build-asan NQ_BUILD_ARGUMENTS="-DNQ_SANITIZE=address,undefined -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-g1
    -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++"
# The software RDMA is preloaded, so it comes before the run-time of the sanitizer. Two copies of the library in one process
# share their exported variables, and are tested so: only those of different sizes count as defined twice.
export ASAN_OPTIONS=verify_asan_link_order=0:detect_odr_violation=1
# In quotes: a path may hold a space or a colon, and both end a value.
export LSAN_OPTIONS="suppressions='$PWD/tests/support/lsan.supp':print_suppressions=0"
exec scripts/test.sh "$@"
