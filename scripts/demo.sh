#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run demo [--answers stated]: a virtual camera and a consumer on two hosts of their own; without the right to make
# hosts, on an address of this machine, where discovery asks its network for cameras. Checks 300 pictures of 1280 x 1024
# pixels byte by byte, then takes 300 of a drawn scene and writes every 30th to out/demo/. The library gives the
# standard's answers, or its own with --answers stated. The first time takes about four minutes, later ones half of one.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
# shellcheck disable=SC2034
packages=$build_packages one_host_will_do=1
become_root "$@"
export ANSWERS=standard # read by demo_grab.sh
case "$*" in
'' | '--answers standard') ;;
'--answers stated') ANSWERS=stated ;;
*) fail "the demo takes --answers stated or --answers standard, not \"$*\"" ;;
esac
need_disk
# shellcheck disable=SC2086
install $build_packages
NQ_TARGETS="nq_gev_rdma_tl nq-gev nq-gev-camera nq_rdma_loopback" build build
rm -rf out/demo
size="--width 1280 --height 1024"
CAMERA_ARGUMENTS="$size" scripts/two_hosts.sh scripts/demo_grab.sh --count 300 --verify
echo
CAMERA_ARGUMENTS="$size --pixel-format RGB8 --pattern Scene" \
    scripts/two_hosts.sh scripts/demo_grab.sh --count 300 --out out/demo --save-every 30
cat <<TEXT

300 frames checked byte by byte; $(find out/demo -name '*.png' | wc -l) pictures of a moving scene in $PWD/out/demo
Next:
  build/nq-gev list      # the cameras of this machine's networks
  ./run test             # all tests
TEXT
