"""qel-aec: its command line, its result files, and the recordings that it simulates."""
import os
import unittest

from program import Program, read, write

RATE = 16000
RESULTS = ["mic.wav", "near.wav", "ref.wav"]


class CommandLine(Program):
    def test_help_version_and_wrong_usage(self):
        for words, status, said in (
            (["--help"], 0, "simulate"),
            (["--version"], 0, "spu/aec v1.0.8"),
            (["simulate", "--help"], 0, "--drift"),
            ([], 2, ""),
            (["no-such-command"], 2, ""),
            (["simulate"], 2, ""),
            (["simulate", "-o", "x", "--rate", "fast"], 2, ""),
        ):
            self.assertIn(said, self.call(*words, status=status), words)


class Simulate(Program):
    def clicks(self, *words, at=(8000, 40000)):
        """Microphone and reference of a scene in which the loudspeaker plays clicks."""
        far = [0] * 48000
        for place in at:
            far[place] = 20000
        path = write(self.folder / "clicks.wav", far)
        folder = self.simulate("scene", "--far", path, "--no-near", "--noise", 100, *words)
        return read(folder / "mic.wav")[1], read(folder / "ref.wav")[1]

    def test_clicks_come_where_and_as_they_should(self):
        dry = ["--rt60", 0]
        for words, mic_at, ref_at, sign in (  # of the last click
            (dry, 40016, 40000, 1),
            ([*dry, "--delay", 25], 40400, 40000, 1),
            ([*dry, "--delay", -25], 40000, 40400, 1),
            ([*dry, "--delay", 0, "--drift", 100], 40004, 40000, 1),
            ([*dry, "--delay", 0, "--invert"], 40000, 40000, -1),
            ([*dry, "--delay", 25, "--swap"], 40000, 40400, 1),
            ([*dry, "--delay", 0, "--path-change", 1, "--move-delay", 10], 40160, 40000, 1),
            (["--delay", 5, "--rt60", 0.3], 40080, 40000, 1),
        ):
            mic, ref = self.clicks(*words)
            for signal, place in ((mic, mic_at), (ref, ref_at)):
                loudest = max(range(24000, 48000), key=lambda i: abs(signal[i]))
                self.assertEqual(loudest, place, words)
            self.assertGreater(sign * mic[mic_at], 0, words)

    def test_levels_and_lengths(self):
        def power(path):
            samples = read(path)[1]
            return sum(x * x for x in samples) / len(samples)

        plain = self.simulate("plain", "--seconds", 6, "--no-near")
        self.assertEqual([len(read(plain / name)[1]) for name in RESULTS], 3 * [6 * RATE])
        self.assertEqual(set(read(plain / "near.wav")[1]), {0})
        self.assertAlmostEqual(power(plain / "mic.wav") / power(plain / "ref.wav"), 1, delta=0.01)
        low = self.simulate("low", "--seconds", 6, "--no-near", "--echo", -20, "--rate", 8000)
        self.assertEqual(read(low / "mic.wav")[0], 8000)
        self.assertAlmostEqual(power(low / "mic.wav") / power(low / "ref.wav"), 0.01, delta=1e-3)
        noisy = self.simulate("noisy", "--seconds", 6, "--no-near", "--noise", 0)
        self.assertAlmostEqual(power(noisy / "mic.wav") / power(noisy / "ref.wav"), 2, delta=0.1)
        near = read(self.simulate("near", "--seconds", 6) / "near.wav")[1]
        self.assertEqual(set(near[:3 * RATE]), {0})
        self.assertGreater(max(near), 1000)
        clipped = self.simulate("clipped", "--seconds", 6, "--no-near", "--clip", 20, "--rt60", 0)
        mic = read(clipped / "mic.wav")[1]
        limit = 0.98 * max(mic)
        self.assertGreater(sum(abs(x) > limit for x in mic), 1000)

    def test_a_seed_gives_one_scene(self):
        def scene(name, seed):
            folder = self.simulate(name, "--seconds", 2, "--seed", seed)
            return [(folder / name).read_bytes() for name in RESULTS]

        first = scene("a", 1)
        self.assertEqual(scene("b", 1), first)
        self.assertFalse(any(x == y for x, y in zip(scene("c", 2), first)))


class ResultFiles(Program):
    def test_no_input_and_nothing_but_plain_files_is_replaced(self):
        folder = self.simulate("scene", "--seconds", 1)
        mic, before = folder / "mic.wav", (folder / "mic.wav").read_bytes()
        self.call("simulate", "-o", folder, "--far", mic, status=2)
        self.assertEqual((mic.read_bytes(), self.names(folder)), (before, RESULTS))
        for make in (os.mkfifo, os.mkdir, lambda path: os.symlink("/dev/null", path),
                     lambda path: os.symlink(mic, path)):
            (folder / "ref.wav").unlink()
            make(folder / "ref.wav")
            self.call("simulate", "-o", folder, "--seconds", 2, status=2)
            self.assertEqual((mic.read_bytes(), self.names(folder)), (before, RESULTS))
            if (folder / "ref.wav").is_dir() and not (folder / "ref.wav").is_symlink():
                (folder / "ref.wav").rmdir()
                (folder / "ref.wav").touch()

    def test_what_is_no_recording_is_refused(self):
        pipe = self.folder / "pipe"
        os.mkfifo(pipe)
        (self.folder / "text").write_text("no sound")
        stereo = write(self.folder / "stereo.wav", [0] * 8, channels=2)
        for path in (self.folder / "nowhere", self.folder, pipe, self.folder / "text", "/dev/zero",
                     stereo, write(self.folder / "empty.wav", [])):
            self.call("simulate", "-o", self.folder / "out", "--far", path, status=2)
            self.assertIn(str(path), self.error)


if __name__ == "__main__":
    unittest.main()
