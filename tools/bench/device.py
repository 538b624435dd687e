"""What an emulated ARM processor executed between two marks of a program: instructions, divisions
and square roots among them, and the step of the frame that each belongs to.

qemu-arm logs every block of instructions once as text, and its address each time that it runs.
Calls are followed, so that an instruction deep in a shared function counts for the step that called
it. Counts say nothing of how long an instruction takes.
"""

import collections
import re
import subprocess

from steps import Symbols, step_of

INSTRUCTION = re.compile(rb"0x([0-9a-f]+):\s+((?:[0-9a-f]+ )+)\s*(\S+)\s*(.*)")
TRACE = re.compile(rb"Trace \d+: 0x[0-9a-f]+ \[[0-9a-f]+/([0-9a-f]+)/\S*\] ?(\S*)")


class Block:
    """Instructions that run one after another; a call, if it is one, ends them."""

    def __init__(self):
        self.addresses, self.slow, self.after_call = [], [], None

    def add(self, address, length, name):
        self.addresses.append(address)
        self.slow.append(name.startswith((b"vdiv.", b"vsqrt.", b"sdiv", b"udiv")))
        self.after_call = address + length if name in (b"bl", b"blx") else None


def run(command):
    """The blocks between the marks, in order, each with the addresses of the calls around it."""
    blocks, fresh = {}, None
    stack, counting = [], False
    with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as process:
        for line in process.stderr:
            if line.startswith(b"0x"):
                found = INSTRUCTION.match(line)
                if found:
                    address = int(found[1], 16)
                    if fresh is None:
                        fresh = Block()
                        blocks[address] = fresh
                    fresh.add(address, len(found[2].replace(b" ", b"")) // 2, found[3])
                continue
            if line.startswith(b"IN:"):
                fresh = None
                continue
            found = TRACE.match(line)
            if not found:
                continue
            if found[2] in (b"work_starts", b"work_ends"):
                counting = found[2] == b"work_starts"
                stack = []
                continue
            if not counting:
                continue
            address = int(found[1], 16)
            block = blocks[address]
            for depth in range(len(stack) - 1, -1, -1):
                if stack[depth] == address:  # a return: all that was called since is over
                    del stack[depth:]
                    break
            yield block, tuple(stack)
            if block.after_call:
                stack.append(block.after_call)
        said = process.stdout.read().decode().strip()
    if process.returncode or said:
        raise SystemExit(f"{' '.join(map(str, command))}: {said or process.returncode}")


class Count:
    """Instructions of one call, or frame: in all, divisions and roots, and both by step."""

    def __init__(self, program, sysroot, work, length, times, *switches):
        command = ["qemu-arm", "-L", sysroot, "-d", "in_asm,exec,nochain", program, work,
                   str(length), str(times), *switches]
        runs = collections.Counter(run(command))
        symbols = Symbols(program, "arm-linux-gnueabihf-addr2line")
        symbols.learn(address for block, stack in runs
                      for address in (*block.addresses, *(after - 1 for after in stack)))
        self.steps = collections.Counter()
        self.slow_steps = collections.Counter()
        for (block, stack), repeats in runs.items():
            around = [name for after in stack for name in symbols.at(after - 1)]
            for address, slow in zip(block.addresses, block.slow):
                step = step_of(around + symbols.at(address))
                self.steps[step] += repeats / times
                self.slow_steps[step] += slow * repeats / times
        self.total = sum(self.steps.values())
        self.slow = sum(self.slow_steps.values())
