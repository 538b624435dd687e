"""qel-aec run: the canceller's output, its figures, and what is refused."""
import csv
import json
import pathlib
import unittest

from program import Program, read, write

CONF = pathlib.Path(__file__).resolve().parents[2] / "conf/aec.conf"


class Run(Program):
    def run_on(self, *words, conf=CONF, status=0):
        """The folder of results and the summary in it."""
        folder = self.folder / "results"
        self.call("run", *words, "-c", conf, "-o", folder, status=status)
        path = folder / "summary.json"
        return folder, json.loads(path.read_text()) if path.exists() else None

    def test_a_silent_reference_leaves_the_microphone_alone_and_in_step(self):
        samples = [(i * 7919) % 5000 - 2500 for i in range(5000)]  # ends within a frame
        mic = write(self.folder / "mic.wav", samples)
        ref = write(self.folder / "ref.wav", [0] * 4000)  # shorter: continued with silence
        folder, summary = self.run_on(mic, ref)
        self.assertEqual(list(read(folder / "out.wav")[1]), samples)
        self.assertEqual(self.names(folder), ["frames.csv", "out.wav", "summary.json"])
        self.assertEqual(summary["frames"], {"total": 10, "bypassed": 10, "muted": 0,
                                             "processed": 0})
        self.assertIsNone(summary["erle_db"])

    def test_figures_of_a_scene(self):
        scene = self.simulate("scene", "--seconds", 12)
        mic, ref, near = (scene / name for name in ("mic.wav", "ref.wav", "near.wav"))
        folder, summary = self.run_on(mic, ref, "--near", near, "--set", "mute.mute_time=0")
        self.assertGreater(summary["erle_db"], 25)
        self.assertLess(summary["reduction_db"], 15)  # the near end stays
        for part in ("both", "alone"):
            score = summary["near"][part]
            self.assertLess(abs(score["gain_db"]), 3, part)
            self.assertGreater(score["si_sdr_db"], 6, part)
        self.assertEqual(summary["frames"]["muted"], 0)
        self.assertTrue(5 < summary["first_second_db"] < summary["erle_db"])
        rows = list(csv.DictReader((folder / "frames.csv").read_text().splitlines()))
        self.assertEqual(len(rows), summary["frames"]["total"])
        self.assertEqual(sum(row["state"] == "processed" for row in rows),
                         summary["frames"]["processed"])
        changed = {s["key"]: s for s in summary["settings"] if not s["default"]}
        self.assertEqual(changed["mute.mute_time"]["value"], 0)
        self.assertEqual(len(summary["reduction"]), 12)

        # The same recording as one stereo file gives the same samples.
        both = [x for pair in zip(read(mic)[1], read(ref)[1]) for x in pair]
        out = (folder / "out.wav").read_bytes()
        self.run_on(write(self.folder / "both.wav", both, channels=2), "--set", "mute.mute_time=0")
        self.assertEqual((folder / "out.wav").read_bytes(), out)
        self.assertIsNone(self.run_on(mic, ref)[1]["first_second_db"])  # muted

    def test_alignment_rate_and_limits(self):
        late = self.simulate("late", "--seconds", 8, "--no-near", "--delay", -40)
        wide = self.simulate("wide", "--seconds", 8, "--no-near", "--rate", 48000)
        late, wide = ([folder / "mic.wav", folder / "ref.wav"] for folder in (late, wide))
        for words, least, most in (
            (late, -10, 10),
            ([*late, "--delay", -41], 25, 60),
            ([*wide, "--resample"], 25, 60),
            ([*late, "--delay", -41, "--set", "use_nlp=no"], 10, 24),
        ):
            erle = self.run_on(*words)[1]["erle_db"]
            self.assertTrue(least < erle < most, f"{words}: {erle}")
        self.run_on(*late, "--delay", -41, "--fail-below-erle", 20)
        self.run_on(*late, "--fail-below-erle", 20, status=1)
        self.run_on(*wide, status=2)
        self.assertIn("--resample", self.error)

    def test_tracking_has_columns_of_its_own(self):
        scene = self.simulate("scene", "--seconds", 6, "--no-near", "--delay", 200)
        folder, summary = self.run_on(scene / "mic.wav", scene / "ref.wav",
                                      conf=CONF.with_name("aec-tracking.conf"))
        last = list(csv.DictReader((folder / "frames.csv").read_text().splitlines()))[-1]
        self.assertGreater(float(last["delay_ms"]), 90)
        self.assertEqual(summary["tracking"]["delay_changes"], int(last["delay_changes"]))

    def test_what_cannot_work_leaves_nothing(self):
        scene = self.simulate("scene", "--seconds", 1)
        mic, ref = scene / "mic.wav", scene / "ref.wav"
        conf = self.folder / "odd \"name\\.conf"
        conf.write_text("aec = { use_vad = yes; taps = 0; }")
        for words, said in (
            ([mic], "channels"),
            ([mic, self.folder / "none.wav"], "none.wav"),
            ([mic, ref, "--set", "tapps=4"], "nearest known one is taps"),
            ([mic, ref, "--set", "taps=many"], "no number"),
            ([mic, ref, "--set", "taps"], "key=value"),
            ([mic, ref, "--set", "use_hdr=yes"], "16 bits"),
            ([mic, ref, "-c", conf], "taps"),
            ([mic, ref, "-c", self.folder], "no regular file"),
        ):
            words = [*words] if "-c" in words else [*words, "-c", CONF]
            self.call("run", *words, "-o", self.folder / "out", status=2)
            self.assertIn(said, self.error, words)
        self.call("run", mic, ref, "-c", conf, "--set", "taps=2", "-o", self.folder / "fine")
        own = write(self.folder / "out.wav", [1, 2, 3])
        self.call("run", own, ref, "-c", CONF, "-o", self.folder, status=2)
        self.assertEqual(list(read(own)[1]), [1, 2, 3])
        self.assertFalse(any(path.is_file() for path in (self.folder / "out").rglob("*")))


if __name__ == "__main__":
    unittest.main()
