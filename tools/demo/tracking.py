"""Measures and draws what the canceller did to the demo's late and changing echo, with its default
settings and with the tracking mode.

usage: tracking.py DIRECTORY PICTURE.png   the directory is scene.py's for "tracking", with a
NAME.wav for each of the configurations below, and in NAME.times the user's and the system's seconds
of processor time that it took, a line for each try
"""

import sys
from pathlib import Path

import matplotlib.pyplot as plt
import numpy as np

from measure import SETTLE, erle, frame_fates, gain_and_sdr, level, load
from picture import (AFTER, BEFORE, MARK, draw_spectrogram, draw_wave, erle_curve,
                     mark_stretches)
from scene import FRAME, RATE, TRACKING

OUTPUTS = {"aec": "conf/aec.conf", "aec-tracking": "conf/aec-tracking.conf"}
COLOURS = {"aec": AFTER, "aec-tracking": "#009E73"}  # as picture.py's
LINES = {"aec": "--", "aec-tracking": "-"}
BLOCK = RATE // 10  # samples in which the noise's level is judged
WINDOW = RATE // 2  # samples per point of the ERLE curve
LABEL = 0.045  # share of a panel's width from where its name stands, behind the first echo

STRETCHES = TRACKING.stretches
ARRIVAL = TRACKING.play.start + TRACKING.delay  # of the first echo


def rest_of(span, first, last):
    """From `first` to `last` seconds of a span, no further than its end."""
    return slice(span.start + first * RATE, min(span.start + last * RATE, span.stop))


def row(name, values):
    print(f"  {name:36}" + "".join(f"{value:>24}" for value in values))


