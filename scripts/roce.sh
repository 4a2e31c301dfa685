#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run roce [--here] [CASE...]: camera and consumer as they are, on Soft-RoCE between two QEMU guests that share this
# machine's file system read-only; with --here on the machine's own RDMA device. Logs are left in out/roce/. NQ_BUILD
# chooses another build.
# shellcheck disable=SC2034,SC2154
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
. scripts/roce/guests.sh
. scripts/roce/cases.sh

# name, where, what it shows: "guests" needs two guests, "any" runs on any RDMA device, "named" does too, but is long and
# runs only when it is named.
cases="frames      any     list, and 500 verified frames at 640x480
cable       guests  the cable of these frames: packets, ready messages, retransmissions
restart     any     20 starts and stops
standard    any     verified frames, starts and stops with the standard's answers
announced   any     frames into memory of the consumer's at odd addresses, every byte checked
doctor      any     nq-gev doctor calls all of RDMA right, and mends a missing device
check       named   gentl-check: rules of buffers, streams and frames, by the standard's answers
check_long  named   gentl-check: all rules, by the standard's answers and the library's own
killed      any     the camera is killed while it streams
idle        any     and how soon a stop then leaves nothing behind
cut         guests  the cable is pulled out while frames flow, and put back
memlock     any     a user who may lock too little memory
big         any     frames of 16 MiB
two         guests  two cameras at once
rules       any     the rules of verbs and connection manager
throughput  guests  payload per second divided by that of ib_send_bw"

usage() {
    echo "usage: ./run roce [--here] [CASE...]   the cases:"
    echo "$cases"
}

here='' chosen=''
for argument in "$@"; do
    case "$argument" in
    --here) here=1 ;;
    -h | --help) usage; exit ;;
    *)
        grep -q "^$argument " <<<"$cases" || fail "there is no case \"$argument\"; see ./run roce --help"
        chosen="$chosen $argument"
        ;;
    esac
done
bin=$(realpath -m "${NQ_BUILD:-build}")
host_address=10.77.0.1
camera_address=10.77.0.2
pictures_seen_by_host=/box

# The first IPv4 address of a network interface that has an RDMA device.
own_address() {
    local interface
    for interface in $(rdma link 2>/dev/null | sed -n 's/.*state ACTIVE.* netdev \([^ ]*\).*/\1/p'); do
        ip -4 -o addr show dev "$interface" | awk '{ sub("/.*", "", $4); print $4 }'
    done | head -n 1
}

start_here() {
    host_address=$(own_address)
    camera_address=$host_address
    pictures_seen_by_host=$PWD/$logs/host
    serve_here host
    serve_here camera
}

start_guests() {
    local step=$SECONDS
    echo "unpacking a kernel"
    scripts/roce/kernel.sh "$logs/kernel" >"$logs/kernel.log" 2>&1 || fail "no kernel for the guests; see $logs/kernel.log"
    echo "starting two guests"
    # Without enough processor time a kernel may give up while it starts.
    local attempt
    for attempt in 1 2 3; do
        if boot_both; then
            echo "the guests are up after $((SECONDS - step)) s"
            return
        fi
        end_guests
    done
    fail "the guests did not start; see $logs/host.log and $logs/camera.log"
}

boot_both() {
    choose_cable_port
    boot camera listen 52:54:00:00:00:02 10.77.0.2 10.77.0.3
    wait_for 60 cable_is_there || return 1
    boot host connect 52:54:00:00:00:01 10.77.0.1
    is_up camera && is_up host
}

# examine GUEST: how its processes and its end of the cable are.
examine() {
    local job out
    on "$1" 20 "uname -n; ip -s link; ip neighbour; rdma link; rdma resource; rdma resource show qp
        head -v -n 40 /sys/class/infiniband/*/ports/1/hw_counters/* 2>/dev/null
        ps -eLo pid,lwp,stat,wchan:30,args | grep -v ']$'; dmesg | tail -n 30" || echo "no answer from $1"
    cat "$out"
}

# attempt NAME: one run of a case; leaves what both guests look like when it fails.
attempt() {
    local code=0
    reason=''
    "case_$1" || {
        code=1
        examine host >"$logs/$1.failed.txt" 2>&1 || true
        examine camera >>"$logs/$1.failed.txt" 2>&1 || true
    }
    local told=$reason
    stop_camera >/dev/null || true
    reason=$told
    return $code
}

# run_case NAME TEXT: prints one row of the table. On a machine under load an emulated guest may be late for anything, so
# a case has three tries; the row tells of them. A frame that is lost or wrong is never a matter of time.
run_case() {
    local start=$SECONDS verdict=FAIL try earlier=''
    for try in 1 2 3; do
        if attempt "$1"; then
            verdict=pass
            break
        fi
        echo "      $1 failed at try $try: $reason"
        [[ ! $reason =~ (lost|wrong)\ [1-9] ]] || break
        [ "$try" = 3 ] || earlier="$earlier; failed before: $reason"
    done
    reason=$reason$earlier
    printf '%-4s  %-10s  %4d s  %s: %s\n' $verdict "$1" $((SECONDS - start)) "$2" "$reason" | tee -a "$logs/results.txt"
    [ $verdict = pass ] || failures=$((failures + 1))
}

become_root "$@"
[ -z "$here" ] || [ -n "$(own_address)" ] || fail "this machine has no active RDMA device with an IPv4 address (\`rdma link\`)"
need_disk
# shellcheck disable=SC2086
install $build_packages libgtest-dev libgmock-dev rdma-core
install qemu-system-x86 busybox-static cpio kmod python3 ibverbs-utils ibverbs-providers perftest tshark
NQ_TARGETS="nq_gev_rdma_tl nq-gev nq-gev-camera gentl-check roce_restart_test roce_loss_test roce_announced_test loopback_verbs_test loopback_connection_test
    loopback_synchronous_test loopback_completion_test loopback_signals_test" build "${NQ_BUILD:-build}"
mkdir -p "$logs"
find "$logs" -mindepth 1 -maxdepth 1 ! -name kernel -exec rm -rf {} +
trap 'trap "" TERM INT; end_guests' EXIT
if [ -n "$here" ]; then start_here; else start_guests; fi
failures=0 count=0
while read -r -u 3 name where text; do
    if [ -n "$chosen" ]; then
        [[ "$chosen " == *" $name "* ]] || continue
    else
        [ "$where" != named ] || continue
    fi
    [ -z "$here" ] || [ "$where" != guests ] || continue
    echo "      $name ..."
    run_case "$name" "$text"
    count=$((count + 1))
done 3<<<"$cases"
echo "$((count - failures)) of $count cases passed in $SECONDS s; logs in $logs/"
[ $failures = 0 ]
