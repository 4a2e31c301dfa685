#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run tsan: all tests under ThreadSanitizer.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
export NQ_BUILD=build-tsan NQ_BUILD_ARGUMENTS="-DNQ_SANITIZE=thread -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG=-g1"
exec scripts/test.sh "$@"
