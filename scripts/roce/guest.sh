#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# A guest after its start: takes its addresses, makes a Soft-RoCE device of its end of the cable, and serves its box.
export PATH=/usr/sbin:/usr/bin:/sbin:/bin
ln -s /proc/self/fd /dev/fd
ip link set lo up
ip link set eth0 mtu 9000 up
while read -r address; do
    ip addr add "$address/24" brd + dev eth0
done </box/addresses
rdma link add rxe0 type rxe netdev eth0
rdma link
cd "$(cat /box/tree)" || exit 1
exec bash scripts/roce/serve.sh /box
