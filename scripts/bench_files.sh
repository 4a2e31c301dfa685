#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# bench_files.sh FRAMES FOLDER: grabs from the camera that it runs beside, without files and with files of each format
# below FOLDER, which are removed again. Prints the sums of nq-gev as JSON; "waits" tells how often a frame had to wait for
# the files.
set -euo pipefail
frames=$1
pictures=$2/pictures
grab=(build/nq-gev --json grab --camera "$CAMERA_ADDRESS" --count "$frames" --buffers 8 --allow-loss 1000000000)
printf '{"file_rate": [\n'
printf '{"format": "none", "grab": %s}' "$("${grab[@]}")"
for format in raw tiff png; do
    printf ',\n{"format": "%s", "grab": %s}' "$format" "$("${grab[@]}" --format "$format" --out "$pictures")"
    rm -r "$pictures"
done
printf '\n]}\n'
