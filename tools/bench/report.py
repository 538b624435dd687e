"""Runs the benchmarks and prints their tables; with --save writes them into docs/performance.md.

usage: report.py HOST_BUILD ARM_BUILD ARM_SYSROOT [--save]
"""

import argparse
import collections
import datetime
import os
import pathlib
import re
import subprocess
import sys
import time

import aims
from device import Count
from steps import Symbols, step_of

PAGE = pathlib.Path(__file__).resolve().parents[2] / "docs/performance.md"
PROFILE_SECONDS = 4
FRAME, RATE = 512, 16000


class Peers:
    """The lines of the program that times everything side by side."""

    def __init__(self, program):
        run = subprocess.run([program], stdout=subprocess.PIPE, text=True)
        self.lines = collections.defaultdict(dict)
        for line in run.stdout.splitlines():
            kind, name, *values = line.split("\t")
            self.lines[kind][name] = [float(v) for v in values]
        if run.returncode:
            sys.exit(f"bench: {'; '.join(self.lines['wrong']) or program + ' failed'}")
        self.vectors = next(iter(self.lines["vectors"]), "")


def table(head, rows, left=1):
    """A Markdown table that reads as text; the first `left` columns are words."""
    rows = [[str(cell) for cell in row] for row in rows]
    widths = [max(len(row[i]) for row in [head, *rows]) for i in range(len(head))]
    lines = [head, ["-" * w if i < left else "-" * (w - 1) + ":" for i, w in enumerate(widths)]]
    return "\n".join(
        "| " + " | ".join(c.ljust(w) if i < left else c.rjust(w)
                          for i, (c, w) in enumerate(zip(row, widths))) + " |"
        for row in lines + rows)


def digits(x):
    """Three digits that count, thousands with a comma."""
    return f"{x:,.0f}" if x >= 99.95 else f"{x:.1f}" if x >= 9.995 else f"{x:.2f}"


def told_time(ns):
    return f"{digits(ns)} ns" if ns < 10000 else f"{digits(ns / 1000)} µs"


def verdict(value, aim, beyond, spread=0.0, more_is_better=False):
    """What became of an aim, in a word."""
    noisy = " (noisy)" if spread > aims.NOISY else ""
    if more_is_better:
        value, aim, beyond = 1 / value, 1 / aim, beyond and 1 / beyond
    if value > aim:
        return f"missed by {100 * (value / aim - 1):.0f} %{noisy}"
    return ("beyond" if beyond and value <= beyond else "met") + noisy


def host_table(peers):
    rows = []

    def add(work, name, peer, aim, beyond, own=False, gain=False):
        if name not in peers.lines["against"]:
            rows.append([work, peer, "", "", "not installed", "", aim, beyond, ""])
            return
        other, first, ratio, spread = peers.lines["against"][name]
        ours, theirs = (other, first) if own else (first, other)
        value = 1 / ratio if own or gain else ratio
        rows.append([work, peer, told_time(ours), told_time(theirs),
                     f"{value:.2f}" if value >= 0.2 else f"{value:.3f}", f"{100 * spread:.0f} %",
                     f"{aim} times faster" if gain else aim, beyond,
                     verdict(value, aim, beyond, spread, gain)])

    for row in aims.RATIOS:
        add(*row)
    for row in aims.OWN_RATIOS:
        add(*row, own=True)
    kb = peers.lines["bytes"]["instance"][0] / 1000
    rows.append(["memory of an instance", "", f"{kb:.0f} KB", "", "", "",
                 f"{aims.INSTANCE_KB[0]} KB", f"{aims.INSTANCE_KB[1]} KB",
                 verdict(kb, *aims.INSTANCE_KB)])
    for row in aims.GAINS:
        add(*row, gain=True)
    return table(["Work (x86-64, one thread)", "Against", "Ours", "Theirs", "Ratio", "Spread",
                  "Aim", "Beyond", ""], rows, left=2)


def device_table(counts):
    active = counts["processed"]
    values = (active.total, active.slow, counts["bypassed"].total, counts["r2c"].total)
    rows = [[what, f"{value:,.0f}", f"{aim:,}", f"{beyond:,}" if beyond else "",
             verdict(value, aim, beyond)]
            for value, (what, (aim, beyond)) in zip(values, aims.DEVICE.items())]
    return table(["Work (ARMv7 NEON)", "Instructions", "Aim", "Beyond", ""], rows)


