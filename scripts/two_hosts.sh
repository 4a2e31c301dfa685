#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# two_hosts.sh COMMAND...: inside a fresh network namespace, makes a second one joined by a virtual cable and starts the
# virtual camera there (10.77.0.2 and MORE_CAMERA_ADDRESSES; arguments in CAMERA_ARGUMENTS), then runs COMMAND here
# (10.77.0.1). Everything ends with this script. Both hosts use the software RDMA of build/.
set -euo pipefail
ip link set lo up
work=$(mktemp -d)
unshare --net sleep infinity &
holder=$!
camera=
cleanup() {
    [ -z "$camera" ] || kill "$camera" 2>/dev/null || true
    [ -z "$camera" ] || wait "$camera" 2>/dev/null || true
    kill "$holder" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
until [ "$(readlink /proc/$holder/ns/net)" != "$(readlink /proc/$$/ns/net)" ]; do sleep 0.01; done

ip link add host0 type veth peer name cam0
ip link set cam0 netns "$holder"
ip addr add 10.77.0.1/24 brd + dev host0
ip link set host0 up
nsenter -t "$holder" -n sh -c 'ip link set lo up; ip addr add 10.77.0.2/24 brd + dev cam0; ip link set cam0 up'
for more in ${MORE_CAMERA_ADDRESSES:-}; do
    nsenter -t "$holder" -n ip addr add "$more/24" brd + dev cam0
done

export NQ_RDMA_LOOPBACK_DIR=$work/rdma LD_PRELOAD=$PWD/build/libnq_rdma_loopback.so
mkdir -m 700 "$NQ_RDMA_LOOPBACK_DIR"
# shellcheck disable=SC2086
nsenter -t "$holder" -n build/nq-gev-camera --address 10.77.0.2 ${CAMERA_ARGUMENTS:-} >"$work/camera.log" 2>&1 &
camera=$!
for _ in $(seq 100); do
    grep -q '^ready' "$work/camera.log" && break
    kill -0 "$camera" 2>/dev/null || { cat "$work/camera.log" >&2; exit 1; }
    sleep 0.1
done
grep -q '^ready' "$work/camera.log" || { echo "the virtual camera did not become ready" >&2; exit 1; }
"$@"
