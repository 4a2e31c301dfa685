#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run bench [--quick] [--rounds N] [--only GROUP...]: measures the library against references of bare verbs, a bare UDP
# socket and Aravis, in alternation: frames of 4 KiB to 16 MiB, what is counted of them, register reads, starts, memory,
# many buffers and cameras. Seven rounds, of which the median counts: up to a quarter of an hour, and the machine should
# have nothing else to do. --quick takes a minute and judges nothing. A table, and in out/bench/ report.json
# (docs/bench.schema.json) and plots.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
need_disk
# Without Aravis the figures that need it are left out; here it is installed, for them to be there.
# shellcheck disable=SC2086
install $build_packages python3 python3-jsonschema libaravis-dev
need_namespaces
NQ_TARGETS="nq_gev_rdma_tl nq-gev nq-gev-camera nq_rdma_loopback benchmarks" build build
mkdir -p out/bench
exec /usr/bin/python3 -B scripts/bench/driver.py "$@"
