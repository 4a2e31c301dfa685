#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# examples_container.sh: does what examples/container/Dockerfile says, in a Debian with nothing in it, and lets the program
# of the image take pictures of the virtual camera. Takes some minutes and what apt-get gives it; a part of ./run all.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
. scripts/debian_root.sh
image=$PWD/build-container

# in_image COMMAND...: runs it as a container of the image would, but for its network. /dev/shm is this machine's, where
# the software RDMA of both hosts meets.
in_image() {
    # shellcheck disable=SC2016
    setpriv --pdeathsig KILL unshare --mount --pid --fork --kill-child sh -euc '
        image=$1
        shift
        mount -t proc proc "$image/proc"
        mount --rbind /dev "$image/dev"
        : >>"$image/etc/resolv.conf"
        mount --bind /etc/resolv.conf "$image/etc/resolv.conf"
        exec chroot "$image" env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root "$@"
    ' sh "$image" "$@"
}

# The instructions of the Dockerfile, one a line.
instructions() {
    sed -e '/^ *#/d' -e '/^$/d' examples/container/Dockerfile | sed -e ':more' -e '/\\$/{N;s/\\\n//;b more}'
}

# follow: obeys the instructions, and keeps the rest of them in $environment and $entrypoint.
follow() {
    local instruction rest
    environment=() entrypoint=()
    while read -r -u 3 instruction rest; do
        echo "$instruction $rest"
        case "$instruction" in
        FROM) make_root "${rest#debian:}" "$image" apt ;;
        RUN) in_image "${environment[@]}" sh -c "$rest" >>out/container.log 2>&1 || fail "see out/container.log" ;;
        COPY)
            [ "$rest" = ". /source" ] || fail "COPY $rest is more than this script knows"
            mkdir "$image/source"
            tar -c --exclude=./.git --exclude='./build*' --exclude=./out --exclude=./.run.lock . | tar -x -C "$image/source"
            ;;
        ENV) environment+=("$rest") ;;
        ENTRYPOINT) mapfile -t entrypoint < <(python3 -c 'import json, sys; print(*json.loads(sys.argv[1]), sep="\n")' "$rest") ;;
        *) fail "this script does not know $instruction" ;;
        esac
    done 3< <(instructions)
}

if [ "${1:-}" = --grab ]; then
    shift
    in_image NQ_RDMA_LOOPBACK_DIR="$NQ_RDMA_LOOPBACK_DIR" "$@"
    exit
fi
become_root "$@"
need_disk
need_namespaces
# shellcheck disable=SC2086
install $build_packages
NQ_TARGETS="nq-gev-camera nq_rdma_loopback" build build
rm -rf --one-file-system "$image"
: >out/container.log
follow
CAMERA_ARGUMENTS="--width 64 --height 48 --fps 0" scripts/two_hosts.sh "$0" --grab "${environment[@]}" \
    /build/nq-software-rdma "${entrypoint[@]}" | tee out/container_frames.txt
for frame in $(seq 10); do
    echo "frame $frame: 64 x 48, 3072 bytes"
done | diff - <(grep ^frame out/container_frames.txt) || fail "these are not the frames of the camera"
rm -rf --one-file-system "$image"
echo "the image works"
