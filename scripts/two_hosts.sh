#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# two_hosts.sh COMMAND...: makes two hosts joined by a virtual cable, starts the virtual camera on one (10.77.0.2 and
# MORE_CAMERA_ADDRESSES; arguments in CAMERA_ARGUMENTS) and runs COMMAND on the other (10.77.0.1). Without the right to
# make hosts both run on this one, on an address of its own. Both use the software RDMA of build/. Everything ends with
# this script, even when it is killed.
set -euo pipefail

# The first address of this machine that others could reach, and so a producer looks at.
own_address() {
    ip -4 -o addr show up scope global | awk '{ sub("/.*", "", $4); print $4; exit }'
}

make_hosts() {
    ip link set lo up
    work=/dev/shm # one of its own, that goes with the namespace
    mount -t tmpfs -o mode=700 tmpfs $work
    unshare --net sleep infinity &
    local holder=$! more
    until [ "$(readlink /proc/$holder/ns/net)" != "$(readlink /proc/$$/ns/net)" ]; do sleep 0.01; done
    on_camera="nsenter -t $holder -n"
    address=10.77.0.2

    ip link add host0 type veth peer name cam0
    ip link set cam0 netns "$holder"
    ip addr add 10.77.0.1/24 brd + dev host0
    ip link set host0 up
    $on_camera sh -c 'ip link set lo up; ip addr add 10.77.0.2/24 brd + dev cam0; ip link set cam0 up'
    for more in ${MORE_CAMERA_ADDRESSES:-}; do
        $on_camera ip addr add "$more/24" brd + dev cam0
    done
    # A frame that is sent before the kernel reports the cable up is lost. Not all kernels report it.
    for more in $(seq 500); do
        ! ip -o link show dev host0 | grep -q 'state UP' || ! $on_camera ip -o link show dev cam0 | grep -q 'state UP' || break
        sleep 0.01
    done
}

use_this_host() {
    address=$(own_address)
    [ -n "$address" ] || {
        echo "no right to make network namespaces, and no address to go without: see \`ip addr\`" >&2
        exit 1
    }
    echo "no right to make network namespaces: camera and consumer share this machine's own address $address"
    work=$(mktemp -d)
    trap 'kill ${camera:-} 2>/dev/null; wait; rm -rf "$work"' EXIT
    trap 'exit 143' TERM INT HUP
    on_camera=''
}

case "${1:-}" in
--inside)
    shift
    make_hosts
    ;;
*)
    if unshare --net --pid --mount-proc --fork true 2>/dev/null; then
        # The first process of the namespaces goes with its parent, and takes all others, its mounts and the hosts along.
        setpriv --pdeathsig KILL unshare --net --pid --mount-proc --fork --kill-child "$0" --inside "$@" <&0 &
        hosts=$!
        trap 'kill -KILL $hosts; wait; exit 143' TERM INT HUP
        status=0
        wait $hosts || status=$?
        exit $status
    fi
    use_this_host
    ;;
esac

# The dynamic loader takes a space or a colon in a path for the end of it.
ln -s "$PWD/build/libnq_rdma_loopback.so" "$work/rdma.so"
export NQ_RDMA_LOOPBACK_DIR=$work/rdma LD_PRELOAD=$work/rdma.so CAMERA_ADDRESS=$address
mkdir -m 700 "$NQ_RDMA_LOOPBACK_DIR"
: >"$work/camera.log" # the job in the background may make it after the first look
# shellcheck disable=SC2086
$on_camera build/nq-gev-camera --address "$address" ${CAMERA_ARGUMENTS:-} >"$work/camera.log" 2>&1 &
camera=$!
for _ in $(seq 600); do
    grep -q '^ready' "$work/camera.log" && break
    kill -0 "$camera" 2>/dev/null || { cat "$work/camera.log" >&2; exit 1; }
    sleep 0.1
done
grep -q '^ready' "$work/camera.log" || { echo "the virtual camera did not become ready" >&2; exit 1; }
"$@"
