#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""ratio.py NAME OURS THEIRS: the medians of two lists of bytes per second, and the first divided by the second."""
import statistics
import sys


def main():
    name, ours, theirs = sys.argv[1], *([float(text) for text in list.split()] for list in sys.argv[2:4])
    mine = statistics.median(ours)
    if not theirs:
        print(f"{name}: {mine / 1e6:.1f} MB/s, ib_send_bw gave no result")
        return
    other = statistics.median(theirs)
    print(f"{name}: {mine / other:.2f} ({mine / 1e6:.1f} of {other / 1e6:.1f} MB/s, medians; nq-gev "
          f"{min(ours) / 1e6:.1f} to {max(ours) / 1e6:.1f}, ib_send_bw {min(theirs) / 1e6:.1f} to {max(theirs) / 1e6:.1f})")


main()
