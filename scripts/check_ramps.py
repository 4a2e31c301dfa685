#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""check_ramps.py FILE WIDTH HEIGHT PICTURES: the file holds so many pictures of the virtual camera, a byte for each pixel and
each row filled up to a multiple of four, whole and in order: x + y + 7 * frame, of rising frames of which the receiver may
have lost some."""
import sys


def main(path, width, height, pictures):
    width, height, pictures = int(width), int(height), int(pictures)
    with open(path, "rb") as file:
        data = file.read()
    row = (width + 3) // 4 * 4
    if len(data) != row * height * pictures:
        print(f"{path}: {len(data)} bytes are not {pictures} pictures of {width} x {height}")
        return 1
    last = None
    for number in range(pictures):
        picture = data[number * row * height:(number + 1) * row * height]
        picture = b"".join(picture[y * row:y * row + width] for y in range(height))
        first = picture[0]
        if picture != bytes((x + y + first) % 256 for y in range(height) for x in range(width)):
            print(f"{path}: picture {number} is none of the camera's")
            return 1
        # 7 has an inverse modulo 256: how many frames lie between two pictures.
        if last is not None and not 1 <= (first - last) * 183 % 256 <= 50:
            print(f"{path}: picture {number} is not of a later frame than the one before")
            return 1
        last = first
    print(f"{path}: {pictures} pictures, every byte as the camera sent it")
    return 0


sys.exit(main(*sys.argv[1:]))
