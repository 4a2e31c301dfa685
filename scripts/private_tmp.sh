#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# private_tmp.sh COMMAND...: runs it with an empty /tmp and a process tree of its own. Both go with it, however it ends.
set -euo pipefail
if [ "${1:-}" != --inside ]; then
    exec setpriv --pdeathsig KILL unshare --mount --pid --fork --kill-child --mount-proc "$0" --inside "$@"
fi
shift
# A checkout below /tmp stays where it is.
[[ $PWD/ != /tmp/* ]] || mount --bind "$PWD" /mnt
mount -t tmpfs tmpfs /tmp
if [[ $PWD/ == /tmp/* ]]; then
    mkdir -p "$PWD"
    mount --move /mnt "$PWD"
    cd "$PWD"
fi
"$@"
