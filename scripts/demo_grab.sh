#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# demo_grab.sh ARGUMENT...: what ./run demo does beside its camera, with the answers that ANSWERS says.
set -euo pipefail
# Relative, for a colon would end the path.
export GENICAM_GENTL64_PATH=build
tool=(build/nq-gev --answers "${ANSWERS:-standard}")
"${tool[@]}" info
echo
"${tool[@]}" list
echo
"${tool[@]}" grab --camera "$CAMERA_ADDRESS" "$@"