def tracking_table(peers, counts):
    usual = counts["processed"].total
    first = peers.lines["bytes"]["instance"][0]
    rows = [["none", told_time(peers.lines["against"]["tracking: K"][1]), "1", "",
             f"{usual:,.0f}", "1", "", "", f"{first / 1000:.0f} KB"]]
    for switches, (name, aim, beyond) in aims.TRACKING.items():
        ns, _, inverse, spread = peers.lines["against"][f"tracking: {switches}"]
        kb = (peers.lines["bytes"][f"tracking: {switches}"][0] - first) / 1000
        count = counts[switches].total
        figures = [(1 / inverse, spread), (count / usual, 0)]
        time, device = (f"{ratio:.2f}" + (f", {verdict(ratio, aim, beyond, noise)}" if aim else "")
                        for ratio, noise in figures)
        rows.append([name, told_time(ns), time, f"{100 * spread:.0f} %", f"{count:,.0f}", device,
                     aim or "", beyond or "", f"+ {kb:.0f} KB"])
    return table(["Switches on, frame of 512", "x86-64", "Against none", "Spread",
                  "ARMv7 instructions", "Against none", "Aim", "Beyond", "Memory"], rows)


def host_steps(program):
    """Share of a frame's time by step."""
    run = subprocess.run([program, str(PROFILE_SECONDS)], stdout=subprocess.PIPE, text=True,
                         check=True)
    chains = [[int(word, 16) for word in line.split()] for line in run.stdout.splitlines()]
    symbols = Symbols(program, "addr2line")
    symbols.learn(address for chain in chains for address in chain)
    steps = collections.Counter(step_of([name for address in chain for name in symbols.at(address)])
                                for chain in chains)
    return {step: count / len(chains) for step, count in steps.items()}, len(chains)


def steps_table(shares, frame_ns, active):
    names = sorted(shares.keys() | active.steps.keys(),
                   key=lambda s: -max(shares.get(s, 0), active.steps[s] / active.total))
    rows, rest = [], [0.0, 0.0, 0.0]
    for name in names:
        values = (shares.get(name, 0.0), active.steps[name], active.slow_steps[name])
        if max(values[0], values[1] / active.total) < 0.004:
            rest = [a + b for a, b in zip(rest, values)]
            continue
        rows.append([f"`{name}`", *values])
    rows.append(["all others", *rest])
    rows = [[name, f"{100 * share:.1f} %", f"{share * frame_ns / 1000:.2f}", f"{count:,.0f}",
             f"{100 * count / active.total:.1f} %", f"{slow:,.0f}"]
            for name, share, count, slow in rows]
    return table(["Step", "x86-64", "µs", "ARMv7 instructions", "of all", "divisions, roots"], rows)


def settings_table(peers):
    rows = []
    for name, (ns, spread) in peers.lines["cost"].items():
        what, value = name.split()
        frame = int(value) if what == "frame" else FRAME
        rate = int(value) if what == "rate" else RATE
        told = {"frame": f"frame of {value} samples", "taps": f"{value} tap{'s' * (value != '1')}",
                "rate": f"{int(value) // 1000} kHz", "instances": f"{int(value):,} in turn",
                "bypassed": "bypassed: silent reference"}[what]
        rows.append([told, digits(ns / 1000), f"{100 * spread:.0f} %",
                     digits(ns * 1e-6 * rate / frame), f"{frame / rate * 1e9 / ns:,.0f}"])
    return table(["Setting, the others as by default", "µs per frame", "Spread",
                  "ms per second of audio", "Streams per core"], rows)


