"""Draws the demo's recording before and after the canceller.

usage: picture.py DIRECTORY OUT.wav PICTURE.png   arguments as of measure.py
"""

import sys
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

from measure import erle, frame_fates, load
from scene import FAR, FRAME, PLAY, RATE, STRETCHES, TOTAL

BEFORE, AFTER, MARK = "#0072B2", "#D55E00", "#444444"  # apart for every kind of colour vision
WINDOW = RATE  # samples per point of the ERLE curve


def erle_curve(mic, out, span, window):
    """The ERLE around points of a span, a twentieth of a second apart: their s, and dB."""
    middles = np.arange(span.start + window // 2, span.stop - window // 2, RATE // 20)
    values = [erle(mic, out, slice(m - window // 2, m + window // 2)) for m in middles]
    return middles / RATE, values


def mark_stretches(axes, stretches):
    """Lines between the stretches in every panel, their names on top."""
    for name, span in stretches.items():
        for ax in axes:
            dark = ax.collections  # the spectrograms
            ax.axvline(span.start / RATE, color="white" if dark else MARK, linewidth=1,
                       linestyle="--")
        axes[0].text((span.start + span.stop) / 2 / RATE, 1.06, name, ha="center", weight="bold",
                     transform=axes[0].get_xaxis_transform())


def draw_wave(ax, samples, colour, name, limit, x=0.005):
    ax.plot(np.arange(len(samples)) / RATE, samples, color=colour, linewidth=0.3, rasterized=True)
    ax.set(ylim=(-limit, limit), ylabel="sample")
    ax.set_title(name, loc="left", fontsize=9, color=colour, y=0.8, x=x)


def draw_spectrogram(ax, samples, name, x=0.005):
    power, freqs, times = matplotlib.mlab.specgram(samples / 32768, NFFT=FRAME, Fs=RATE,
                                                   noverlap=FRAME // 2)
    image = ax.pcolormesh(times, freqs / 1000, 10 * np.log10(power + 1e-20), cmap="cividis",
                          vmin=-130, vmax=-50, rasterized=True)
    ax.set(ylabel="kHz")
    ax.set_title(name, loc="left", fontsize=9, color="white", y=0.8, x=x)
    return image


def draw_erle(ax, mic, out):
    muted = np.flatnonzero(frame_fates(mic, out)[1])
    mute = FRAME * np.array([muted[0], muted[-1] + 1] if len(muted) else [PLAY, PLAY])
    ax.plot(*erle_curve(mic, out, slice(mute[1], FAR.stop), WINDOW), color=AFTER)
    ax.set(ylim=(0, 70), ylabel="ERLE, dB", xlabel="time, s")
    ax.grid(alpha=0.3)
    ax.text((FAR.stop + TOTAL) / 2 / RATE, 35, "defined only while the near end is silent",
            ha="center", va="center", color=MARK, backgroundcolor="white")
    if len(muted):
        ax.axvspan(*(mute / RATE), color=MARK, alpha=0.15, linewidth=0)
        ax.text(mute[0] / RATE + 0.05, 3, "start-up\nmute", fontsize=7, color=MARK)


def draw(mic, out, path):
    figure, axes = plt.subplots(5, 1, sharex=True, figsize=(12, 11), layout="constrained",
                                height_ratios=(1, 1, 1.3, 1.3, 1.2))
    limit = 1.05 * np.abs(mic.astype(int)).max()
    draw_wave(axes[0], mic, BEFORE, "microphone", limit)
    draw_wave(axes[1], out, AFTER, "output", limit)
    draw_spectrogram(axes[2], mic, "microphone")
    image = draw_spectrogram(axes[3], out, "output")
    figure.colorbar(image, ax=axes[2:4], label="dB full scale per Hz", pad=0.01)
    mark_stretches(axes, STRETCHES)
    draw_erle(axes[4], mic, out)
    axes[0].set_xlim(0, TOTAL / RATE)
    figure.align_ylabels()
    figure.savefig(path, dpi=110)


if __name__ == "__main__":
    draw(load(Path(sys.argv[1]) / "mic.wav"), load(sys.argv[2]), sys.argv[3])
