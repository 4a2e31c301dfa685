#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run bench [FRAMES]: what one frame costs, of 64 KiB, 1 MiB and 16 MiB, in buffers of the library's and of the consumer's,
# by the library's own answers (which copy the latter) and with the standard's; and the rate of nq-gev grab with files of each
# format. Of large frames, and for files, a part of FRAMES is taken. As JSON in out/bench/.
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
# cost SIDE FRAMES: frames of SIDE x SIDE pixels, as fast as they go.
cost() { CAMERA_ARGUMENTS="--width $1 --height $1 --fps 0 --pattern ColorBar" scripts/two_hosts.sh build/bench/frame_cost "$2"; }
{
    printf '[\n'
    cost 256 "$frames"
    printf ',\n'
    cost 1024 $(((frames + 3) / 4))
    printf ',\n'
    cost 4096 $(((frames + 39) / 40))
    printf ']\n'
} | tee out/bench/frame_cost.json
scripts/two_hosts.sh scripts/bench_files.sh $(((frames + 3) / 4)) out/bench | tee out/bench/file_rate.json
