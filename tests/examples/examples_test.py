"""The examples, run as a user runs them, on recordings made here."""
import array
import os
import pathlib
import random
import re
import signal
import stat
import struct
import subprocess
import tempfile
import unittest
import wave

EXAMPLES = pathlib.Path(__file__).parents[2] / "examples"
LUA = ["env", "LD_PRELOAD=" + os.environ["QEL_PRELOAD"], os.environ["LUA"]]
STREAM = [*LUA, EXAMPLES / "stream.lua"]
CANCEL = [*LUA, EXAMPLES / "cancel.lua", "--config", "aec.conf"]
C_CANCEL = [*os.environ["QEL_EMULATOR"].split(), os.environ["QEL_BUILD"] + "/examples/cancel"]
LUAJIT = [*LUA[:2], "luajit"]
FFI_CANCEL = [*LUAJIT, EXAMPLES / "ffi.lua", "--config", "aec.conf"]
on_this_machine = unittest.skipIf(os.environ["QEL_EMULATOR"], "LuaJIT is this machine's")
FRAME = 512
CONFIG = b"""aec = { use_vad = 1; frame_size = 512; nlp = { frame_size = 256; }
mute = { mute_time = 0; } # frame_size = 99;
}"""


def pcm(samples):
    return array.array("h", samples).tobytes()


def interleaved(mic, ref):
    return pcm(sample for pair in zip(mic, ref) for sample in pair)


def noise(seed, count):
    source = random.Random(seed)
    return [source.randrange(-8000, 8000) for _ in range(count)]


def echo_of(ref):  # a loudspeaker some 5 ms away, with one reflection
    padded = [0] * 200 + ref
    return [int(0.5 * padded[i + 120] - 0.2 * padded[i]) for i in range(len(ref))]


def wav_bytes(samples, tag=1, channels=1, rate=16000, bits=16, size=None, extra=b""):
    data = pcm(samples)
    fmt = struct.pack("<HHIIHH", tag, channels, rate, 2 * rate, 2, bits)
    if tag == 0xFFFE:  # extensible: PCM in its long form
        fmt += struct.pack("<HHIH", 22, 16, 4, 1) + bytes(14)
    body = b"WAVEfmt " + struct.pack("<I", len(fmt)) + fmt + extra
    body += b"data" + struct.pack("<I", len(data) if size is None else size) + data
    return b"RIFF" + struct.pack("<I", len(body)) + body


