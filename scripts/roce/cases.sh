# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2154
# Sourced by roce.sh: the cases. Each is a function that returns 0 when it passes and leaves one line in $reason. "host"
# and "camera" are the guests, or the machine itself in both parts; $bin is the folder of the programs.

camera_job=
reason=

start_camera() {
    order camera "exec $bin/nq-gev-camera --address $camera_address $*"
    camera_job=$job
    wait_for 60 camera_is_ready || {
        reason="the camera did not become ready: $(last_line camera "$camera_job")"
        return 1
    }
}

camera_is_ready() { grep -qs '^ready' "$(output camera "$camera_job")" || ended camera "$camera_job"; }

stop_camera() {
    [ -n "$camera_job" ] || return 0
    signal camera "$camera_job" TERM
    await camera "$camera_job" 30
    local code=$?
    camera_job=
    [ "$code" = 0 ] || {
        reason="the camera ended with $code"
        return 1
    }
}

last_line() { grep -sv "^$" "$(output "$1" "$2")" | tail -n 1 | cut -c 1-150; }

# grab SECONDS ARGUMENTS: frames to the host; leaves the summary in $reason.
grab() {
    local seconds=$1 code=0
    shift
    on host "$seconds" "$bin/nq-gev --producer $bin/libnq_gev_rdma_tl.cti --timeout 1000 grab $*" || code=$?
    summary
    [ $code = 0 ] || reason="nq-gev ended with $code: $(complaint host "$job")"
    return $code
}

# complaint GUEST JOB: what nq-gev said last on its standard error, else the last line.
complaint() { grep -s '^nq-gev: ' "$(output "$1" "$2")" | cut -c 9- || last_line "$1" "$2"; }

summary() { reason=$(awk '/^(frames|lost|wrong|rate)/ { $1 = $1; printf "%s%s", separator, $0; separator = ", " }' "$out"); }

# stream: endless frames to the host, its number in $stream_job; returns once pictures are there.
stream() {
    pictures=$logs/host/pictures.$((orders[host] + 1))
    mkdir -p "$pictures"
    order host "exec $bin/nq-gev --producer $bin/libnq_gev_rdma_tl.cti grab --count 1000000000 --out $pictures_seen_by_host/${pictures##*/} --save-every 20"
    stream_job=$job
    wait_for 60 more_pictures 1 || {
        reason="the stream did not begin: $(last_line host "$stream_job")"
        return 1
    }
}

picture_count() { find "$pictures" -name '*.png' | wc -l; }
more_pictures() { [ "$(picture_count)" -gt "$1" ]; }

case_frames() {
    start_camera --width 640 --height 480 || return 1
    on host 60 "$bin/nq-gev --producer $bin/libnq_gev_rdma_tl.cti list" || {
        reason="nq-gev list: $(last_line host "$job")"
        return 1
    }
    grep -q "address $camera_address" "$out" || {
        reason="the list does not show $camera_address"
        return 1
    }
    [ -n "$here" ] || capture_start
    local code=0
    grab 240 --count 500 --verify || code=1
    [ -n "$here" ] || capture_end
    stop_camera && return $code
}

case_cable() {
    [ -s "$logs/cable.pcap" ] || {
        reason="nothing was captured"
        return 1
    }
    python3 scripts/roce/cable.py "$logs/cable.pcap" "$camera_address" "$host_address" 4 >"$logs/cable.txt" 2>&1
    local code=$?
    reason=$(tail -n 1 "$logs/cable.txt")
    return $code
}

case_restart() {
    start_camera --width 640 --height 480 || return 1
    local code=0
    on host 200 "NQ_RDMA_TEST_ADDRESS=$host_address exec $bin/tests/roce_restart_test" || code=$?
    reason="$(grep -c '^acquisition' "$out") acquisitions in one process"
    [ $code = 0 ] || reason="$reason, then: $(grep -m 1 -A 3 -i 'failure' "$out" | tr '\n' ' ' | cut -c 1-150) (exit code $code)"
    stop_camera && return $code
}

case_killed() {
    start_camera --width 320 --height 240 && stream || return 1
    signal camera "$camera_job" KILL
    camera_job=
    local code=0
    await host "$stream_job" 60 || code=$?
    reason="nq-gev ended with $code: $(complaint host "$stream_job")"
    [ $code = 6 ] && grep -q 'went silent: its control channel does not answer' "$(output host "$stream_job")"
}

case_cut() {
    start_camera --width 320 --height 240 && stream || return 1
    local seconds text='' code pictures_before
    for seconds in 1 25; do
        cable off
        sleep $seconds
        cable on
        pictures_before=$(picture_count)
        if wait_for 40 more_pictures_or_end $((pictures_before + 1)) && ! ended host "$stream_job"; then
            text="${text}cut for $seconds s: the stream goes on; "
        else
            code=0
            await host "$stream_job" 60 || code=$?
            text="${text}cut for $seconds s: nq-gev ended with $code; "
            [ $code = 6 ] || {
                reason="$text$(complaint host "$stream_job")"
                return 1
            }
            break
        fi
    done
    signal host "$stream_job" INT
    await host "$stream_job" 30
    code=0
    grab 90 --count 50 --verify || code=1
    reason="${text}then $reason"
    stop_camera && return $code
}

