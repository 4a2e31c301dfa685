#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run faults: injects every fault and prints one table: what the application sees, after how long, and whether the
# next acquisition works. Each row is a test of the end-to-end family; exit code 1 when one differs from what it states.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
need_disk
# shellcheck disable=SC2086
install $build_packages $test_packages
need_namespaces
folder=${NQ_BUILD:-build}
NQ_TARGETS="e2e_fault_camera_lost_e2e_test tools_fault_killed_test e2e_fault_process_e2e_test e2e_fault_clock_e2e_test
    e2e_fault_memory_e2e_test"
build "$folder" "$(fast_linker)"
rm -rf out/faults
mkdir -p out/faults
export NQ_LONG_FAULTS=1
# shellcheck disable=SC2086
exec python3 scripts/faults.py "$folder/tests" out/faults $NQ_TARGETS