class Examples(unittest.TestCase):
    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory()))
        self.write("aec.conf", CONFIG)

    def write(self, name, content):
        (self.folder / name).write_bytes(content)

    def run_program(self, *command, stdin=b"", status=0):
        done = subprocess.run([str(word) for word in command], input=stdin, capture_output=True,
                              cwd=self.folder, check=False)
        self.assertEqual(done.returncode, status, (command, done.stderr))
        self.assertNotIn(b"traceback", done.stderr)
        return done

    def fails(self, status, program, cases):
        for arguments, message in cases.items():
            done = self.run_program(*program, *arguments.split(), status=status)
            self.assertRegex(done.stderr.decode(), message)

    def state(self):
        return {(p, p.lstat().st_ino, p.lstat().st_mtime_ns) for p in self.folder.iterdir()}

    @staticmethod
    def counts(report):  # frames bypassed, muted, processed
        return [int(number) for number in re.findall(rb"(\d+) [bmp]\w+", report)]

    def cancel(self, mic, ref, *options):  # the samples that cancel.lua makes of these
        self.write("mic.wav", wav_bytes(mic))
        self.write("ref.wav", wav_bytes(ref))
        done = self.run_program(*CANCEL, *options, "mic.wav", "ref.wav", "out.wav")
        self.report = done.stderr.splitlines()[-1]
        with wave.open(str(self.folder / "out.wav")) as out:
            self.assertEqual(out.getparams()[:3], (1, 2, 16000))
            return list(array.array("h", out.readframes(out.getnframes())))

    def test_cancel_removes_the_echo(self):
        ref = noise(1, 32000)
        mic = echo_of(ref)
        out = self.cancel(mic, ref)
        self.assertLess(sum(s * s for s in out[16000:]), sum(s * s for s in mic[16000:]) / 100)
        self.assertEqual(self.cancel(mic, [s // 2 for s in ref], "--play-gain", 2),
                         self.cancel(mic, [s // 2 * 2 for s in ref]))

    def test_cancel_keeps_step_and_length(self):  # a silent reference: OUT is MIC
        mic = noise(2, 3 * FRAME + 77)
        self.write('a"b\\c.conf', CONFIG)
        self.write("160.conf", b'aec = { use_vad = 1; frame_size = "160"; }')
        for ref, options in (([0] * len(mic), ()), ([0] * 10, ("--frame-len", FRAME)),
                             ([0] * 5000, ()), ([0], ("--config", 'a"b\\c.conf')),
                             ([0], ("--config", "160.conf"))):
            expected = mic + [0] * (len(ref) - len(mic))
            self.assertEqual(self.cancel(mic, ref, *options), expected, options)

    def test_cancel_reads_wav_files_of_other_programs(self):
        for options in {"extra": b"LIST\3\0\0\0abc\0"}, {"tag": 0xFFFE}, {"size": 0xFFFFFFFF}:
            self.write("mic.wav", wav_bytes([1, -2, 3], **options))
            self.run_program(*CANCEL, "mic.wav", "mic.wav", "out.wav")

    def test_cancel_says_what_is_wrong_and_leaves_out_alone(self):
        good = wav_bytes(noise(3, 2000))
        self.write("good", good)
        self.write("out", b"kept")
        self.write("broken", b"aec = { a = 1 ; }")
        mend = r": sox 'it'\\''s.wav' -r 16000 -c 1 -b 16 -e signed-integer 'it.*mended.wav'\n$"
        for content, message in (
                (wav_bytes([0, 0], channels=2), "2 channels, not one\n.*" + mend),
                (wav_bytes([0], bits=8), "8 bits.*\n.*" + mend), (b"", "not a WAV file\n$"),
                (wav_bytes([0], tag=3), "not PCM.*\n.*" + mend), (wav_bytes([]), "no samples\n$"),
                (wav_bytes([0], rate=44100), "44100 Hz, the configuration's 16000 Hz\n.*" + mend),
                (b"RIFX" + good[4:], "not a WAV file\n.*" + mend), (good[:30], "cut short\n$"),
                (good[:40], "cut short\n$"), (good[:-2], "3998 of 4000 bytes")):
            self.write("it's.wav", content)
            before = self.state()
            self.fails(1, CANCEL, {"it's.wav good out": "it's.wav: it.*" + message})
        self.fails(1, CANCEL, {
            "none good out": "none: No such file", ". good out": "Is a directory",
            "good good none/out": "none/out.part", "--config none good good out": "none: No such",
            "--config broken good good out": "usable", "--frame-len 300 good good out": "of 300 "})
        self.fails(2, CANCEL, {
            "--play-gain 2.5 good good out": "whole number", "--unknown 1 good good out": "--unkn",
            "--frame-len 0 good good out": "of samples", "--config": "a value", "good": "usage:"})
        self.assertEqual(self.state(), before)

    def test_out_is_replaced_only_if_it_is_a_file_of_its_own(self):
        for name in "mic", "ref", "old":
            self.write(name, wav_bytes(noise(7, 2000)))
        self.write("odd", b"odd")
        self.write("hdr.conf", CONFIG.replace(b"{", b"{ use_hdr = 1;", 1))
        os.mkdir(self.folder / "folder")
        for kind in [stat.S_IFIFO, stat.S_IFSOCK] + [stat.S_IFCHR] * (os.geteuid() == 0):
            os.mknod(self.folder / f"{kind:o}", kind | 0o600, os.makedev(1, 3))
        for link, target in ("linked", "ref"), ("dangling", "x"), ("out", "old"):
            os.symlink(target, self.folder / link)
        os.link(self.folder / "mic", self.folder / "hard.part")
        cases = {"none ref " + path.name: path.name + ": it is "
                 for path in self.folder.iterdir() if not path.is_file()}
        cases |= {"mic ref " + out: "the input" for out in ("./mic", "linked", "hard")}
        before = self.state()
        self.fails(1, CANCEL, cases)
        self.fails(1, [*C_CANCEL, "aec.conf"], cases)
        self.fails(1, C_CANCEL, {
            "aec.conf odd ref out": "odd: it ends", "aec.conf none ref out": "none: No such",
            "hdr.conf mic ref out": "use_hdr", "none mic ref out": "none: "})
        self.fails(2, C_CANCEL, {"mic": "usage:"})
        self.assertEqual(self.state(), before)
        for program in CANCEL, [*C_CANCEL, "aec.conf"]:
            self.write("old", b"old")
            self.run_program(*program, "mic", "ref", "out")
            self.assertGreater((self.folder / "old").stat().st_size, 3)

    def test_stream_writes_nothing_but_pcm(self):
        mic = noise(4, 2 * FRAME + 100)
        done = self.run_program(*STREAM, stdin=interleaved(mic, [0] * len(mic)))
        # One frame behind; the third frame is padded, and its own samples stay inside.
        self.assertEqual(done.stdout, pcm([0] * FRAME + mic[:2 * FRAME]))
        for words, status in ((), 0), (("--config", "missing"), 1):
            self.assertEqual(self.run_program(*STREAM, *words, status=status).stdout, b"")

    def test_stream_ends_with_its_child(self):
        banner = self.run_program(*STREAM).stderr
        for end in signal.SIGINT, signal.SIGTERM, signal.SIGPIPE:
            source, feed = os.pipe()  # stays open: nothing ends for want of input
            stream = subprocess.Popen(STREAM, stdin=source, stdout=subprocess.PIPE,
                                      stderr=subprocess.PIPE)
            os.write(feed, bytes(8 * FRAME))
            self.assertEqual(len(stream.stdout.read(2 * FRAME)), 2 * FRAME)
            if end == signal.SIGPIPE:
                stream.stdout.close()
                os.write(feed, bytes(4 * FRAME))
            else:
                stream.send_signal(end)
            told = stream.communicate(timeout=30)[1]  # until nobody has standard error open
            self.assertEqual((stream.returncode, told), (-end, banner))

    def test_c_program_agrees(self):
        # Two frames of silence, then a loudspeaker that ends: 14 frames later it counts as silent.
        ref = [0] * (2 * FRAME) + noise(5, 40 * FRAME) + [0] * (20 * FRAME)
        mic = [a + b // 100 for a, b in zip(echo_of(ref), noise(6, len(ref)))]
        self.write("mic.raw", pcm(mic))
        self.write("ref.raw", pcm(ref))
        for mute, counts in ((b"1", b"8 bypassed, 31 muted, 23 processed"),
                             (b"0", b"8 bypassed, 0 muted, 54 processed")):
            self.write("aec.conf", CONFIG.replace(b"time = 0", b"time = " + mute))
            done = self.run_program(*C_CANCEL, "aec.conf", "mic.raw", "ref.raw", "out.raw")
            self.cancel(mic, ref)
            self.assertEqual(done.stderr.splitlines()[-1], self.report)
            self.assertTrue(self.report.endswith(counts), self.report)
        done = self.run_program(*STREAM, "--config", "aec.conf", stdin=interleaved(mic, ref))
        self.assertEqual((self.folder / "out.raw").read_bytes(), done.stdout)

    @on_this_machine
    def test_ffi_agrees_with_the_module(self):
        ref = [0] * (2 * FRAME) + noise(8, 90 * FRAME + 100) + [0] * (20 * FRAME)
        mic = [a + b // 100 for a, b in zip(echo_of(ref), noise(9, len(ref)))] + [50] * 300
        for config in CONFIG, CONFIG.replace(b"mute_time = 0", b"mute_time = 1"), \
                CONFIG.replace(b"512", b"160"):
            self.write("aec.conf", config)
            expected = self.cancel(mic, ref)
            done = self.run_program(*FFI_CANCEL, "mic.wav", "ref.wav", "ffi.wav")
            self.assertEqual((self.folder / "ffi.wav").read_bytes(), wav_bytes(expected))
            bypassed, *others = self.counts(self.report)  # without the frame that was fed last
            self.assertEqual(self.counts(done.stderr), [bypassed + 1, *others])
            self.assertEqual(done.stdout, b"")
            self.run_program(*LUAJIT, *CANCEL[len(LUA):], "mic.wav", "ref.wav", "ffi.wav")
            self.assertEqual((self.folder / "ffi.wav").read_bytes(), wav_bytes(expected))
        self.write("broken", b"aec = { taps = 0; }")
        self.write("hdr", b"aec = { use_hdr = yes; }")
        self.write("rate", b"aec = { freqs = 8000; nlp = { freqs = 8000; } }")
        before = self.state()
        self.fails(1, FFI_CANCEL, {
            "none ref.wav out": "none: No such", "--config hdr mic.wav ref.wav out": "use_hdr",
            "--config rate mic.wav ref.wav out": "16000 Hz, the configuration's 8000 Hz",
            "--config broken mic.wav ref.wav out": "broken: taps = 0 cannot work"})
        self.assertEqual(self.state(), before)
        self.fails(2, [*LUA, EXAMPLES / "ffi.lua"], {"mic.wav ref.wav out": "this is for LuaJIT"})

    def test_ffi_declares_what_the_headers_do(self):
        cdef = re.search(r"cdef \[\[(.*?)\]\]", (EXAMPLES / "ffi.lua").read_text(), re.S)[1]
        records = re.findall(r"typedef struct (\w+) (\{.*?\}) \w+;", cdef, re.S)
        check = '#include "qel/qel.h"\n#include <stddef.h>\n'
        # A prototype that differs from the header's does not compile.
        check += re.sub(r"typedef struct \w+ (\{.*?\} )?\w+;", "", cdef, flags=re.S)
        for name, body in records:
            check += f"struct ffi_{name} {body};\n"
            equal = [f"sizeof(struct ffi_{name}) == sizeof({name})"]
            for field in re.findall(r"(\w+)(?:\[\d+\])?(?=[,;])", re.sub(r".*:.*", "", body)):
                equal.append(f"offsetof(struct ffi_{name}, {field}) == offsetof({name}, {field})")
            check += "".join(f'_Static_assert({one}, "{name}");\n' for one in equal)
        self.assertEqual(len(records), 4)
        self.run_program(os.environ["CC"], "--sysroot=" + os.environ["SYSROOT"], "-fsyntax-only",
                         "-Werror", "-I", EXAMPLES.parent, "-xc", "-", stdin=check.encode())


if __name__ == "__main__":
    unittest.main()
