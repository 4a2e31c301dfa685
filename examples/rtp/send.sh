#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# send.sh FILE.mkv WIDTH HEIGHT [NQ-GEV-GRAB-ARGUMENT...]: takes 8-bit grey pictures of a camera, records them in FILE.mkv
# and sends them by RTP to every machine that receives 239.255.42.1: receive.sh shows how. NQ_GEV names the program if it
# is not in the PATH, INTERFACE the adapter towards the receivers, GROUP and PORT another address for them. Without --count
# or --duration among the arguments it goes on for a day.
set -euo pipefail
[ $# -ge 3 ] || { echo "usage: $0 FILE.mkv WIDTH HEIGHT [NQ-GEV-GRAB-ARGUMENT...]" >&2; exit 2; }
file=$1 width=$2 height=$3
shift 3
# By itself nq-gev takes one picture.
[[ " $*" == *" --count"* || " $*" == *" --duration"* ]] || set -- --duration 86400 "$@"

# A raw picture has no header: the pipeline has to be told its size, and that its rows follow each other without a gap. RTP
# knows no grey format: UYVY keeps the grey values as they are. JPEG, for the file, does not quite: quality=100 or a lossless
# encoder keeps more.
"${NQ_GEV:-nq-gev}" grab --format raw --out - "$@" |
    gst-launch-1.0 --quiet \
        fdsrc ! rawvideoparse format=gray8 width="$width" height="$height" framerate=25/1 plane-strides="<$width>" ! \
        tee name=both \
        both. ! queue ! videoconvert ! jpegenc quality=95 ! matroskamux ! filesink location="$file" \
        both. ! queue ! videoconvert ! video/x-raw,format=UYVY ! rtpvrawpay mtu=1400 ! \
        udpsink host="${GROUP:-239.255.42.1}" port="${PORT:-5004}" ttl-mc=1 ${INTERFACE:+multicast-iface="$INTERFACE"} sync=false
