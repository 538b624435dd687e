"""Compares what the device made of the demo's recording with what the host made of it.

usage: compare.py MIC.wav HOST.wav DEVICE.wav   exit status 1 if they differ by more than rounding
"""

import sys

import numpy as np

from measure import frame_fates, load
from scene import FRAME

CLOSE, CLOSE_SHARE, LIMIT = 1, 0.99, 2  # sample units; 99 of 100 within CLOSE, none beyond LIMIT


def agree(mic, host, device):
    muted = np.repeat(frame_fates(mic, host)[1], FRAME)  # random, so no matter of rounding
    distance = np.abs((device - host)[~muted].astype(int))  # int16: modulo 65536, as samples wrap
    print(f"""
Device against host: {len(distance)} samples, {muted.sum()} of comfort noise left out
  {np.mean(distance == 0):8.4%} equal
  {np.mean(distance == 1):8.4%} off by 1
  {np.mean(distance > 1):8.4%} off by more, by {distance.max()} at most""")
    good = np.mean(distance <= CLOSE) >= CLOSE_SHARE and distance.max() <= LIMIT
    print(f"The device {'gives' if good else 'DOES NOT GIVE'} the host's samples: within {CLOSE} in at"
          f" least {100 * CLOSE_SHARE:.0f} of 100, never off by more than {LIMIT}.")
    return good


if __name__ == "__main__":
    sys.exit(0 if agree(*map(load, sys.argv[1:4])) else 1)
