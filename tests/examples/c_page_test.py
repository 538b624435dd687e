"""The snippets of docs/c.md: each compiles alone as strict C99, and the programs among them run."""
import array
import os
import pathlib
import random
import re
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).parents[2]
BUILD = os.environ["QEL_BUILD"]
SNIPPETS = re.findall(r"^```c\n(.*?)^```$", (ROOT / "docs/c.md").read_text(), re.M | re.S)
PROGRAMS = [snippet for snippet in SNIPPETS if "int main(" in snippet]
FLAGS = ["-std=c99", "-Wall", "-Wextra", "-Wpedantic", "-Werror", "-O1", "-pthread", "-I", ROOT]
# An unused library is left out: the snippet that loads it at run time is to find none.
LINK = ["-Wl,--as-needed", "-L", BUILD, "-l:echo.so"]
if os.environ["QEL_SANITIZE"]:
    FLAGS.append("-fsanitize=" + os.environ["QEL_SANITIZE"])
CONFIG = "aec = { use_vad = yes; mute = { mute_time = 0; } }"
FRAME = 512
MAIN = """
int main(int argc, char** argv) {
    qel_api_aec_t* canceller = qel_api_aec_new(argv[argc - 1], 0);
    qel_aec_stats stats;
    const int warm = warm_up(canceller) == 0 && qel_api_aec_get_stats(canceller, &stats) == 0;
    show_statistics(canceller);
    qel_api_aec_delete(canceller);
    return !warm || stats.bypassed + stats.muted + stats.processed != 0;
}
"""


def pcm(samples):
    return array.array("h", samples).tobytes()


class CPage(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        (self.folder / "aec.conf").write_text(CONFIG)
        source = random.Random(1)
        self.ref = [source.randrange(-8000, 8000) for _ in range(40 * FRAME)]
        self.mic = [0] * 120 + [sample // 2 for sample in self.ref[:-120]]

    def compile(self, snippet, name, *more):
        source = self.folder / "snippet.c"
        source.write_text(snippet)
        subprocess.run([os.environ["CC"], "--sysroot=" + os.environ["SYSROOT"], *FLAGS, source,
                        "-o", self.folder / name, *more], check=True)

    def run_program(self, program, *arguments):
        stereo = pcm(sample for pair in zip(self.mic, self.ref) for sample in pair)
        return subprocess.run([*os.environ["QEL_EMULATOR"].split(), program, *arguments],
                              input=stereo, stdout=subprocess.PIPE, cwd=self.folder, check=True,
                              env={**os.environ, "LD_LIBRARY_PATH": BUILD}).stdout

    def test_parts_compile_alone_and_run_together(self):
        parts = [snippet for snippet in SNIPPETS if snippet not in PROGRAMS]
        for part in parts:
            self.compile(part, "part.o", "-c")
        self.compile("".join(parts) + MAIN, "program", *LINK)
        self.run_program("./program", "aec.conf")

    def test_programs_run(self):
        self.assertEqual((len(SNIPPETS), len(PROGRAMS)), (9, 7))
        outputs = []
        for program in PROGRAMS:
            self.compile(program, "program", *LINK)
            outputs.append(self.run_program("./program", "aec.conf"))
        (self.folder / "mic.raw").write_bytes(pcm(self.mic))
        (self.folder / "ref.raw").write_bytes(pcm(self.ref))
        self.run_program(BUILD + "/examples/cancel", "aec.conf", "mic.raw", "ref.raw", "out.raw")
        self.assertEqual(outputs[0], (self.folder / "out.raw").read_bytes())


if __name__ == "__main__":
    unittest.main()
