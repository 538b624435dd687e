"""Measures what the canceller did to the demo's recording and says so in words.

usage: measure.py DIRECTORY OUT.wav [CPU_SECONDS]   the directory is scene.py's; OUT.wav is in step
with mic.wav, as examples/cancel.lua writes it
"""

import ctypes
import sys
from pathlib import Path

import numpy as np
from scipy.io import wavfile
from scipy.signal import lfilter

from scene import BOTH, FAR, FRAME, NEAR, PLAY, RATE, TOTAL

SETTLE = RATE // 5  # samples left out where a stretch begins: the last echo dies away


def load(path, total=TOTAL):
    rate, samples = wavfile.read(path)
    if rate != RATE or len(samples) != total:
        sys.exit(f"{path}: not {total} samples at {RATE} Hz")
    return samples


def level(x):
    """Mean power in dB, of full scale; a digital silence counts as a thousandth of a sample."""
    return 10 * np.log10(np.mean(np.square(x, dtype=float)) + 1e-6) - 20 * np.log10(32768)


def erle(mic, out, span):
    """Echo return loss enhancement in dB: how far the output lies below the microphone."""
    return level(mic[span]) - level(out[span])


def gain_and_sdr(x, clean):
    """Gain in dB of the part of `x` that is `clean`, and that part's power over the rest's
    (SI-SDR)."""
    x, clean = x.astype(float), clean.astype(float)
    gain = np.dot(x, clean) / np.dot(clean, clean)
    rest = x - gain * clean
    return 20 * np.log10(abs(gain)), 10 * np.log10(np.sum((gain * clean) ** 2) / np.sum(rest**2))


def comfort_noise(rand):
    """A muted frame in 16-bit samples: white noise through a lowpass that starts at zero."""
    white = [(rand() % 1000 - 500) / 1000 for _ in range(FRAME)]
    slow = lfilter([0.0555179], [1, -0.99886], white)
    return np.trunc(2.0 * (7 * slow + 0.5362 * np.array(white)))


def frame_fates(mic, out):
    """Which frames were bypassed, and which were muted, as two arrays of booleans."""
    mic, out = (np.reshape(x, (-1, FRAME)).astype(int) for x in (mic, out))
    bypassed = (mic == out).all(axis=1)
    # The mute is the first thing that happens to frames which are not bypassed. Its noise comes
    # from the C library's rand(), which nobody seeds, so it can be told from other quiet frames.
    libc = ctypes.CDLL(None)
    libc.srand(1)
    muted = np.zeros_like(bypassed)
    for i in np.flatnonzero(~bypassed):
        muted[i] = (abs(out[i] - comfort_noise(libc.rand)) <= 1).all()
        if not muted[i]:
            break
    return bypassed, muted


def report(mic, near, out, cpu_seconds):
    bypassed, muted = frame_fates(mic, out)
    frames = len(bypassed)
    print(f"""
Frames of {FRAME} samples ({1000 * FRAME / RATE:.0f} ms): {frames}
  {bypassed.sum():4d} bypassed   equal to the microphone bit for bit: the loudspeaker is silent
  {muted.sum():4d} muted      equal to the start-up mute's comfort noise within one step
  {frames - bypassed.sum() - muted.sum():4d} processed  the others

Echo reduction (ERLE) while only the far end talks, from the loudspeaker's start:""")
    start = PLAY * FRAME
    for a, b in ((0, 1), (1, 3), (3, 5), (5, 7), (7, 9), (9, 11), (11, 13)):
        span = slice(start + a * RATE, start + b * RATE)
        if muted[span.start // FRAME]:
            told = "muted"
        else:
            value = erle(mic, out, span)
            told = f"{value:4.1f} dB  " + "=" * round(value)
        print(f"  {a:2} to {b:2} s  {told}")
    later = slice(start + 3 * RATE, start + 10 * RATE)
    print(f"  all of 3 to 10 s: {erle(mic, out, later):.1f} dB")

    print("\nNear end against the clean talker: gain, SI-SDR of microphone -> output")
    for name, span in (("both talking", BOTH), ("near end alone", NEAR)):
        span = slice(span.start + SETTLE, span.stop)
        gain, after = gain_and_sdr(out[span], near[span])
        before = gain_and_sdr(mic[span], near[span])[1]
        print(f"  {name:15} {round(gain, 1) + 0.0:+5.1f} dB   {before:4.1f} -> {after:4.1f} dB")

    if cpu_seconds is not None:
        share = cpu_seconds / (len(mic) / RATE)
        print(f"\nTime: {1000 * share:.1f} ms of this processor per second of audio, Lua and files"
              f" included (real time factor {share:.4f})")


if __name__ == "__main__":
    folder = Path(sys.argv[1])
    report(load(folder / "mic.wav"), load(folder / "near.wav"), load(sys.argv[2]),
           float(sys.argv[3]) if len(sys.argv) > 3 else None)
