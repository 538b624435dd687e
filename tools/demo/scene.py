"""Makes the demo's recordings: recorded talkers before a loudspeaker and a microphone in a simulated
room.

usage: scene.py PROGRAM DIRECTORY [tracking]   PROGRAM is qel-aec, which simulates the room and
writes mic.wav, ref.wav (what the loudspeaker plays) and near.wav (the talker alone, as the
microphone hears him: the yardstick of measure.py)
"""

import shlex
import subprocess
import sys
from dataclasses import dataclass
from pathlib import Path

import numpy as np
from scipy.io import wavfile

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
    noise: float  # dB of the echo over the background noise
    delay: int = RATE // 1000  # from the loudspeaker to its echo
    change: int = None  # when the loudspeaker is moved

    @property
    def total(self):
        return max(span.stop for span in self.stretches.values())

    @property
    def room(self):
        """As options of qel-aec simulate."""
        moved = ["--path-change", self.change / RATE] if self.change else []
        return ["--seed", SEED, "--delay", 1000 * self.delay / RATE, *moved]


ROOM = Scene(STRETCHES, play=slice(PLAY * FRAME, NEAR.start), talk=slice(BOTH.start, TOTAL),
             noise=53)
TRACKING = Scene({"noise": frames(0, 32), "far end alone": frames(32, 288),
                  "far end alone, moved": frames(288, 544), "both talking": frames(544, 800),
                  "near end alone": frames(800, 928), "noise again": frames(928, 1024)},
                 play=frames(32, 800), talk=frames(544, 928), noise=42, delay=RATE // 5,
                 change=288 * FRAME)
SEED = 1  # of the rooms

SPEECH = Path("/usr/share/pocketsphinx/test/data")  # Debian's pocketsphinx-testdata
FAR_TALK = ("librivox/*.wav",)
NEAR_TALK = ("cards/*.wav", "goforward.raw", "something.raw", "numbers.raw")
LEVEL = 1500.0  # rms of the talkers, in 16-bit sample units: about -27 dB full scale


def read(path):
    if path.suffix == ".raw":
        return np.fromfile(path, "<i2").astype(float)
    rate, samples = wavfile.read(path)
    assert rate == RATE, path
    return samples.astype(float)


def write_talker(path, patterns, span, total):
    """The recordings one after another, each at LEVEL, in their span; silence around them."""
    paths = [path for pattern in patterns for path in sorted(SPEECH.glob(pattern))]
    talk = np.concatenate([x * (LEVEL / np.sqrt(np.mean(x**2))) for x in map(read, paths)])
    count = span.stop - span.start
    assert len(talk) >= count, "not enough speech for the scene"
    fade = RATE // 50
    talk[count - fade : count] *= np.linspace(1, 0, fade)
    signal = np.zeros(total, np.int16)
    signal[span] = np.clip(np.round(talk[:count]), -32768, 32767)
    wavfile.write(path, RATE, signal)


def make(scene, program, folder):
    far, near = folder / "far.wav", folder / "talker.wav"
    write_talker(far, FAR_TALK, scene.play, scene.total)
    write_talker(near, NEAR_TALK, scene.talk, scene.total)
    words = ["simulate", "-o", folder, "--far", far, "--near", near, *scene.room,
             "--noise", scene.noise]
    words = [str(word) for word in words]
    print("  ", shlex.join([Path(program).name, *words]), flush=True)
    subprocess.run([program, *words], check=True, stdout=subprocess.DEVNULL)


if __name__ == "__main__":
    make(TRACKING if sys.argv[3:] == ["tracking"] else ROOM, sys.argv[1], Path(sys.argv[2]))
