#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# with_camera.sh COMMAND...: runs the test of an application beside a virtual camera of its own, and ends with the exit code of the
# test. Camera and test are in a network of their own (10.77.0.1), so any number of these run at a time and nobody else's camera
# is met; no root is needed. CAMERA_ARGUMENTS are options of nq-gev-camera. The test gets the software RDMA, the standard's
# answers, and in CAMERA_CONTROL the socket of the camera. nq-gev-camera and nq-software-rdma are taken from the PATH.
set -euo pipefail
[ $# -gt 0 ] || { echo "usage: $0 COMMAND..." >&2; exit 2; }
if [ "${INSIDE:-}" != with_camera ]; then
    # A plain user has the rights of root in a user namespace; root itself may be in a container that has none of these.
    as_root=()
    [ "$(id -u)" = 0 ] || as_root=(--map-root-user)
    INSIDE=with_camera exec unshare "${as_root[@]}" --net "$0" "$@"
fi
unset INSIDE
ip link set lo up
ip link add test0 type veth peer name far0
ip addr add 10.77.0.1/24 brd + dev test0
ip link set test0 up
ip link set far0 up

work=$(mktemp -d)
trap 'kill "${camera:-}" 2>/dev/null || true; wait; rm -rf "$work"' EXIT
export NQ_RDMA_LOOPBACK_DIR=$work/rdma CAMERA_CONTROL=$work/camera.sock NQ_GEV_TL_STANDARD=1
# shellcheck disable=SC2086
nq-gev-camera --software-rdma --address 10.77.0.1 --control "$CAMERA_CONTROL" ${CAMERA_ARGUMENTS:-} >"$work/camera.log" &
camera=$!
until grep -qs ^ready "$work/camera.log"; do # the job may not have made it yet
    kill -0 $camera 2>/dev/null || exit 1
    sleep 0.1
done
nq-software-rdma "$@"
