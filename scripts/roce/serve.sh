#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# serve.sh BOX: carries out the orders that appear in the folder BOX as N.order, N counting from 1, each as soon as it is
# there and in a session of its own. Output goes to N.out, the process id to N.pid and, at the end, the exit code to N.rc.
box=$1

carry_out() {
    setsid bash "$box/$1.order" >"$box/$1.out" 2>&1 </dev/null &
    echo $! >"$box/$1.pid"
    wait $!
    echo $? >"$box/$1.ended"
    mv "$box/$1.ended" "$box/$1.rc"
}

: >"$box/up"
next=1
while :; do
    if [ -e "$box/$next.order" ]; then
        carry_out "$next" &
        next=$((next + 1))
    else
        sleep 0.1
    fi
done
