"""qel-aec sweep: combinations, what is left after an interruption, tables, GNU parallel."""
import csv
import os
import pathlib
import shutil
import signal
import subprocess
import time
import unittest

from browser import CHROMIUM, Browser
from program import CLEAN, PROGRAM, Program, write

CONF = pathlib.Path(__file__).resolve().parents[2] / "conf/aec.conf"


class Sweep(Program):
    def setUp(self):
        super().setUp()
        self.scene = self.simulate("it's, a scene", "--seconds", 6)
        self.late = self.simulate("late", "--seconds", 6, "--no-near", "--delay", -30)
        self.manifest = self.folder / "list.csv"
        self.manifest.write_text("mic,ref,near,delay_ms,name\n"
                                 '"it\'s, a scene/mic.wav","it\'s, a scene/ref.wav",'
                                 '"it\'s, a scene/near.wav",,\n'
                                 "late/mic.wav,late/ref.wav,,,late\n"
                                 "late/mic.wav,late/ref.wav,,-31,mended\n")
        self.out = self.folder / "out"
        self.words = ("sweep", self.manifest, "-c", CONF, "-o", self.out, "--set", "taps=2,6",
                      "--set", "mute.mute_time=0,1,2")

    def to_do(self):
        return len(self.call(*self.words, "--print-jobs").splitlines())

    def rows(self):
        with open(self.out / "sweep.csv", newline="") as file:
            return list(csv.DictReader(file))

    def test_killed_and_resumed(self):
        sweep = subprocess.Popen(list(map(str, (PROGRAM, *self.words, "-j", 1))), env=CLEAN,
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        while len(list(self.out.rglob("summary.json"))) < 3:
            time.sleep(0.01)
        sweep.send_signal(signal.SIGKILL)
        sweep.wait()
        time.sleep(0.5)  # the run under way ends by itself
        self.assertFalse((self.out / "sweep.csv").exists())
        left = self.to_do()
        self.assertTrue(0 < left <= 15, left)
        kept = {path: path.stat().st_mtime_ns for path in self.out.rglob("summary.json")}
        said = self.call(*self.words)
        self.assertIn(f"{left} of 18 runs", self.error)
        self.assertEqual(kept, {path: path.stat().st_mtime_ns for path in kept})
        self.assertEqual(said.count("(best)"), 1)
        rows = self.rows()
        self.assertEqual([(r["recording"], r["taps"], r["mute.mute_time"]) for r in rows[5:8]],
                         [("it_s,_a_scene_mic", "6", "2"), ("late", "2", "0"), ("late", "2", "1")])
        erle = {r["recording"]: float(r["erle_db"]) for r in rows}
        self.assertLess(erle["late"], 12)
        self.assertGreater(erle["mended"], 20)
        self.assertEqual({bool(r["near_si_sdr_db"]) for r in rows[:6]}, {True})
        self.assertEqual({r["near_si_sdr_db"] for r in rows[6:]}, {""})

        # What a run was made from has changed, or is another one.
        self.assertEqual(self.to_do(), 0)
        os.utime(self.late / "ref.wav")
        self.assertEqual(self.to_do(), 12)
        self.manifest.write_text(self.manifest.read_text().replace("-31", "-30"))
        self.call(*self.words)
        self.manifest.write_text(self.manifest.read_text().replace("-30", "-31"))
        self.assertEqual(self.to_do(), 6)

    def test_one_that_fails_leaves_the_others(self):
        write(self.late / "mic.wav", [0] * 9000, channels=3)
        self.call(*self.words, status=1)
        rows = self.rows()
        self.assertEqual([bool(row["error"]) for row in rows], [False] * 6 + [True] * 12)
        self.assertIn("channels", rows[-1]["error"])
        self.assertEqual(self.to_do(), 12)

    @unittest.skipUnless(shutil.which("parallel"), "no GNU parallel")
    def test_jobs_for_parallel(self):
        jobs = self.call(*self.words, "--print-jobs")
        subprocess.run(["parallel", "--will-cite", "-j2"], input=jobs, text=True, check=True,
                       env={**CLEAN, "HOME": str(self.folder)}, capture_output=True)
        self.assertEqual(self.to_do(), 0)
        self.call(*self.words)
        self.assertEqual(len(self.rows()), 18)

    @unittest.skipUnless(CHROMIUM, "no Chromium")
    def test_page(self):
        self.call(*self.words)
        browser = Browser()
        self.addCleanup(browser.close)
        browser.open(self.out / "sweep.html", width=390, dark=True)
        browser.until("document.querySelectorAll('#combinations tbody tr').length == 6")
        self.assertEqual(browser.value("document.querySelectorAll('#combinations .marked').length"),
                         1)
        self.assertEqual(browser.value("document.querySelector('#recordings tbody th').textContent"),
                         "late")  # the worst first
        self.assertLessEqual(browser.value("document.documentElement.scrollWidth"), 390)
        self.assertEqual(browser.problems, [])

    def test_what_cannot_work(self):
        for words, said in (
            (["--set", "tapps=1"], "nearest known one is taps"),
            (["--set", "taps"], "key=value"),
            (["--set", "vad.amp_thresh=5,"], "key=value"),
            (["--set", "use_nlp=no", "--set", "use_nlp=no"], "once"),
        ):
            self.call(*self.words[:6], *words, status=2)
            self.assertIn(said, self.error, words)
        for text, said in (
            ("", "empty"),
            ("microphone,ref\na,b\n", "microphone"),
            ("mic,ref\n,b\n", "no mic"),
            ("mic,ref\na,b\na,c\n", "second one called a"),
            ("mic,delay_ms\na,1ms\n", "no number"),
            ('mic\n"a', "no table"),
        ):
            self.manifest.write_text(text)
            self.call(*self.words, status=2)
            self.assertIn(said, self.error, text)
        self.assertFalse(self.out.exists())


if __name__ == "__main__":
    unittest.main()
