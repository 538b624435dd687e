"""Makes the demo's recordings: a loudspeaker and a talker in a small simulated room.

usage: scene.py DIRECTORY [tracking]   writes mic.wav, ref.wav (what the loudspeaker plays) and
near.wav (the talker alone, as the microphone hears him: the yardstick of measure.py)
"""

import sys
from dataclasses import dataclass
from pathlib import Path

import numpy as np
from scipy.io import wavfile
from scipy.signal import fftconvolve

RATE = 16000  # Hz, as conf/aec.conf
FRAME = 512  # samples, as conf/aec.conf
PLAY = 16  # frames before the loudspeaker starts


def frames(first, end):
    """From frame `first` to frame `end`, in samples."""
    return slice(first * FRAME, end * FRAME)


# The stretches of the scene in samples, whole frames each.
FAR, BOTH, NEAR = frames(0, 448), frames(448, 752), frames(752, 944)
STRETCHES = {"far end alone": FAR, "both talking": BOTH, "near end alone": NEAR}
TOTAL = NEAR.stop


@dataclass(frozen=True)
class Scene:
    """What happens when, in samples: whole frames each."""

    stretches: dict  # by name, the whole time
    play: slice  # the loudspeaker talks
    talk: slice  # the near end talks
    noise: float  # rms of the background noise, in sample units
    delay: int = 0  # by which the echo comes late
    change: int = None  # when the loudspeaker is moved

    @property
    def total(self):
        return max(span.stop for span in self.stretches.values())


ROOM = Scene(STRETCHES, play=slice(PLAY * FRAME, NEAR.start), talk=slice(BOTH.start, TOTAL),
             noise=3.0)
TRACKING = Scene({"noise": frames(0, 32), "far end alone": frames(32, 288),
                  "far end alone, moved": frames(288, 544), "both talking": frames(544, 800),
                  "near end alone": frames(800, 928), "noise again": frames(928, 1024)},
                 play=frames(32, 800), talk=frames(544, 928), noise=10.0, delay=RATE // 5,
                 change=288 * FRAME)

SPEECH = Path("/usr/share/pocketsphinx/test/data")  # Debian's pocketsphinx-testdata
FAR_TALK = "librivox/*.wav"
NEAR_TALK = ("cards/*.wav", "goforward.raw", "something.raw", "numbers.raw")

LEVEL = 1500.0  # rms of echo and of near end, in 16-bit sample units: about -27 dB full scale
SATURATION = 32768.0  # where the loudspeaker's tanh() ends, in sample units
# Of the loudspeaker's places: s from there to the microphone (0.001: a third of a metre), and the
# reflections' s and gain.
PLACE = (0.001, ((0.0021, 0.55), (0.0038, -0.4), (0.0057, 0.35), (0.0083, -0.25), (0.0121, 0.2)))
MOVED = (0.0016, ((0.0017, -0.5), (0.0043, 0.45), (0.0066, -0.3), (0.0094, 0.25), (0.0139, -0.2)))
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


def place(patterns, span, total):
    """The recordings in their span, silence around them."""
    signal = np.zeros(total)
    signal[span] = speech(patterns, span.stop - span.start)
    return signal


def room(rng, distance, reflections):
    """Impulse response from the loudspeaker to the microphone."""
    time = np.arange(int(RT60 * RATE)) / RATE
    response = TAIL * rng.standard_normal(len(time)) * 10 ** (-3 * time / RT60)
    response[0] = 1.0
    for delay, gain in reflections:
        response[int(delay * RATE)] += gain
    return np.concatenate([np.zeros(int(distance * RATE)), response])


def rms(x):
    return np.sqrt(np.mean(x**2))


def to_samples(x):
    return np.clip(np.round(x), -32768, 32767).astype(np.int16)


def echo_of(scene, ref, rng, where, levelled):
    """The echo as loud as LEVEL in the span `levelled`, the loudspeaker at one of its places."""
    loudspeaker = SATURATION * np.tanh(ref / SATURATION)
    late = np.concatenate([np.zeros(scene.delay), loudspeaker])
    echo = fftconvolve(late, room(rng, *where))[: scene.total]
    return echo * LEVEL / rms(echo[levelled])


def make(scene=ROOM, seed=1):
    rng = np.random.default_rng(seed)
    ref = to_samples(place([FAR_TALK], scene.play, scene.total))
    near = place(NEAR_TALK, scene.talk, scene.total)
    alone = slice(scene.play.start, scene.talk.start)
    echo = echo_of(scene, ref, rng, PLACE, alone)
    if scene.change:
        echo[scene.change :] = echo_of(scene, ref, rng, MOVED, alone)[scene.change :]
    noise = scene.noise * rng.standard_normal(scene.total)
    return to_samples(echo + near + noise), ref, to_samples(near)


if __name__ == "__main__":
    folder = Path(sys.argv[1])
    scene = {"": ROOM, "tracking": TRACKING}["".join(sys.argv[2:])]
    for name, samples in zip(("mic", "ref", "near"), make(scene)):
        wavfile.write(folder / f"{name}.wav", RATE, samples)
