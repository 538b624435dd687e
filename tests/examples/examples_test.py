"""The examples, run as a user runs them, on recordings made here."""
import array
import os
import pathlib
import random
import signal
import struct
import subprocess
import tempfile
import unittest
import wave

EXAMPLES = pathlib.Path(__file__).parents[2] / "examples"
LUA = ["env", "LD_PRELOAD=" + os.environ["QEL_PRELOAD"], os.environ["LUA"]]
STREAM = [*LUA, EXAMPLES / "stream.lua"]
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


def echo_of(ref):
    """A loudspeaker some 5 ms away, with one reflection."""
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
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.write("aec.conf", CONFIG)

    def write(self, name, content):
        (self.folder / name).write_bytes(content)

    def run_program(self, *command, stdin=b"", status=0):
        done = subprocess.run([str(word) for word in command], input=stdin, capture_output=True,
                              cwd=self.folder, check=False)
        self.assertEqual(done.returncode, status, (command, done.stderr))
        self.assertNotIn(b"traceback", done.stderr)
        return done

    def lua(self, script, *arguments, **options):
        return self.run_program(*LUA, EXAMPLES / script, "--config", "aec.conf", *arguments,
                                **options)

    def cancel(self, mic, ref, *options):
        """Samples that cancel.lua makes of two lists of samples."""
        self.write("mic.wav", wav_bytes(mic))
        self.write("ref.wav", wav_bytes(ref))
        self.lua("cancel.lua", *options, "mic.wav", "ref.wav", "out.wav")
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
            self.lua("cancel.lua", "mic.wav", "mic.wav", "out.wav")

    def test_cancel_says_what_is_wrong_and_leaves_out_alone(self):
        good = wav_bytes(noise(3, 2000))
        self.write("good.wav", good)
        self.write("out.wav", b"kept")
        self.write("broken.conf", b"aec = { a = 1 ; }")
        for content, message in (
                (wav_bytes([0, 0], channels=2), "2 channels"), (wav_bytes([0], bits=8), "8 bits"),
                (wav_bytes([0], tag=3), "not PCM"), (wav_bytes([0], rate=44100), "44100 Hz"),
                (wav_bytes([]), "no samples"), (good[:30], "header is cut short"),
                (good[:40], "header is cut short"), (good[:-2], "3998 of 4000 bytes"),
                (b"", "not a WAV file"), (b"RIFX" + good[4:], "not a WAV file")):
            self.write("bad.wav", content)
            done = self.lua("cancel.lua", "bad.wav", "good.wav", "out.wav", status=1)
            self.assertIn("bad.wav: ", done.stderr.decode())
            self.assertIn(message, done.stderr.decode())
        files = "good.wav good.wav out.wav"
        for arguments, status, message in (
                ("missing.wav good.wav out.wav", 1, "missing.wav: No such file"),
                (". good.wav out.wav", 1, "Is a directory"),
                ("good.wav good.wav missing/out.wav", 1, "missing/out.wav.part"),
                ("--config missing.conf " + files, 1, "missing.conf: No such file"),
                ("--config broken.conf " + files, 1, "not a usable configuration"),
                ("--frame-len 300 " + files, 1, "frame of 300 samples"),
                ("--play-gain 2.5 " + files, 2, "whole number"),
                ("--frame-len 0 " + files, 2, "number of samples"),
                ("--unknown 1 " + files, 2, "no option --unknown"),
                ("--config", 2, "needs a value"), ("good.wav", 2, "usage:")):
            done = self.lua("cancel.lua", *arguments.split(), status=status)
            self.assertIn(message, done.stderr.decode())
        self.assertEqual((self.folder / "out.wav").read_bytes(), b"kept")
        self.assertFalse(list(self.folder.rglob("*.part")))

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

    def test_c_program_agrees_with_stream(self):
        program = os.environ["QEL_EMULATOR"].split() + [os.environ["QEL_BUILD"] + "/examples/cancel"]
        ref = noise(5, 40 * FRAME)
        mic = echo_of(ref)
        self.write("mic.raw", pcm(mic))
        self.write("ref.raw", pcm(ref))
        self.run_program(*program, "aec.conf", "mic.raw", "ref.raw", "out.raw")
        self.assertEqual((self.folder / "out.raw").read_bytes(),
                         self.lua("stream.lua", stdin=interleaved(mic, ref)).stdout)
        self.run_program(*program, "mic.raw", status=2)
        self.run_program(*program, "missing.conf", "mic.raw", "ref.raw", "x", status=1)
        self.run_program(*program, "aec.conf", "mic.raw", "missing.raw", "x", status=1)
        self.assertFalse((self.folder / "x").exists())


if __name__ == "__main__":
    unittest.main()
