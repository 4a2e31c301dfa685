#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run mutate AREA [--count N] [--seed S] [--only FILE:LINE[#N]...]: changes single places of src/ in a copy of the tree
# and lists the changes that no test notices. docs/developing.md tells more.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
need_disk
# shellcheck disable=SC2086
install $build_packages $test_packages "python3-clang-$(clang_version)" "libclang-common-$(clang_version)-dev" binutils
need_namespaces
folder=$PWD/out/mutate
mkdir -p "$folder/build-lines"
# The Python of the distribution has the packages of the distribution.
PATH=/usr/bin:$PATH
export PYTHONPATH=scripts/mutate PYTHONDONTWRITEBYTECODE=1
python3 -c 'import build, sys; build.copy_tree(".", sys.argv[1])' "$folder/tree"
gcc -O1 -fPIC -Wall -Wextra -c scripts/mutate/trace_lines.c -o "$folder/trace_lines.o"
common=(-DCMAKE_BUILD_TYPE=Debug -DNQ_SHARED_LAYERS=ON "$(fast_linker)")
cd "$folder/tree"
NQ_TARGETS='nq_layers nq_gev_rdma_tl nq-gev nq-gev-camera nq_rdma_loopback tests_unit tests_wire tests_module tests_e2e tests_tools' \
    build ../build "${common[@]}" -DCMAKE_CXX_FLAGS_DEBUG="-O0 -g0" -DCMAKE_SHARED_LINKER_FLAGS=-fuse-ld=lld
NQ_TARGETS='nq_layers nq_gev_rdma_tl' build ../build-lines "${common[@]}" \
    -DCMAKE_CXX_FLAGS_DEBUG="-O0 -g1 -fsanitize-coverage=trace-pc" \
    -DCMAKE_SHARED_LINKER_FLAGS="-fuse-ld=lld $folder/trace_lines.o"
cd - >/dev/null
exec python3 scripts/mutate/mutate.py --folder "$folder" "$@"
