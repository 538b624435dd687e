"""The demo's scene in a running sound server: what its speaker and microphone hear, what cancellers
make of it, and how good that is."""
import os
import pathlib
import subprocess
import sys
import warnings

import numpy as np
from scipy.io import wavfile
from scipy.signal import correlate, fftconvolve, resample_poly

ROOT = pathlib.Path(__file__).parents[2]
sys.path.append(str(ROOT / "tools/demo"))
import scene  # noqa: E402
from measure import gain_and_sdr, level  # noqa: E402

from server import GRAPH_RATE  # noqa: E402

RATE = scene.RATE
TOOL = pathlib.Path(os.environ["QEL_BUILD"]) / "qel-aec"
ECHO_ALONE = slice(scene.PLAY * scene.FRAME + 3 * RATE, scene.PLAY * scene.FRAME + 10 * RATE)
STEP = GRAPH_RATE // RATE
SETTLE = RATE // 5  # left out where a stretch begins, as in tools/demo/measure.py
FULL_SCALE = 32768
# Where the recorder writes, in real time: memory, lest it wait for a disk.
MEMORY = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None


class Stage:
    """The files that a performance takes: the room for the server, both talkers for the player."""

    def __init__(self, folder, frames=scene.TOTAL // scene.FRAME):
        """The scene, or its first `frames`."""
        self.length = frames * scene.FRAME
        scene.make(scene.ROOM, TOOL, folder)
        signals = (wavfile.read(folder / f"{name}.wav")[1] for name in ("mic", "ref", "near"))
        # The demo's microphone is for comparison alone.
        self.mic, self.ref, self.near = (x[: self.length].astype(float) for x in signals)
        room = self.response(folder)
        loud = rms(self.ref)
        room *= loud / rms(fftconvolve(self.ref, room)[: self.length])
        noise = np.random.default_rng(1).standard_normal(self.length)
        noise *= loud * 10 ** (-scene.ROOM.noise / 20)
        talkers = np.stack([self.ref, self.near + noise], 1) / FULL_SCALE
        self.room, self.talkers = folder / "room.wav", folder / "talkers.wav"
        # At the server's rate, so that none of its own resamplers has a part in what is measured.
        for path, signal in ((self.room, room / STEP), (self.talkers, talkers)):
            wavfile.write(path, GRAPH_RATE, resample_poly(signal, STEP, 1).astype(np.float32))

    @staticmethod
    def response(folder):
        """Of the demo's room: what a click becomes in it."""
        click = np.zeros(RATE, np.int16)
        click[0] = FULL_SCALE // 2
        wavfile.write(folder / "click.wav", RATE, click)
        place = folder / "click"
        subprocess.run([TOOL, "simulate", "-o", place, "--far", folder / "click.wav", "--no-near",
                        "--noise", "100", *map(str, scene.ROOM.room)], check=True,
                       capture_output=True)
        response = wavfile.read(place / "mic.wav")[1].astype(float)
        return np.trim_zeros(response, "b")


def rms(x):
    return np.sqrt(np.mean(np.square(x)))


def perform(server, stage, names, folder):
    """Plays the scene once to the cancellers `names`. Returns what a recorder, which hears all at
    once, took down of microphone, reference and each canceller from where the reference begins, and
    the server's processor time."""
    taken = ["mic:capture_MONO", f"{names[0]}-sink:monitor_MONO",
             *(f"{name}-source:capture_MONO" for name in names)]
    places = [f"AUX{i}" for i in range(len(taken))]
    path = folder / "taken.wav"
    server.link("speaker:monitor_MONO", "room-in:input_MONO")
    server.link("room-out:output_MONO", "mic:input_MONO")
    recorder = server.start("pw-cat", "-r", "--target=0", f"--rate={GRAPH_RATE}", "--format=f32",
                            f"--channels={len(taken)}", "--channel-map=" + ",".join(places), path)
    for place, port in zip(places, taken):
        server.link(port, f"pw-cat:input_{place}")
    player = server.start("pw-cat", "-p", "--target=0", stage.talkers)
    before = server.cpu_seconds()
    server.link("pw-cat:output_FR", "mic:input_MONO")
    for name in names:
        server.link("pw-cat:output_FL", f"{name}-sink:playback_MONO")
    player.wait(stage.length / RATE + 10)
    cpu = server.cpu_seconds() - before
    recorder.terminate()
    recorder.wait(5)
    signals = resample_poly(read_float(path, len(taken)).T, 1, STEP, axis=1) * FULL_SCALE
    start, end = lag(signals[1], stage.ref), stage.length + RATE
    signals = signals[:, start : start + end]
    return np.pad(signals, ((0, 0), (0, end - signals.shape[1]))), cpu


def whole(mic, ref, stage):
    """Whether all that was played came where it should: a machine that is too busy leaves gaps."""
    far = [*range(scene.PLAY * scene.FRAME, scene.FAR.stop - RATE, RATE)]
    both = [*range(scene.BOTH.start, min(stage.length, scene.BOTH.stop) - RATE, RATE)]
    near = [*range(scene.BOTH.start, stage.length - RATE, RATE)]
    return all(np.ptp([lag(signal[i : i + RATE], source[i : i + RATE]) for i in seconds]) <= 2
               for signal, source, seconds in ((ref, stage.ref, far + both),
                                               (mic, stage.ref, far), (mic, stage.near, near)))


def read_float(path, channels):
    """The samples of a WAV file whose recorder was ended."""
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")  # it has chunks that SciPy does not know
        return wavfile.read(path)[1].reshape(-1, channels).astype(float)


def lag(signal, of):
    """How many samples `signal` is later than `of`."""
    return int(np.argmax(correlate(signal, of, "full"))) - len(of) + 1


def later(x, delay):
    """`x` later by any fraction of a sample."""
    spectrum = np.fft.rfft(x, 2 * len(x))
    turns = np.arange(len(spectrum)) * delay / (2 * len(x))
    return np.fft.irfft(spectrum * np.exp(-2j * np.pi * turns))[: len(x)]


def quality(mic, out, stage):
    """Of a canceller's output: its delay behind the microphone in ms, how many dB of echo it took
    while the far end talks alone, and the near end's SI-SDR in dB while both talk and, if the scene
    goes on to that, while the near end talks alone."""
    near = stage.near[scene.BOTH.start :]
    at, out_at = (lag(x[scene.BOTH.start : stage.length], near) for x in (mic, out))
    out = np.roll(out, at - out_at)
    found = {"delay": 1000 * (out_at - at) / RATE,
             "reduction": level(mic[ECHO_ALONE]) - level(out[ECHO_ALONE])}
    for name, span in (("both", scene.BOTH), ("near", scene.NEAR)):
        span = slice(span.start + SETTLE, min(span.stop, stage.length) - SETTLE)
        if span.start < span.stop:
            # What plays at three times the rate comes late by thirds of a sample.
            found[name] = max(gain_and_sdr(later(out[span], part), np.roll(stage.near, at)[span])[1]
                              for part in np.arange(-3, 4) / STEP)
    return found
