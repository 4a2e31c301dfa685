#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# demo_grab.sh ARGUMENT...: what ./run demo does beside its camera.
set -euo pipefail
# Relative, for a colon would end the path.
export GENICAM_GENTL64_PATH=build
build/nq-gev list
echo
build/nq-gev grab --camera "$CAMERA_ADDRESS" "$@"