more_pictures_or_end() { more_pictures "$1" || ended host "$stream_job"; }

# What a user without CAP_IPC_LOCK sees who may lock less memory than the frames need.
case_memlock() {
    start_camera --width 640 --height 480 || return 1
    on host 30 "mkdir -p /tmp/nq-roce && cp -L $bin/nq-gev $bin/libnq_gev_rdma_tl.cti /tmp/nq-roce/ && chmod -R a+rX /tmp/nq-roce" || {
        reason="no copy for the user nobody"
        return 1
    }
    local none=0 some=0
    locked 64 || none=$?
    reason="64 KiB: exit code $none, $(complaint host "$job")"
    [ $none = 5 ] || [ $none = 6 ] || return 1
    locked 800 || some=$?
    reason="64 KiB: exit code $none; 800 KiB, room for two of four blocks: exit code $some, $(grep '^frames' "$out" | tr -s ' ')"
    [ $some = 0 ] || return 1
    stop_camera
}

# locked KIB: 20 frames for a user with that limit.
locked() {
    on host 60 "cd /tmp/nq-roce && ulimit -l $1 && exec setpriv --reuid 65534 --regid 65534 --clear-groups \
--bounding-set=-all --inh-caps=-all ./nq-gev --producer ./libnq_gev_rdma_tl.cti grab --count 20 --verify --frame-timeout 5000"
}

case_big() {
    start_camera --width 4096 --height 4096 || return 1
    local code=0
    grab 180 --count 10 --buffers 3 --verify --frame-timeout 30000 || code=1
    stop_camera && return $code
}

case_two() {
    start_camera --count 2 --serial 100 --width 640 --height 480 || return 1
    local first second code=0 arguments="--count 100 --verify --frame-timeout 20000"
    order host "exec $bin/nq-gev --producer $bin/libnq_gev_rdma_tl.cti grab --camera 100 $arguments"
    first=$job
    order host "exec $bin/nq-gev --producer $bin/libnq_gev_rdma_tl.cti grab --camera 101 $arguments"
    second=$job
    await host "$first" 180 || code=$?
    await host "$second" 180 || code=$?
    reason="first: $(complaint host "$first" | tr -s ' '); second: $(complaint host "$second" | tr -s ' ')"
    stop_camera && return $code
}

# The rules of verbs and connection manager, that the software RDMA keeps too.
case_rules() {
    local code=0
    on host 600 "exec scripts/roce/rules.sh $host_address $bin/tests" || code=$?
    grep '^failed' "$out" >"$logs/rules.txt" || true
    reason=$(last_line host "$job")
    return $code
}

# throughput PIXELS_PER_LINE LINES FRAMES: megabytes per second of nq-gev and of ib_send_bw with messages of one size.
throughput() {
    local size=$(($1 * $2 + 176)) ours theirs server depth=8
    start_camera --width "$1" --height "$2" --pattern ColorBar --send-buffers $depth || return 1
    on host 120 "$bin/nq-gev --producer $bin/libnq_gev_rdma_tl.cti --json grab --buffers $depth --count $3 --frame-timeout 20000" || {
        reason="nq-gev: $(complaint host "$job")"
        return 1
    }
    ours=$(python3 -c 'import json, sys; print(json.load(sys.stdin)["megabytes_per_second"])' <"$out")
    stop_camera || return 1
    # Receives aplenty: ib_send_bw has no credits, and would stumble over a receive queue as short as its send queue.
    local arguments="-R -F -e -s $size -n $3 -t $depth -r 128 --report_gbits"
    order host "exec ib_send_bw $arguments"
    server=$job
    on camera 120 "for try in 1 2 3 4 5; do sleep 1; ib_send_bw $arguments $host_address && exit; done; exit 1" || {
        reason="ib_send_bw: $(last_line camera "$job")"
        signal host "$server" KILL
        return 1
    }
    await host "$server" 30 || signal host "$server" KILL
    theirs=$(awk -v size=$size '$1 == size { print $4 * 125 }' "$out")
    [ -n "$theirs" ] || {
        reason="ib_send_bw printed no result"
        return 1
    }
    awk -v ours="$ours" -v theirs="$theirs" -v size=$(($1 * $2 / 1024)) \
        'BEGIN { printf "%d KiB: %.2f (%.1f of %.1f MB/s)", size, ours / theirs, ours, theirs }' >"$logs/ratio"
    reason=$(cat "$logs/ratio")
}

case_throughput() {
    local text='' row
    for row in "256 256 600" "1024 1024 80" "2048 2048 25"; do
        # shellcheck disable=SC2086
        throughput $row || return 1
        text="$text${text:+, }$reason"
    done
    reason=$text
}
