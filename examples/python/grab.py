#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""grab.py PRODUCER.cti [FILE.pgm]: ten pictures of the first camera, the last one as a PGM file."""
import sys

import numpy

from gentl import GenTLError, Producer


def save(pixels, path):
    if pixels.dtype != numpy.uint8 or pixels.ndim != 2:
        raise ValueError(f"{path}: only whole pictures of one byte for each pixel are written")
    with open(path, "wb") as file:
        file.write(b"P5\n%d %d\n255\n" % pixels.shape[::-1])
        file.write(pixels)


def grab(producer_path, picture_path):
    with Producer(producer_path) as producer:
        cameras = producer.cameras()
        if not cameras:
            raise ValueError("no camera answers")
        print("camera", cameras[0].device)
        with producer.open(cameras[0]) as camera, camera.stream() as stream:
            for picture in range(1, 11):
                with stream.next(timeout_ms=10000) as frame:
                    print(f"frame {frame.id}: {frame.width} x {frame.height}, {frame.size} bytes, "
                          f"mean {frame.pixels.mean():.2f}{', incomplete' if frame.incomplete else ''}")
                    if picture == 10 and picture_path:
                        save(frame.pixels, picture_path)


def main(arguments):
    if not 1 <= len(arguments) <= 2:
        print("usage: grab.py PRODUCER.cti [FILE.pgm]", file=sys.stderr)
        return 2
    try:
        grab(arguments[0], arguments[1] if len(arguments) == 2 else None)
    except (GenTLError, OSError, ValueError) as problem:
        print(problem, file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
