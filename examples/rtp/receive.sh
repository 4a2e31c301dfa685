#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# receive.sh FILE.gray WIDTH HEIGHT [PICTURES]: takes so many pictures (100) that send.sh sends, on any number of machines,
# and writes them behind each other, a byte for each pixel, each row filled up to a multiple of four. WIDTH has to be even.
# INTERFACE is the adapter that they come by, GROUP and PORT the address they are sent to. `autovideosink` instead of the
# last two elements shows them.
set -euo pipefail
[ $# -ge 3 ] || { echo "usage: $0 FILE.gray WIDTH HEIGHT [PICTURES]" >&2; exit 2; }
file=$1 width=$2 height=$3 pictures=${4:-100}

# What the sender's payloader would tell by SDP. The buffer of the socket is for pictures that come in a burst; the picture
# that the pipeline ends with is not written any more.
format="application/x-rtp,media=video,clock-rate=90000,encoding-name=RAW,sampling=YCbCr-4:2:2,depth=(string)8"
gst-launch-1.0 --quiet \
    udpsrc address="${GROUP:-239.255.42.1}" port="${PORT:-5004}" ${INTERFACE:+multicast-iface="$INTERFACE"} buffer-size=8000000 \
    caps="$format,width=(string)$width,height=(string)$height,colorimetry=(string)BT601-5,payload=96" ! \
    rtpjitterbuffer latency=200 ! rtpvrawdepay ! videoconvert ! video/x-raw,format=GRAY8 ! \
    identity eos-after=$((pictures + 1)) ! filesink location="$file"
