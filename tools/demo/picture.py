"""Draws the demo's recording before and after the canceller.

usage: picture.py DIRECTORY OUT.wav PICTURE.png   arguments as of measure.py
"""

import sys
from pathlib import Path

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt
import numpy as np

from measure import SETTLE, erle, frame_fates, gain_and_sdr, level, load
from scene import BOTH, FAR, FRAME, NEAR, PLAY, RATE, STRETCHES, TOTAL

# Apart for every kind of colour vision.
PLAYED, BEFORE, AFTER, CLEAN, MARK = "#7A7A7A", "#0072B2", "#D55E00", "#008A65", "#444444"
WINDOW = RATE  # samples per point of the ERLE curve
QUIET = -100  # dB, the lower end of the level scale


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


def draw_levels(ax, lines):
    """Levels frame by frame: what is left of the echo stands far below what is heard."""
    middles = (np.arange(TOTAL // FRAME) + 0.5) * FRAME / RATE
    for name, samples, colour, style in lines:
        levels = [max(QUIET, level(frame)) for frame in samples.reshape(-1, FRAME)]
        ax.plot(middles, levels, style, color=colour, linewidth=0.9, label=name)
    ax.set(ylim=(QUIET, -10), ylabel="level, dB full scale")
    ax.grid(alpha=0.3)
    ax.legend(loc="lower right", ncols=len(lines), fontsize=8)


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


def figures(mic, near, out):
    """What measure.py says at length, in two lines."""
    later = slice(PLAY * FRAME + 3 * RATE, PLAY * FRAME + 10 * RATE)
    told = [f"Echo reduced by {erle(mic, out, later):.1f} dB (far end alone, 3 to 10 s)"]
    for name, span in (("both talking", BOTH), ("near end alone", NEAR)):
        span = slice(span.start + SETTLE, span.stop)
        gain, after = gain_and_sdr(out[span], near[span])
        before = gain_and_sdr(mic[span], near[span])[1]
        told.append(f"{name}: near end {round(gain, 1) + 0.0:+.1f} dB, SI-SDR {before:.1f} to"
                    f" {after:.1f} dB")
    return f"{told[0]}\n{'; '.join(told[1:])}"


def draw(ref, mic, near, out, path):
    figure, axes = plt.subplots(8, 1, sharex=True, figsize=(12, 16), layout="constrained",
                                height_ratios=(0.8, 0.8, 0.8, 0.8, 1.6, 1.3, 1.3, 1.2))
    figure.suptitle(figures(mic, near, out))
    limit = 1.05 * max(np.abs(x.astype(int)).max() for x in (ref, mic))
    for ax, samples, colour, name in (
        (axes[0], ref, PLAYED, "loudspeaker"),
        (axes[1], mic, BEFORE, "microphone: echo, near end and noise"),
        (axes[2], out, AFTER, "output"),
        (axes[3], near, CLEAN, "near end, clean: what the output should be"),
    ):
        draw_wave(ax, samples, colour, name, limit)
    draw_levels(axes[4], (("microphone", mic, BEFORE, "-"), ("output", out, AFTER, "-"),
                          ("near end, clean", near, CLEAN, ":")))
    draw_spectrogram(axes[5], mic, "microphone")
    image = draw_spectrogram(axes[6], out, "output")
    figure.colorbar(image, ax=axes[5:7], label="dB full scale per Hz", pad=0.01)
    mark_stretches(axes, STRETCHES)
    draw_erle(axes[7], mic, out)
    axes[0].set_xlim(0, TOTAL / RATE)
    figure.align_ylabels()
    figure.savefig(path, dpi=110)


if __name__ == "__main__":
    signals = (load(Path(sys.argv[1]) / f"{name}.wav") for name in ("ref", "mic", "near"))
    draw(*signals, load(sys.argv[2]), sys.argv[3])
