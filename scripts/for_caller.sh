#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# for_caller.sh COMMAND...: runs the command as root and, however it ended, gives what belongs to root in this checkout to
# the user who called sudo.
set -euo pipefail
# The shell would have what it starts in the background ignore Ctrl-C. That reaches the command and all of its own by itself.
env --default-signal=INT,QUIT "$@" <&0 &
command=$!
trap : INT QUIT
trap 'kill -TERM $command 2>/dev/null || true' TERM HUP
status=0
while kill -0 $command 2>/dev/null; do
    status=0
    wait $command || status=$?
done
find . -xdev -uid 0 -exec chown -h "$SUDO_UID:$SUDO_GID" {} +
exit $status
