#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run bench [FRAMES]: what one frame costs inside the producer, and the rate of nq-gev grab with files of each format, for
# which a fourth of the frames is taken. As JSON in out/bench/.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
need_disk
# shellcheck disable=SC2086
install $build_packages
need_namespaces
NQ_TARGETS="nq_gev_rdma_tl nq-gev nq-gev-camera nq_rdma_loopback frame_cost" build build
mkdir -p out/bench
export GENICAM_GENTL64_PATH=build
frames=${1:-2000}
scripts/two_hosts.sh build/bench/frame_cost "$frames" | tee out/bench/frame_cost.json
scripts/two_hosts.sh scripts/bench_files.sh $(((frames + 3) / 4)) out/bench | tee out/bench/file_rate.json
