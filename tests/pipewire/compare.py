"""Measures cancellers beside each other: the demo's scene in a server for each, as a table.

usage: QEL_BUILD=build/host /usr/bin/python3 tests/pipewire/compare.py
"""
import os
import pathlib
import tempfile

from performance import MEMORY, RATE, ROOT, Stage, perform, quality, whole
from server import Server

ATTEMPTS = 5
QUANTUM = 256  # samples: no canceller here takes less
NOTHING = "none (`aec/libspa-aec-null`)"  # what the server takes by itself
CANCELLERS = {  # library, rate in Hz, arguments
    NOTHING: ("aec/libspa-aec-null", 48000, ""),
    "`aec/libspa-aec-webrtc`": ("aec/libspa-aec-webrtc", 48000, ""),
    "the same, canceller alone": ("aec/libspa-aec-webrtc", 48000, "webrtc.noise_suppression = false "
                                  "webrtc.high_pass_filter = false webrtc.gain_control = false"),
    "`aec/libspa-aec-qel`": ("aec/libspa-aec-qel", 48000, ""),
    "`aec/libspa-aec-qel`, `audio.rate = 16000`": ("aec/libspa-aec-qel", 16000, ""),
    "`aec/libspa-aec-qel`, `conf/aec.conf`": ("aec/libspa-aec-qel", 48000,
                                              f'qel.config = "{ROOT / "conf/aec.conf"}"')}


def measure(library, rate, args, stage, folder):
    canceller = {"name": "canceller", "library": library, "rate": rate, "args": args}
    for _ in range(ATTEMPTS):
        plugins = pathlib.Path(os.environ["QEL_BUILD"]) / "spa-0.2"
        with Server(stage.room, [canceller], plugins, QUANTUM) as server:
            (mic, ref, out), cpu = perform(server, stage, ["canceller"], folder)
        if whole(mic, ref, stage):
            return quality(mic, mic, stage), quality(mic, out, stage), 1000 * cpu * RATE / stage.length
    raise SystemExit("the machine is too busy for real time")


def main():
    print("| Canceller | echo reduction | near end, both talking | near end alone | delay | time |")
    print("|---|---|---|---|---|---|")
    with tempfile.TemporaryDirectory(dir=MEMORY) as name:
        folder = pathlib.Path(name)
        stage, idle = Stage(folder), None
        for title, canceller in CANCELLERS.items():
            before, after, time = measure(*canceller, stage, folder)
            idle = time if title == NOTHING else idle
            both, near = (f"{before[key]:.1f} → {after[key]:.1f} dB" for key in ("both", "near"))
            print(f"| {title} | {after['reduction']:.1f} dB | {both} | {near} | {after['delay']:.0f} ms"
                  f" | {time - idle:.1f} ms/s |", flush=True)
        print(f"\nThe server by itself: {idle:.1f} ms/s.")


if __name__ == "__main__":
    main()
