#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run demo: a virtual camera and a consumer on two hosts of their own, 300 checked pictures.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
need_disk
# shellcheck disable=SC2086
install $build_packages
need_namespaces
NQ_TARGETS="nq_gev_rdma_tl nq-gev nq-gev-camera nq_rdma_loopback" build build
rm -rf out/demo
export CAMERA_ARGUMENTS="--width 1280 --height 1024"
exec scripts/two_hosts.sh scripts/demo_grab.sh
