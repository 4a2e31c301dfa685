#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run soak MINUTES: endurance. With 20 minutes or more: 1000 acquisitions, 10 000 interface updates, 2000 device opens,
# 1000 loads of the library and 10 million frames of 4 KiB; with fewer, as many times less. Exit code 1 when something
# is lost, grows, or is not reached in the time. The samples and their plot go to out/soak/.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
minutes=${1:-}
[[ $minutes =~ ^[1-9][0-9]*$ ]] || fail "usage: ./run soak MINUTES"
need_disk
# shellcheck disable=SC2086
install $build_packages $test_packages python3-matplotlib
need_namespaces
NQ_TARGETS="soak nq-gev-camera nq_rdma_loopback" build build "$(fast_linker)"
rm -rf out/soak
mkdir -p out/soak
# One camera for each phase that opens one. They keep their host for an hour unheard: one beat that comes too late on a busy
# machine would end a run of many minutes.
export MORE_CAMERA_ADDRESSES="10.77.0.3 10.77.0.4"
export CAMERA_ARGUMENTS="--count 3 --serial SOAK0 --width 64 --height 64 --fps 0 --heartbeat 3600000"
exec scripts/two_hosts.sh /usr/bin/python3 scripts/soak.py "$minutes" build/tests/soak out/soak
