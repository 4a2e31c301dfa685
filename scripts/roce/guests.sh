# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash disable=SC2154
# Sourced by roce.sh: the two guests "host" and "camera", joined by one cable, and the orders that they carry out. With
# --here both are loops of serve.sh on the machine itself.

logs=out/roce
# The budget of all cases together: then the guests end, and with them the case that is under way.
guest_seconds=3600
declare -A serving=() orders=()

# The cable is one TCP connection of QEMU's own on the loopback interface. (Its newer backend "stream" falls silent for
# good under load in QEMU 7.2.)
cable_port=
cable_is_there() { [ -n "$(ss -Hltn "sport = :$cable_port")" ]; }

# A port that is nobody's, below those that the kernel gives to clients.
choose_cable_port() {
    until cable_port=$((20000 + RANDOM % 12000)) && ! cable_is_there; do :; done
}

# boot GUEST listen|connect MAC ADDRESS...: starts a guest; it may not live longer than $guest_seconds.
boot() {
    local guest=$1 end=$2 mac=$3 box=$logs/$1
    shift 3
    rm -rf "$box"
    mkdir -p "$box"
    printf '%s\n' "$@" >"$box/addresses"
    pwd >"$box/tree"
    cp scripts/roce/guest.sh "$box/"
    timeout "$guest_seconds" qemu-system-x86_64 -accel tcg,thread=multi -cpu max -smp 1 -m 1536 -nographic -no-reboot \
        -kernel "$logs/kernel/vmlinuz" -initrd "$logs/kernel/initrd.gz" -append "console=ttyS0 panic=-1 quiet no_timer_check" \
        -virtfs local,path=/,mount_tag=root,security_model=none,readonly=on,multidevs=remap \
        -virtfs "local,path=$box,mount_tag=box,security_model=none" \
        -netdev "socket,id=cable,$end=127.0.0.1:$cable_port" \
        -device "virtio-net-pci,netdev=cable,mac=$mac,romfile=" \
        -qmp "unix:$logs/$guest.monitor,server=on,wait=off" >"$logs/$guest.log" 2>&1 </dev/null &
    serving[$guest]=$!
    orders[$guest]=0
}

# serve_here GUEST: the machine itself takes the part of a guest.
serve_here() {
    mkdir -p "$logs/$1"
    scripts/roce/serve.sh "$logs/$1" >"$logs/$1.log" 2>&1 &
    serving[$1]=$!
    orders[$1]=0
}

# is_up GUEST: waits until it takes orders; false when it ends before, or takes too long.
is_up() {
    wait_for 180 up_or_gone "$1" || return 1
    [ -e "$logs/$1/up" ]
}

up_or_gone() { [ -e "$logs/$1/up" ] || ! kill -0 "${serving[$1]}" 2>/dev/null; }

# wait_for SECONDS COMMAND...: tries until the command succeeds.
wait_for() {
    local end=$((SECONDS + $1))
    shift
    until "$@"; do
        [ $SECONDS -lt $end ] || return 1
        sleep 0.2
    done
}

# order GUEST COMMAND: has the guest start a shell command; its number is in $job.
order() {
    job=$((orders[$1] + 1))
    orders[$1]=$job
    printf '%s\n' "$2" >"$logs/$1/$job.new"
    mv "$logs/$1/$job.new" "$logs/$1/$job.order"
}

output() { echo "$logs/$1/$2.out"; }
ended() { [ -e "$logs/$1/$2.rc" ] || ! kill -0 "${serving[$1]}" 2>/dev/null; }

# await GUEST JOB SECONDS: the exit code of an order; 124, after its end, when it takes longer. Tells how it goes.
await() {
    local end=$((SECONDS + $3)) next=$((SECONDS + 15))
    until ended "$1" "$2"; do
        if [ $SECONDS -ge $end ]; then
            signal "$1" "$2" KILL
            return 124
        fi
        if [ $SECONDS -ge $next ]; then
            next=$((next + 15))
            printf '      %4d s  %s\n' $SECONDS "$(tail -n 1 "$(output "$1" "$2")" 2>/dev/null | cut -c 1-90)"
        fi
        sleep 0.1
    done
    [ -e "$logs/$1/$2.rc" ] || return 125
    return "$(cat "$logs/$1/$2.rc")"
}

# on GUEST SECONDS COMMAND: order and await; the output is in the file $out.
# shellcheck disable=SC2034
on() {
    order "$1" "$3"
    out=$(output "$1" "$job")
    await "$1" "$job" "$2"
}

# signal GUEST JOB SIGNAL: to all processes of an order.
signal() {
    local target=$2 job
    ended "$1" "$target" && return
    wait_for 20 test -s "$logs/$1/$target.pid" || return 0
    order "$1" "kill -$3 -- -$(cat "$logs/$1/$target.pid")"
    wait_for 30 ended "$1" "$job" || return 0
}

monitor() { python3 scripts/roce/monitor.py "$logs/$1.monitor" "$2"; }

# cable on|off: plugs the cable in or pulls it out, at both ends.
cable() {
    monitor host "set_link cable $1"
    monitor camera "set_link cable $1"
}

capture_start() { monitor host "object_add filter-dump,id=capture,netdev=cable,file=$logs/cable.pcap,maxlen=256"; }
capture_end() { monitor host "object_del capture"; }

end_guests() {
    local guest file
    if [ -n "$here" ]; then
        # Process ids of the machine itself; those of guests end with their guest.
        for file in "$logs"/{host,camera}/*.pid; do
            [ -e "${file%.pid}.rc" ] || kill -KILL -- "-$(cat "$file")" 2>/dev/null || true
        done
    fi
    for guest in "${!serving[@]}"; do
        kill "${serving[$guest]}" 2>/dev/null || continue
        wait "${serving[$guest]}" 2>/dev/null || true
    done
    serving=()
}
