#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run asan: all tests under AddressSanitizer (with leaks) and UndefinedBehaviorSanitizer.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
export NQ_BUILD=build-asan NQ_BUILD_ARGUMENTS="-DNQ_SANITIZE=address,undefined -DCMAKE_BUILD_TYPE=Debug"
exec scripts/test.sh "$@"
