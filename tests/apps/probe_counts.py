"""How often qel-aec probe is right: makes recordings that are wrong in a known way and counts.

usage: probe_counts.py PROGRAM [SEEDS [FIRST [FAULT...]]]   100 seeds from 1 and all faults by
default; needs NumPy and SciPy
"""
import json
import multiprocessing
import pathlib
import random
import subprocess
import sys
import tempfile

import numpy as np
from scipy.io import wavfile
from scipy.signal import resample_poly

RATE = 16000
RATIOS = ((3, 1), (1, 3), (2, 1), (1, 2), (160, 147), (147, 160), (441, 160), (160, 441))


def wav(path, samples):
    wavfile.write(path, RATE, np.clip(np.round(samples), -32768, 32767).astype(np.int16))


def samples_of(path):
    return wavfile.read(path)[1].astype(float)


class Scene:
    """One seed's recording with everything that varies between good ones, and a fault on top."""

    def __init__(self, program, folder, seed):
        self.program, self.folder, self.seed = program, folder, seed
        dice = random.Random(seed)
        self.dice = dice
        self.delay = round(dice.uniform(1, 80), 3)
        self.noise = dice.choice((10, 15, 20, 30, 40))
        self.options = {"--seed": seed, "--rt60": round(dice.uniform(0.1, 0.6), 2),
                        "--delay": self.delay, "--noise": self.noise, "--seconds": 30,
                        "--echo": round(dice.uniform(-15, 5), 1)}
        self.flags = dice.choice(([], ["--no-near"]))

    def call(self, *words):
        return subprocess.run([self.program, *map(str, words)], capture_output=True, check=False)

    def make(self, *flags, **changes):
        options = {**self.options, **{"--" + k.replace("_", "-"): v for k, v in changes.items()}}
        words = [word for item in options.items() for word in item]
        self.call("simulate", "-o", self.folder, *words, *self.flags, *flags)

    def edit(self, name, change):
        path = self.folder / name
        wav(path, change(samples_of(path)))

    def probe(self, *words):
        done = self.call("probe", self.folder / "mic.wav", self.folder / "ref.wav", "--json", *words)
        report = json.loads(done.stdout)
        report["codes"] = [f["code"] for f in report["findings"] if f["level"] != "note"]
        return report


# Each fault: makes the recording and gives what must hold of the report.

def good(scene):
    scene.make()
    return lambda r: not r["codes"]


def delay_within_a_sample(scene):
    scene.make(noise=10)
    samples = round(scene.delay * RATE / 1000)
    return lambda r: abs(r["delay_ms"] * RATE / 1000 - samples) <= 1


def drift_within_5_ppm(scene):
    ppm = scene.dice.choice((-1, 1)) * scene.dice.uniform(15, 400)
    scene.make(drift=ppm, noise=10)
    return lambda r: abs(r["drift_ppm"] - ppm) <= 5 and r["codes"] == ["drift"]


def coded(code, *flags, **changes):
    def fault(scene):
        scene.make(*flags, **changes)
        return lambda r: code in r["codes"]
    fault.__name__ = code
    return fault


def only(code, *flags, **changes):
    """The code and no other."""
    def fault(scene):
        scene.make(*flags, **changes)
        return lambda r: r["codes"] == [code]
    fault.__name__ = code
    return fault


def edited(code, name, change):
    def fault(scene):
        scene.make()
        scene.edit(name, change)
        return lambda r: code in r["codes"]
    fault.__name__ = f"{code} ({name})"
    return fault


def unrelated(scene):
    scene.make(seed=scene.seed + 100000)
    other = samples_of(scene.folder / "ref.wav")
    scene.make()
    wav(scene.folder / "ref.wav", other)
    return lambda r: r["codes"] == ["unrelated"]


def wrong_rate(scene):
    up, down = scene.dice.choice(RATIOS)
    scene.make()
    # More samples for one second, under the same label; half the time it is the reference's label.
    scene.edit(scene.dice.choice(("mic.wav", "ref.wav")), lambda x: resample_poly(x, up, down))
    return lambda r: "wrong-rate" in r["codes"] and "unrelated" not in r["codes"]


def wraps(scene):
    scene.make()
    scene.edit("ref.wav", lambda x: (x * 4 + 32768) % 65536 - 32768)
    return lambda r: "gain-wraps" in r["codes"]


def moves(scene):
    scene.make(path_change=scene.dice.uniform(8, 18), move_delay=scene.dice.choice((-1, 1, 3)) * 15,
               delay=30)
    return lambda r: "delay-moves" in r["codes"]


FAULTS = (
    good, delay_within_a_sample, drift_within_5_ppm, only("swapped", "--swap"),
    only("polarity", "--invert"), unrelated, wrong_rate,
    coded("reference-late", delay=-20), coded("echo-too-late", delay=200), moves,
    coded("nonlinear", clip=14), wraps,
    edited("clipping", "mic.wav", lambda x: np.clip(x, -0.2 * max(x), 0.2 * max(x))),
    edited("dc", "mic.wav", lambda x: x + 400), edited("silent", "ref.wav", lambda x: 0 * x),
    edited("level", "ref.wav", lambda x: x / 100),
)


def judge(job):
    program, seed, names = job
    faults = [fault for fault in FAULTS if fault.__name__ in names]
    failed = []
    with tempfile.TemporaryDirectory() as folder:
        for fault in faults:
            scene = Scene(program, pathlib.Path(folder), seed)
            holds = fault(scene)
            report = scene.probe()
            try:
                right = holds(report)
            except TypeError:  # nothing where a number is expected
                right = False
            if not right:
                told = {key: report.get(key) for key in ("delay_ms", "drift_ppm", "after_db", "score",
                                                         "nonlinear", "confidence")}
                failed.append((fault.__name__, seed, report["codes"], told, scene.options))
    return failed


def main():
    program = pathlib.Path(sys.argv[1]).resolve()
    count, first = (int(word) for word in [*sys.argv[2:4], *("100", "1")[len(sys.argv[2:4]):]])
    faults = [f for f in FAULTS if f.__name__ in sys.argv[4:] or not sys.argv[4:]]
    names = [fault.__name__ for fault in faults]
    jobs = [(program, first + i, names) for i in range(count)]
    with multiprocessing.Pool() as pool:
        failed = []
        for done, wrong in enumerate(pool.imap(judge, jobs), 1):
            failed += wrong
            print(f"\r{done} of {count} seeds, {len(failed)} wrong", end="", file=sys.stderr)
        print(file=sys.stderr)
    for fault in faults:
        wrong = [f for f in failed if f[0] == fault.__name__]
        print(f"{fault.__name__:24} {count - len(wrong):4d} of {count}")
    for f in failed:
        print(*f)


if __name__ == "__main__":
    main()
