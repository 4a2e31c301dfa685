# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2154
# Sourced by roce.sh: the cases. Each is a function that returns 0 when it passes and leaves one line in $reason. "host"
# and "camera" are the guests, or the machine itself in both parts; $bin is the folder of the programs.

camera_job=
reason=

# In milliseconds. A host asks twice in that time and gives the camera up when it gets no answer in 600 ms, which a guest
# without a processor may need; so only those cases have a short one that cannot do without.
heartbeat=600000

# What nq-gev asks of the library, "standard" or "stated".
answers=standard

start_camera() {
    order camera "exec $bin/nq-gev-camera --address $camera_address --heartbeat $heartbeat $*"
    camera_job=$job
    wait_for 120 camera_is_ready || {
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
    on host "$seconds" "$bin/nq-gev --producer $bin/libnq_gev_rdma_tl.cti --answers $answers --timeout 3000 grab $*" || code=$?
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
    order host "exec $bin/nq-gev --producer $bin/libnq_gev_rdma_tl.cti --timeout 3000 grab --count 1000000000 --out $pictures_seen_by_host/${pictures##*/} --save-every 20"
    stream_job=$job
    wait_for 120 more_pictures 1 || {
        reason="the stream did not begin: $(last_line host "$stream_job")"
        return 1
    }
}

picture_count() { find "$pictures" -name '*.png' | wc -l; }
more_pictures() { [ "$(picture_count)" -gt "$1" ]; }

case_frames() {
    local answers=stated
    start_camera --width 640 --height 480 || return 1
    on host 120 "$bin/nq-gev --producer $bin/libnq_gev_rdma_tl.cti --answers $answers --timeout 3000 list" || {
        reason="nq-gev list: $(last_line host "$job")"
        return 1
    }
    grep -q "address $camera_address" "$out" || {
        reason="the list does not show $camera_address"
        return 1
    }
    [ -n "$here" ] || capture_start
    local code=0
    grab 400 --count 500 --verify --frame-timeout 20000 || code=1
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

# restarts [VARIABLE=VALUE]: 20 acquisitions in one process of the host; leaves their number in $reason.
restarts() {
    local code=0
    on host 400 "NQ_RDMA_TEST_ADDRESS=$host_address $* exec $bin/tests/roce_restart_test" || code=$?
    reason="$(grep -c '^acquisition' "$out") acquisitions in one process"
    [ $code = 0 ] || reason="$reason, then: $(grep -m 1 -A 3 -i 'failure' "$out" | tr '\n' ' ' | cut -c 1-150) (exit code $code)"
    return $code
}

case_restart() {
    start_camera --width 640 --height 480 || return 1
    local code=0
    restarts || code=$?
    stop_camera && return $code
}

# The cases frames and restart have the library's own answers.
case_standard() {
    local code=0 told
    start_camera --width 640 --height 480 || return 1
    if ! on host 60 "$bin/nq-gev --producer $bin/libnq_gev_rdma_tl.cti info" ||
        ! grep -q '^  answers  *standard$' "$out"; then
        reason="nq-gev info: $(complaint host "$job")"
        return 1
    fi
    grab 400 --count 200 --verify --frame-timeout 20000 || return 1
    told=$reason
    restarts NQ_GEV_TL_STANDARD=1 || code=$?
    reason="$told; $reason"
    stop_camera && return $code
}

case_announced() {
    local code=0
    start_camera --width 640 --height 480 || return 1
    on host 400 "NQ_RDMA_TEST_ADDRESS=$host_address NQ_GEV_TL_STANDARD=1 exec $bin/tests/roce_announced_test" || code=$?
    reason=$(grep '^run' "$out" | tr '\n' ';' | sed 's/;$//; s/;/; /g')
    [ $code = 0 ] || reason="$reason then: $(grep -m 1 -A 3 -i 'failure' "$out" | tr '\n' ' ' | cut -c 1-150) (exit code $code)"
    stop_camera && return $code
}

# examined: what the doctor says of the host; its lines about RDMA that are not right in $complaints. It ends with 1 when
# it finds something wrong; any other end is a failure of the doctor.
examined() {
    local code=0
    on host 180 "$bin/nq-gev --producer $bin/libnq_gev_rdma_tl.cti --timeout 3000 doctor" || code=$?
    complaints=$(grep -A 1 -E '^(wrong|not known) +(rdma|memory)\.' "$out")
    reason=$(last_line host "$job")
    [ "$code" -le 1 ] && grep -q '^right  *memory\.lock' "$out"
}

# What is gone with the host's device comes back by the line that the doctor prints.
mended() {
    local mend
    on host 30 "rdma link delete \$(ls /sys/class/infiniband)" && examined || return 1
    mend=$(grep -A 1 '^wrong  *rdma\.device' <<<"$complaints" | sed -n 's/^           //p')
    reason="without a device: $reason; $complaints"
    [ -n "$mend" ] && on host 30 "$mend" && examined && [ -z "$complaints" ] || return 1
    reason="$reason; mended by $mend"
}

# Without guests the device stays: it may be the only one of its adapter.
case_doctor() {
    local complaints
    start_camera --width 640 --height 480 && examined || return 1
    reason="$reason; $complaints"
    [ -z "$complaints" ] || return 1
    if [ -z "$here" ] && ! mended; then
        on host 30 "rdma link add rxe0 type rxe netdev eth0" || true
        return 1
    fi
    stop_camera
}

# The camera of gentl-check, and the program by which the host has it send frames that are not whole.
start_checked_camera() {
    # A check that hangs is ended, and its camera is controlled until the heartbeat is over.
    local socket=/run/control.sock heartbeat=5000
    [ -z "$here" ] || socket=$PWD/$logs/control.sock
    start_camera --width 64 --height 16 --fps 200 --control "$socket" || return 1
    order camera "exec scripts/roce/short_frames.py $socket $camera_address"
    disturber_job=$job
    wait_for 60 disturber_is_ready || {
        reason="nothing has the camera send short frames: $(last_line camera "$disturber_job")"
        return 1
    }
}

disturber_is_ready() { grep -qs '^ready' "$(output camera "$disturber_job")" || ended camera "$disturber_job"; }

stop_checked_camera() {
    signal camera "$disturber_job" KILL
    stop_camera
}

# checked NAME VALUE [RULES]: gentl-check with that value of NQ_GEV_TL_STANDARD; what it finds has to be what the baseline
# of that name says. Adds a line to $reason.
checked() {
    local code=0 sum
    on host 900 "NQ_GEV_TL_STANDARD=$2 exec $bin/gentl-check $bin/libnq_gev_rdma_tl.cti --only '${3:-*}' \
--baseline tests/check/$1.baseline --disturb 'bash -c \"grep -q done </dev/tcp/$camera_address/3957\"'" || code=$?
    cp "$out" "$logs/check.$1.txt"
    sum=$(grep -E ' passed, | in the baseline$' "$out" | tr '\n' ';' | sed 's/;$//; s/;/; /g')
    reason="${reason:+$reason; }$1: ${sum:-$(last_line host "$job")}"
    return $code
}

# What GenTL asks of buffers, streams and frames, by the standard's answers.
case_check() {
    local code=0
    start_checked_camera || return 1
    checked standard 1 'BF-*,QU-*,AC-*,DL-*' || code=1
    stop_checked_camera && return $code
}

# All that GenTL asks, by the standard's answers and by the library's own.
case_check_long() {
    local code=0
    start_checked_camera || return 1
    checked standard 1 || code=1
    checked default 0 || code=1
    stop_checked_camera && return $code
}

case_killed() {
    local heartbeat=3000
    start_camera --width 320 --height 240 && stream || return 1
    signal camera "$camera_job" KILL
    camera_job=
    local code=0
    await host "$stream_job" 120 || code=$?
    reason="nq-gev ended with $code: $(complaint host "$stream_job")"
    [ $code = 6 ] && grep -q 'went silent: its control channel does not answer' "$(output host "$stream_job")"
}

says_streaming() { grep -qs '^streaming' "$(output host "$stream_job")" || ended host "$stream_job"; }

# How long a stop takes whose camera is gone, and until nothing of the acquisition is left.
case_idle() {
    local heartbeat=3000
    start_camera --width 320 --height 240 || return 1
    local code=0
    order host "NQ_RDMA_TEST_ADDRESS=$host_address exec $bin/tests/roce_loss_test"
    stream_job=$job
    wait_for 120 says_streaming || {
        reason="the stream did not begin: $(last_line host "$stream_job")"
        signal host "$stream_job" KILL
        return 1
    }
    signal camera "$camera_job" KILL
    camera_job=
    await host "$stream_job" 120 || code=$?
    reason=$(grep '^the stop' "$(output host "$stream_job")" || last_line host "$stream_job")
    return $code
}

case_cut() {
    local heartbeat=3000
    start_camera --width 320 --height 240 && stream || return 1
    local seconds text='' code pictures_before
    for seconds in 1 25; do
        cable off
        sleep $seconds
        cable on
        pictures_before=$(picture_count)
        if wait_for 80 more_pictures_or_end $((pictures_before + 1)) && ! ended host "$stream_job"; then
            text="${text}cut for $seconds s: the stream goes on; "
        else
            code=0
            await host "$stream_job" 120 || code=$?
            text="${text}cut for $seconds s: nq-gev ended with $code; "
            [ $code = 6 ] || {
                reason="$text$(complaint host "$stream_job")"
                return 1
            }
            break
        fi
    done
    signal host "$stream_job" INT
    await host "$stream_job" 60
    code=0
    grab 180 --count 50 --verify --frame-timeout 20000 || code=1
    reason="${text}then $reason"
    stop_camera && return $code
}

more_pictures_or_end() { more_pictures "$1" || ended host "$stream_job"; }

# What a user without CAP_IPC_LOCK sees who may lock less memory than the frames need.
case_memlock() {
    start_camera --width 640 --height 480 || return 1
    local none=0 all=0 some=0
    locked 64 || none=$?
    reason="64 KiB: exit code $none, $(complaint host "$job")"
    # A network card's driver may need more than that for the connection alone; then the start fails.
    [ $none = 5 ] || [ $none = 6 ] || return 1
    grep -q 'this user may lock 64 KiB of memory (RLIMIT_MEMLOCK' "$out" || return 1
    locked 800 || all=$?
    reason="64 KiB: exit code $none; 800 KiB, room for two of four blocks: exit code $all, $(complaint host "$job")"
    [ $all = 5 ] && grep -q 'this user may lock 800 KiB of memory (RLIMIT_MEMLOCK' "$out" || return 1
    locked 800 --buffers 2 || some=$?
    reason="64 KiB: exit code $none; 800 KiB for four blocks: exit code $all; for two: $some, $(grep '^frames' "$out" | tr -s ' ')"
    [ $some = 0 ] || return 1
    stop_camera
}

# locked KIB ARGUMENT...: 20 frames for a user with that limit, who may see nothing but copies for everybody.
locked() {
    local limit=$1
    shift
    on host 120 "copies=\$(mktemp -d) && trap 'rm -rf \"\$copies\"' EXIT && cd \"\$copies\" &&
        cp -L $bin/nq-gev $bin/libnq_gev_rdma_tl.cti . && chmod -R a+rX . && ulimit -l $limit &&
        setpriv --reuid 65534 --regid 65534 --clear-groups \
--bounding-set=-all --inh-caps=-all ./nq-gev --producer ./libnq_gev_rdma_tl.cti --timeout 3000 grab --count 20 --verify --frame-timeout 10000 $*"
}

# Soft-RoCE tells of messages of at most 8 MiB and yet takes longer ones, so the port is not asked.
case_big() {
    local answers=stated
    start_camera --width 4096 --height 4096 || return 1
    local code=0
    grab 300 --count 10 --buffers 3 --verify --frame-timeout 30000 || code=1
    stop_camera && return $code
}

case_two() {
    start_camera --count 2 --serial 100 --width 640 --height 480 || return 1
    local first second code=0 arguments="--count 100 --verify --frame-timeout 20000"
    order host "exec $bin/nq-gev --producer $bin/libnq_gev_rdma_tl.cti --timeout 3000 grab --camera 100 $arguments"
    first=$job
    order host "exec $bin/nq-gev --producer $bin/libnq_gev_rdma_tl.cti --timeout 3000 grab --camera 101 $arguments"
    second=$job
    await host "$first" 300 || code=$?
    await host "$second" 300 || code=$?
    reason="first: $(complaint host "$first" | tr -s ' '); second: $(complaint host "$second" | tr -s ' ')"
    stop_camera && return $code
}

# The rules of verbs and connection manager, that the software RDMA keeps too.
case_rules() {
    local code=0
    on host 700 "exec scripts/roce/rules.sh $host_address $bin/tests" || code=$?
    grep -E '^(failed|skipped) ' "$out" >"$logs/rules.txt" || true
    reason=$(last_line host "$job")
    return $code
}

# How often each of the two is measured, in turns. Emulated guests on a busy machine are fast and slow by chance.
rounds=3

# throughput PIXELS_PER_LINE LINES FRAMES: payload of nq-gev and of ib_send_bw, with as many messages of one size on a
# queue of one depth, as one line in $reason.
throughput() {
    local size=$(($1 * $2 + 176)) depth=8 ours='' theirs='' speed round
    start_camera --width "$1" --height "$2" --pattern ColorBar --send-buffers $depth || return 1
    for ((round = 1; round <= rounds; round++)); do
        measure_ours $depth "$3" || return 1
        ours="$ours $speed"
        measure_theirs $depth "$3" $size || continue
        theirs="$theirs $speed"
    done
    stop_camera || return 1
    reason=$(python3 scripts/roce/ratio.py "$(($1 * $2 / 1024)) KiB" "$ours" "$theirs")
}

# measure_ours DEPTH FRAMES: bytes of pixels per second, in $speed.
measure_ours() {
    # Standard output has the sum alone. What is told beside it is wanted only when it is a complaint.
    on host 180 "exec 3>&1; told=\$($bin/nq-gev --producer $bin/libnq_gev_rdma_tl.cti --timeout 3000 --json grab --buffers $1 --count $2 --allow-loss $2 --frame-timeout 30000 2>&1 >&3) || { code=\$?; echo \"\$told\"; exit \$code; }" || {
        reason="nq-gev: $(complaint host "$job")"
        return 1
    }
    speed=$(python3 -c 'import json, sys; print(json.load(sys.stdin)["megabytes_per_second"] * 1e6)' <"$out") || {
        reason="nq-gev --json: no JSON alone in $out"
        return 1
    }
}

# measure_theirs DEPTH MESSAGES SIZE: bytes per second, in $speed.
measure_theirs() {
    # Receives aplenty: ib_send_bw has no credits, and would stumble over a receive queue as short as its send queue.
    local arguments="-R -F -e -s $3 -n $2 -t $1 -r 128" attempt server
    # A client that comes too early, or finds a server that an earlier one has left half way, fails or crashes.
    for attempt in 1 2 3; do
        order host "exec ib_send_bw $arguments"
        server=$job
        if on camera 90 "sleep $((attempt * 2)) && exec ib_send_bw $arguments $host_address"; then
            await host "$server" 30 || signal host "$server" KILL
            # Its megabyte has 2^20 bytes.
            speed=$(awk -v size="$3" '$1 == size { printf "%.0f", $4 * 1048576 }' "$out")
            [ -z "$speed" ] || return 0
        else
            signal host "$server" KILL
        fi
    done
    return 1
}

# Reported, and no condition: what emulated guests achieve says little about a machine with a network card.
case_throughput() {
    local text='' row
    for row in "256 256 1000" "1024 1024 160" "2048 2048 40"; do
        # shellcheck disable=SC2086
        throughput $row || return 1
        text="$text${text:+; }$reason"
    done
    reason=$text
}
