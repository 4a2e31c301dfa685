#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# examples_rtp.sh WIDTH HEIGHT FOLDER: on the consumer's host of two_hosts.sh, records 100 pictures and sends them by RTP to
# a third host, which writes 40 of them down.
set -euo pipefail
width=$1 height=$2 folder=$3
export GENICAM_GENTL64_PATH=build NQ_GEV=build/nq-gev

unshare --net sleep infinity &
receiver=$!
until [ "$(readlink /proc/$receiver/ns/net)" != "$(readlink /proc/$$/ns/net)" ]; do sleep 0.01; done
there="nsenter -t $receiver -n"
ip link add rtp0 type veth peer name rtp1
ip link set rtp1 netns $receiver
ip addr add 10.78.0.1/24 brd + dev rtp0
ip link set rtp0 up
$there sh -c 'ip link set lo up; ip addr add 10.78.0.2/24 brd + dev rtp1; ip link set rtp1 up'

INTERFACE=rtp1 $there timeout 60 examples/rtp/receive.sh "$folder/received.gray" "$width" "$height" 40 &
receiving=$!
# The receiver is ready when its host asks for the group.
until $there ip maddr show dev rtp1 | grep -q 239.255.42.1; do
    kill -0 $receiving 2>/dev/null || exit 1
    sleep 0.05
done
INTERFACE=rtp0 timeout 60 examples/rtp/send.sh "$folder/recorded.mkv" "$width" "$height" \
    --camera "$CAMERA_ADDRESS" --count 100
wait $receiving
kill $receiver
