#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What ./run demo does beside its camera.
set -euo pipefail
export GENICAM_GENTL64_PATH=$PWD/build
build/nq-gev list
echo
build/nq-gev grab --count 300 --verify --out out/demo --overwrite --save-every 30
