"""The steps that a frame consists of, by the functions that run them, inlined ones included."""

import re
import subprocess

# Functions that tell the story of a frame; what they call are its steps.
STORY = ("qel_aec_feed_data", "qel_aec_feed", "qel_aec_process", "qel_aec_nlp_process", "analyse",
         "synthesise")


class Symbols:
    """Names of the functions at an address of a program, the outermost first."""

    def __init__(self, program, addr2line):
        self.command = [addr2line, "-a", "-i", "-f", "-C", "-e", str(program)]
        self.names = {}

    def learn(self, addresses):
        new = sorted(set(addresses) - self.names.keys())
        said = subprocess.run(self.command, input="\n".join(map(hex, new)), text=True, check=True,
                              stdout=subprocess.PIPE).stdout.splitlines()
        place, name_next = None, False
        for line in said:
            if re.fullmatch(r"0x[0-9a-f]+", line):
                place, name_next = int(line, 16), True
                self.names[place] = []
            else:
                if name_next:
                    self.names[place].insert(0, plain(line))
                name_next = not name_next

    def at(self, address):
        return self.names[address]


def plain(name):
    """A function's own name, without namespaces, template arguments and parameters."""
    name = re.sub(r"\[.*?\]|\(anonymous namespace\)::", "", name)
    while "<" in name and (shorter := re.sub(r"<[^<>]*>", "", name)) != name:
        name = shorter
    return name.split("(")[0].split("::")[-1].split(" ")[-1]


def step_of(names):
    """The step that a chain of calls, the outermost first, is in."""
    story = None
    for name in names:
        if name in STORY:
            story = name
        elif story and name != "??":
            # The inverse transform ends its step, so it takes its caller's place in the chain.
            return "inverse_transform" if name == "run" or "c2r" in name else name
    return story + ", itself" if story else "other"