def told_erle(mic, out, span):
    muted = frame_fates(mic, out)[1]
    return "muted" if muted[span.start // FRAME] else f"{erle(mic, out, span):.1f} dB"


def report_reduction(mic, outs):
    print("\nEcho reduction (ERLE) while only the far end talks")
    far = slice(ARRIVAL, STRETCHES["far end alone"].stop)
    for when, span in (("after its first echo", far),
                       ("after the move", STRETCHES["far end alone, moved"])):
        for first, last in ((0, 1), (1, 2), (2, 4), (4, 8)):
            row(f"{first} to {last} s {when}",
                [told_erle(mic, out, rest_of(span, first, last)) for out in outs])


def report_near_end(mic, near, outs):
    print("\nNear end against the clean talker: gain, SI-SDR")
    for name in ("both talking", "near end alone"):
        span = STRETCHES[name]
        span = slice(span.start + SETTLE + TRACKING.delay, span.stop)
        before = gain_and_sdr(mic[span], near[span])[1]
        figures = [gain_and_sdr(out[span], near[span]) for out in outs]
        row(f"{name}, from {before:.1f} dB", [f"{g + 0.0:+.1f} dB, {s:.1f} dB" for g, s in figures])


def levels(x):
    blocks = x[: len(x) // BLOCK * BLOCK].reshape(-1, BLOCK)
    return np.array([level(block) for block in blocks])


def report_noise(mic, outs):
    room = np.median(levels(mic[STRETCHES["noise"]]))
    print(f"\nBlocks of {1000 * BLOCK // RATE} ms against the room's noise, which has {room:.0f} dB"
          " full scale")
    alone = slice(TRACKING.play.start, TRACKING.talk.start)
    for name, span, share in (("far end alone: median", alone, 0.5),
                              ("far end alone: quietest twentieth", alone, 0.05),
                              ("noise again: median", STRETCHES["noise again"], 0.5)):
        row(name, [f"{np.quantile(levels(out[span]), share) - room + 0.0:+.1f} dB"
                   for out in outs])


def report_time(mic, folder):
    seconds = [np.loadtxt(folder / f"{name}.times").sum(axis=1).min() for name in OUTPUTS]
    print()
    row("Time per second, Lua and files too",
        [f"{1000 * s * RATE / len(mic):.2f} ms" for s in seconds])


def report(mic, near, outs):
    print(f"\nThe echo comes {1000 * TRACKING.delay // RATE} ms late; the loudspeaker is moved at"
          f" {TRACKING.change / RATE:.1f} s\n")
    row("", OUTPUTS.values())
    report_reduction(mic, outs)
    report_near_end(mic, near, outs)
    report_noise(mic, outs)


def mark_events(axes, erle_axis):
    """The wait for the first echo, and the move."""
    for ax in axes:
        ax.axvline(TRACKING.change / RATE, color=MARK, linewidth=2)
    axes[0].axvspan(TRACKING.play.start / RATE, ARRIVAL / RATE, color=MARK, alpha=0.3, linewidth=0)
    axes[0].annotate(f"{1000 * TRACKING.delay // RATE} ms from the\nloudspeaker to its echo",
                     (ARRIVAL / RATE, 0.12), (ARRIVAL / RATE + 0.5, 0.06), fontsize=8, color=MARK,
                     xycoords=axes[0].get_xaxis_transform(),
                     textcoords=axes[0].get_xaxis_transform(),
                     arrowprops={"arrowstyle": "->", "color": MARK})
    erle_axis.text(TRACKING.change / RATE + 0.1, 61, "loudspeaker\nmoved", color=MARK)


def draw_reductions(ax, mic, outs):
    alone = [slice(ARRIVAL, TRACKING.change), slice(TRACKING.change, TRACKING.talk.start)]
    for (name, path), out in zip(OUTPUTS.items(), outs):
        muted = np.flatnonzero(frame_fates(mic, out)[1])
        starts = max(ARRIVAL, FRAME * (muted[-1] + 1) if len(muted) else 0)
        for i, span in enumerate(alone):
            span = slice(max(span.start, starts), span.stop)
            ax.plot(*erle_curve(mic, out, span, WINDOW), color=COLOURS[name],
                    linestyle=LINES[name], label=None if i else path)
        if len(muted):
            ax.axvspan(muted[0] * FRAME / RATE, starts / RATE, color=COLOURS[name], alpha=0.15,
                       linewidth=0, label=f"start-up mute of {path}")
    ax.set(ylim=(-5, 70), ylabel="ERLE, dB", xlabel="time, s")
    ax.grid(alpha=0.3)
    ax.text((TRACKING.talk.start + TRACKING.total) / 2 / RATE, 15,
            "defined only while the near end is silent", ha="center", va="center", color=MARK,
            backgroundcolor="white")
    ax.legend(loc="upper right")


def draw(mic, outs, path):
    figure, axes = plt.subplots(7, 1, sharex=True, figsize=(12, 15), layout="constrained",
                                height_ratios=(1, 1, 1, 1.2, 1.2, 1.2, 1.8))
    limit = 1.05 * np.abs(mic.astype(int)).max()
    signals = [("microphone", mic, BEFORE),
               *((f"output, {conf}", out, COLOURS[name])
                 for (name, conf), out in zip(OUTPUTS.items(), outs))]
    for ax, (name, samples, colour) in zip(axes, signals):
        draw_wave(ax, samples, colour, name, limit, LABEL)
    for ax, (name, samples, _) in zip(axes[3:], signals):
        image = draw_spectrogram(ax, samples, name, LABEL)
    figure.colorbar(image, ax=axes[3:6], label="dB full scale per Hz", pad=0.01)
    mark_stretches(axes, STRETCHES)
    mark_events([axes[0], axes[1], axes[2], axes[6]], axes[6])
    draw_reductions(axes[6], mic, outs)
    axes[0].set_xlim(0, TRACKING.total / RATE)
    figure.suptitle("A late echo and a moved loudspeaker: default settings and tracking mode")
    figure.align_ylabels()
    figure.savefig(path, dpi=110)


if __name__ == "__main__":
    folder = Path(sys.argv[1])
    mic, near, *outs = (load(folder / f"{name}.wav", TRACKING.total)
                        for name in ("mic", "near", *OUTPUTS))
    report(mic, near, outs)
    report_time(mic, folder)
    draw(mic, outs, sys.argv[2])
