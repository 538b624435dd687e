"""qel-aec probe: each thing that can be wrong with a recording is named, and nothing else."""
import unittest

from program import Program, read, write

RATE = 16000


def wrapped(x):
    return (x + 32768) % 65536 - 32768


class Probe(Program):
    def probe(self, folder, *words, status=None):
        """The report; its status must be that of its findings."""
        report = self.json("probe", folder / "mic.wav", folder / "ref.wav", "--json", *words,
                           status=status)
        status = self.status
        self.assertEqual(report["status"], ["ok", "warning", "error"][status])
        levels = [["note", "warning", "error"].index(f["level"]) for f in report["findings"]]
        self.assertEqual(levels, sorted(levels, reverse=True), "worst first")
        self.assertEqual(max(levels, default=0), status)
        self.assertTrue(all(f["text"] and f["advice"] for f in report["findings"]))
        report["codes"] = [f["code"] for f in report["findings"]]
        return report

    def test_scenes(self):
        conf = self.folder / "long.conf"
        conf.write_text("aec = { use_vad = yes; taps = 10; }")
        for seed, (options, words, codes, delay, drift) in enumerate((
            ([], [], [], 1, 0),
            (["--no-near", "--delay", 30, "--noise", 10], [], [], 30, 0),
            (["--delay", -10], [], ["reference-late"], -10, 0),
            (["--delay", -50], [], ["reference-late"], -50, 0),
            (["--delay", 110], [], ["echo-too-late"], 110, 0),
            (["--delay", 200], [], ["echo-too-late"], 200, 0),
            (["--delay", 200], ["-c", conf], [], 200, 0),
            (["--drift", 60, "--delay", 20], [], ["drift"], 20, 60),
            (["--drift", -150, "--delay", 20], [], ["drift"], 20, -150),
            (["--invert"], [], ["polarity"], 1, 0),
            (["--swap", "--delay", 20], [], ["swapped"], -20, 0),
            (["--clip", 16], [], ["nonlinear"], 1, 0),
            (["--no-near", "--path-change", 9, "--move-delay", 30], [], ["delay-moves"], None, None),
            (["--path-change", 8, "--move-delay", 40], [], ["delay-moves"], None, None),
            (["--no-near", "--path-change", 7], [], [], 1, 0),
        )):
            folder = self.simulate("scene", "--seconds", 16, "--seed", seed, *options)
            report = self.probe(folder, *words)
            self.assertEqual(report["codes"], codes, options)
            if delay is not None:
                self.assertAlmostEqual(report["delay_ms"], delay, delta=1000 / RATE, msg=options)
                self.assertAlmostEqual(report["drift_ppm"], drift, delta=8, msg=options)
                self.assertGreater(report["confidence"], 0.5, options)
                self.assertEqual(report["polarity"], -1 if "--invert" in options else 1)

    def test_spoilt_signals(self):
        scene = self.simulate("scene", "--seconds", 12, "--delay", 20)
        other = read(self.simulate("other", "--seconds", 12, "--seed", 77) / "ref.wav")[1]
        mic, ref = (read(scene / name)[1] for name in ("mic.wav", "ref.wav"))
        limit = max(mic) // 4
        # Three samples for each one: 48000 Hz labelled 16000.
        fast = [mic[i] + (mic[i + 1] - mic[i]) * k // 3 for i in range(len(mic) - 1)
                for k in range(3)]
        for name, samples, words, code, status in (
            ("ref.wav", [0] * len(ref), [], "silent", 2),
            ("mic.wav", [0] * len(ref), [], "silent", 2),
            ("ref.wav", other, [], "unrelated", 2),
            ("ref.wav", [x // 100 for x in ref], [], "level", 2),
            ("ref.wav", [x // 8 for x in ref], [], "level", 1),
            ("ref.wav", [wrapped(4 * x) for x in ref], [], "gain-wraps", 2),
            ("ref.wav", ref, ["--play-gain", 4], "gain-wraps", 2),
            ("mic.wav", [max(-limit, min(limit, x)) for x in mic], [], "clipping", 2),
            ("mic.wav", [x + 900 for x in mic], [], "dc", 1),
            ("mic.wav", fast, [], "wrong-rate", 2),
        ):
            write(scene / "mic.wav", mic)
            write(scene / "ref.wav", ref)
            write(scene / name, samples)
            report = self.probe(scene, *words, status=status)
            self.assertEqual(report["codes"][0], code)
        self.assertIn("48000 Hz labelled 16000", report["findings"][0]["text"])
        write(scene / "mic.wav", [x for i in range(len(mic)) for x in (mic[i], ref[i])],
              channels=2)
        self.assertIn("nothing to find fault with", self.call("probe", scene / "mic.wav"))

    def test_a_beep_after_silence_hides_nothing(self):
        far = read(self.simulate("talk", "--seconds", 15, "--no-near", "--seed", 3) / "ref.wav")[1]
        beep = far[2 * RATE:2 * RATE + 800]
        far = far[:7 * RATE].tolist() + [0] * 3 * RATE + beep.tolist() + [0] * 5 * RATE
        folder = self.simulate("scene", "--far", write(self.folder / "far.wav", far))
        self.assertEqual(self.probe(folder)["codes"], [])

    def test_rates_and_lengths(self):
        scene = self.simulate("scene", "--seconds", 8, "--rate", 8000)
        conf = self.folder / "eight.conf"
        conf.write_text("aec = { use_vad = yes; freqs = 8000; nlp = { freqs = 8000; } }")
        self.assertEqual(self.probe(scene, "-c", conf)["codes"], [])
        conf.write_text("aec = { use_vad = yes; }")
        self.assertEqual(self.probe(scene, "-c", conf)["codes"], ["wrong-rate"])
        write(scene / "ref.wav", read(scene / "ref.wav")[1], rate=16000)
        self.assertEqual(self.probe(scene)["codes"][0], "wrong-rate")
        wide = self.simulate("wide", "--seconds", 12, "--rate", 48000)
        self.assertEqual(self.probe(wide)["codes"], [])
        for name in ("mic.wav", "ref.wav"):
            write(wide / name, read(wide / name)[1], rate=16000)
        self.assertEqual(self.probe(wide)["codes"], ["wrong-rate"])
        short = self.simulate("short", "--seconds", 2)
        self.assertEqual(self.probe(short)["codes"], ["unreadable"])
        self.call("probe", short / "mic.wav", short / "ref.wav", status=2)


if __name__ == "__main__":
    unittest.main()
