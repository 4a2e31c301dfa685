#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./run examples: builds the programs of examples/ and runs each against the virtual camera: those that CI has the packages
# for as cases of ctest, then the one with OpenCV, then a recording that is sent by RTP to another host and received there.
# What the last one wrote is left in out/examples/. The Dockerfile takes longer: ./run all builds it in a clean Debian.
set -euo pipefail
cd "$(dirname "$(readlink -f "$0")")/.."
. scripts/common.sh
become_root "$@"
[ $# = 0 ] || fail "examples takes no argument \"$1\""
need_disk
# shellcheck disable=SC2086
install $build_packages $test_packages $example_packages
need_namespaces
NQ_TARGETS="tools_example_programs_test tools_example_testing_test examples" build build "$(fast_linker)"
scripts/private_tmp.sh ctest --test-dir build -R '^tools\..*Example' -j "$(nproc)" --no-tests=error --output-on-failure

camera="--width 64 --height 48"
# Rows that are no multiple of four bytes, which GStreamer would take for its own otherwise.
odd_camera="--width 66 --height 48"
echo "with OpenCV"
CAMERA_ARGUMENTS="$camera --fps 0" scripts/two_hosts.sh build/examples/grab_opencv build/libnq_gev_rdma_tl.cti |
    tee out/examples_opencv.txt
# The virtual camera's ramp: x + y + 7 * frame.
for frame in $(seq 10); do
    echo "frame $frame: 64 x 48, mean $((55 + 7 * frame)), from $((7 * frame)) to $((110 + 7 * frame))"
done | diff - out/examples_opencv.txt || fail "these are not the pictures of the camera"

echo "a recording, sent by RTP to another host"
rm -rf out/examples
mkdir -p out/examples
CAMERA_ARGUMENTS="$odd_camera --fps 20 --send-buffers 100" scripts/two_hosts.sh scripts/examples_rtp.sh 66 48 out/examples
python3 scripts/check_ramps.py out/examples/received.gray 66 48 40
recorded=$(ffprobe -v error -count_frames -show_entries stream=codec_name,width,height,nb_read_frames -of csv=p=0 \
    out/examples/recorded.mkv)
[ "$recorded" = mjpeg,66,48,100 ] || fail "recorded.mkv holds $recorded instead of 100 pictures"
echo "all examples work"
