"""What the benchmark's figures are held against: rows of the tables, aims and what lies beyond."""

# Of peers' lines: what to call it, the line's name, the peer, aim, beyond. Time over the peer's.
RATIOS = [
    *((f"{way} {n}", f"{way} {n}", "FFTW, patient", 1.1, 0.95)
      for way in ("r2c", "c2r") for n in (256, 512, 1024, 2048, 4096)),
    *((f"c2c {n}", f"c2c {n}", "FFTW, patient", 1.2, 1.0) for n in (512, 1024)),
    *((f"c2c {n}", f"c2c {n}", "FFTW, patient", 1.5, 1.2) for n in (24, 120, 1000)),
    ("frame of 512", "frame: WebRTC", "WebRTC echo cancellation", 0.15, 0.12),
    ("the same", "frame: WebRTC extended", "WebRTC extended filter + noise suppression", 0.07,
     0.055),
    ("the same", "frame: FFTW's transforms", "FFTW's three transforms of it", 4.5, 3.5),
]
# These lines have this library on both sides, the ordinary case first: time over that one's.
OWN_RATIOS = [
    *((name, f"signal: {name}", "speech", 1.1, 1.05)
      for name in ("silence after speech", "one click in silence, all decays to subnormals",
                   "square wave of full scale", "constant", "constant, the microphone silent")),
    ("1,000 instances in turn", "instances: 1000", "one instance", 1.5, 1.3),
]
# Of the tracking mode's switches, by their letters: what to call them, aim, beyond. A frame's time,
# or instructions, over those of a frame without the mode.
TRACKING = {"K": ("`use_kalman`", None, None),
            "KR": ("the same and `use_residual`", None, None),
            "A": ("`use_align` alone", None, None),
            "KRA": ("these three", 1.35, 1.25),
            "KRAN": ("all four, `use_comfort` too", 1.42, 1.3)}
# How many times faster than the C library.
GAINS = [(f"{name} at 513", name, "C library", 4, 6) for name in ("exp", "log", "sigmoid")]

INSTANCE_KB = (170, 150)  # of 1,000 bytes: aim, beyond

# Instructions under qemu-arm: what, aim, beyond.
DEVICE = {"frame of 512, reference active": (140_000, 110_000),
          "divisions and square roots in it": (1_000, 200),
          "frame of 512, bypassed": (7_580, None),
          "r2c 1024": (11_500, 10_500)}

NOISY = 0.10  # spread above which a ratio is not to be trusted

# Of the device's streams: cycles of an instruction, of a division or square root, and the clock.
CYCLES, SLOW_CYCLES, CLOCK = 1, 20, 1e9
