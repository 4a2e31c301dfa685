#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run asan: all tests under AddressSanitizer (with leaks) and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
export NQ_BUILD=build-asan NQ_BUILD_ARGUMENTS="-DNQ_SANITIZE=address,undefined -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-g1"
# The software RDMA is preloaded, so it comes before the run-time of the sanitizer.
export ASAN_OPTIONS=verify_asan_link_order=0
exec scripts/test.sh "$@"