def streams_table(peers, counts):
    rows = []
    frame_seconds = FRAME / RATE
    ns = peers.lines["cost"]["frame 512"][0]
    rows.append([f"x86-64, {peers.vectors}: measured", f"{ns / 1000:.1f} µs",
                 f"{frame_seconds * 1e9 / ns:,.0f}"])
    active = counts["processed"]
    cycles = aims.CYCLES * active.total + (aims.SLOW_CYCLES - aims.CYCLES) * active.slow
    rows.append([f"ARMv7 NEON, for each GHz: {aims.CYCLES} cycle an instruction,"
                 f" {aims.SLOW_CYCLES} a division or root", f"{cycles:,.0f} cycles",
                 f"{frame_seconds * aims.CLOCK / cycles:,.0f}"])
    return table(["Core", "A processed frame of 512", "Streams at 16 kHz"], rows)


def machine(peers):
    info = pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8")
    model = re.search(r"model name\s*: (.*)", info)
    compiler = subprocess.run(["c++", "--version"], stdout=subprocess.PIPE, text=True,
                              check=True).stdout.splitlines()[0]
    return (f"{datetime.date.today()}; {model[1] if model else 'unknown processor'},"
            f" {os.cpu_count()} cores, {peers.vectors}; {compiler};"
            f" load average {os.getloadavg()[0]:.1f}.")


def noise(peers):
    spreads = {name: values[-1] for kind in ("against", "cost")
               for name, values in peers.lines[kind].items()}
    noisy = [name for name, spread in spreads.items() if spread > aims.NOISY]
    worst = max(spreads.values())
    said = (f"Spread: the distance between the rounds' quartiles, {100 * worst:.0f} % at most."
            f" Limit: {100 * aims.NOISY:.0f} %.")
    if noisy:
        said += (f"\nTOO NOISY a machine to trust {len(noisy)} of {len(spreads)} figures: "
                 + "; ".join(noisy) + ".")
    return said


def reductions(peers):
    told = (f"{whose} {db:.1f} dB" for whose, (db,) in peers.lines["reduction"].items())
    return "Checked before it was timed; the echo comes down by: " + ", ".join(told) + "."


def save(blocks):
    page = PAGE.read_text(encoding="utf-8")
    for name, text in blocks.items():
        page, found = re.subn(rf"(<!-- bench: {name} -->\n).*?(<!-- /bench -->)",
                              lambda m, text=text: f"{m[1]}\n{text}\n\n{m[2]}", page, flags=re.S)
        if found != 1:
            sys.exit(f"bench: {PAGE.name} has {found} places for {name}")
    PAGE.write_text(page, encoding="utf-8")


def main():
    options = argparse.ArgumentParser(description=__doc__,
                                      formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("host", type=pathlib.Path)
    options.add_argument("arm", type=pathlib.Path)
    options.add_argument("sysroot", type=pathlib.Path)
    options.add_argument("--save", action="store_true")
    arguments = options.parse_args()
    start = time.monotonic()

    print("== side by side with the peers, in one process, in turn", flush=True)
    peers = Peers(str(arguments.host / "benchmarks/peers/peers"))
    print("== counting an ARM processor's instructions", flush=True)
    counts = {work: Count(arguments.arm / "frame_trace", arguments.sysroot, work, length, 3)
              for work, length in (("processed", FRAME), ("bypassed", FRAME), ("r2c", 1024))}
    counts |= {switches: Count(arguments.arm / "frame_trace", arguments.sysroot, "processed", FRAME,
                               3, switches) for switches in aims.TRACKING}
    print("== where a frame's time goes", flush=True)
    shares, interruptions = host_steps(arguments.host / "benchmarks/peers/frame_profile")

    blocks = {
        "machine": machine(peers),
        "peers": "\n\n".join((host_table(peers), reductions(peers), noise(peers))),
        "device": device_table(counts),
        "steps": steps_table(shares, peers.lines["cost"]["frame 512"][0], counts["processed"])
                 + f"\n\nx86-64: {interruptions:,} interruptions by a timer. ARMv7: instructions"
                   " that qemu-arm executed.",
        "tracking": tracking_table(peers, counts),
        "settings": settings_table(peers),
        "streams": streams_table(peers, counts),
    }
    print("\n" + "\n\n".join(blocks.values()))
    print(f"\nMeasured in {time.monotonic() - start:.0f} s.")
    if arguments.save:
        save(blocks)
        print(f"Saved into {PAGE.relative_to(PAGE.parents[1])}.")


main()
