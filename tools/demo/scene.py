"""Makes the demo's recording: a loudspeaker and a talker in a small simulated room.

usage: scene.py DIRECTORY   writes mic.wav, ref.wav (what the loudspeaker plays) and near.wav (the
talker alone, as the microphone hears him: the yardstick of measure.py)
"""

import sys
from pathlib import Path

import numpy as np
from scipy.io import wavfile
from scipy.signal import fftconvolve

RATE = 16000  # Hz, as conf/aec.conf
FRAME = 512  # samples, as conf/aec.conf
PLAY = 16  # frames before the loudspeaker starts

# The stretches of the scene in samples, whole frames each.
FAR, BOTH, NEAR = (slice(a * FRAME, b * FRAME) for a, b in ((0, 448), (448, 752), (752, 944)))
STRETCHES = {"far end alone": FAR, "both talking": BOTH, "near end alone": NEAR}
TOTAL = NEAR.stop

SPEECH = Path("/usr/share/pocketsphinx/test/data")  # Debian's pocketsphinx-testdata
FAR_TALK = "librivox/*.wav"
NEAR_TALK = ("cards/*.wav", "goforward.raw", "something.raw", "numbers.raw")

LEVEL = 1500.0  # rms of echo and of near end, in 16-bit sample units: about -27 dB full scale
NOISE = 3.0  # rms of the background noise, in sample units
SATURATION = 32768.0  # where the loudspeaker's tanh() ends, in sample units
DISTANCE = 0.001  # s from loudspeaker to microphone: a third of a metre
REFLECTIONS = ((0.0021, 0.55), (0.0038, -0.4), (0.0057, 0.35), (0.0083, -0.25), (0.0121, 0.2))
RT60 = 0.2  # s for the tail to fall by 60 dB
TAIL = 0.03  # its level at the start, against the direct path


def read(path):
    if path.suffix == ".raw":
        return np.fromfile(path, "<i2").astype(float)
    rate, samples = wavfile.read(path)
    assert rate == RATE, path
    return samples.astype(float)


def speech(patterns, count):
    """The recordings one after another, each at LEVEL, cut to `count` samples."""
    paths = [path for pattern in patterns for path in sorted(SPEECH.glob(pattern))]
    talk = np.concatenate([x * (LEVEL / rms(x)) for x in map(read, paths)])
    assert len(talk) >= count, "not enough speech for the scene"
    talk = talk[:count]
    fade = RATE // 50
    talk[-fade:] *= np.linspace(1, 0, fade)
    return talk


def room(rng):
    """Impulse response from the loudspeaker to the microphone."""
    time = np.arange(int(RT60 * RATE)) / RATE
    response = TAIL * rng.standard_normal(len(time)) * 10 ** (-3 * time / RT60)
    response[0] = 1.0
    for delay, gain in REFLECTIONS:
        response[int(delay * RATE)] += gain
    return np.concatenate([np.zeros(int(DISTANCE * RATE)), response])


def rms(x):
    return np.sqrt(np.mean(x**2))


def to_samples(x):
    return np.clip(np.round(x), -32768, 32767).astype(np.int16)


def make(seed=1):
    rng = np.random.default_rng(seed)
    start = PLAY * FRAME
    ref = np.zeros(TOTAL)
    ref[start : NEAR.start] = speech([FAR_TALK], NEAR.start - start)
    near = np.zeros(TOTAL)
    near[BOTH.start :] = speech(NEAR_TALK, TOTAL - BOTH.start)
    ref = to_samples(ref)
    loudspeaker = SATURATION * np.tanh(ref / SATURATION)
    echo = fftconvolve(loudspeaker, room(rng))[:TOTAL]
    echo *= LEVEL / rms(echo[start : FAR.stop])
    noise = NOISE * rng.standard_normal(TOTAL)
    return to_samples(echo + near + noise), ref, to_samples(near)


if __name__ == "__main__":
    folder = Path(sys.argv[1])
    for name, samples in zip(("mic", "ref", "near"), make()):
        wavfile.write(folder / f"{name}.wav", RATE, samples)
