"""qel-aec report: one page, looked at and clicked on in a browser."""
import base64
import json
import pathlib
import re
import unittest

from browser import CHROMIUM, Browser
from program import Program, read, write

CONF = pathlib.Path(__file__).resolve().parents[2] / "conf"
READY = "document.getElementById('play')?.disabled === false"
HEARD = "document.querySelector('[name=heard]:checked').id"
WAVE = "figure:nth-of-type(1) canvas"


class Report(Program):
    def run_on(self, name, *words, conf="aec.conf"):
        folder = self.folder / name
        self.call("run", *words, "-c", CONF / conf, "-o", folder)
        return folder

    def two_runs(self):
        scene = self.simulate("scene", "--seconds", 10)
        words = scene / "mic.wav", scene / "ref.wav", "--near", scene / "near.wav"
        return (self.run_on("a </script> & b", *words),
                self.run_on("tracking", *words, conf="aec-tracking.conf"))

    def test_page_holds_everything_in_few_bytes(self):
        noise = [(i * i * 48271 >> 7) % 20000 - 10000 for i in range(60 * 16000)]  # hardest to pack
        wav = write(self.folder / "noise.wav", noise)
        folder = self.run_on("run", wav, wav)
        self.call("report", folder)
        self.assertLess((folder / "report.html").stat().st_size, 5e6)
        text = (folder / "report.html").read_text()
        self.assertEqual(re.findall(r"https?://|(?:src|href)=\"(?!data:)", text), [])
        wav.unlink()  # the recording is gone: a page of the rest
        self.call("report", folder, "-o", self.folder / "page.html")
        self.assertIn("noise.wav", self.error)
        for words, said in (
            ([self.folder], "summary.json"),
            ([folder, "--against", self.folder / "none"], "summary.json"),
            ([folder, "-o", folder / "out.wav"], "is an input"),
        ):
            self.call("report", *words, status=2)
            self.assertIn(said, self.error, words)
        (folder / "summary.json").write_text("[]")
        self.call("report", folder, status=2)

    def test_its_flac_is_the_recording(self):
        folder, _ = self.two_runs()
        self.call("report", folder)
        page = (folder / "report.html").read_text()
        data = json.loads(re.search(r'<script id="data"[^>]*>(.*?)</script>', page, re.S)[1])
        paths = []
        for track in data["tracks"][:2]:
            paths.append(self.folder / f"{track['id']}.flac")
            paths[-1].write_bytes(base64.b64decode(track["data"]))
        self.assertEqual((self.run_on("again", *paths) / "out.wav").read_bytes(),
                         (folder / "out.wav").read_bytes())

    @unittest.skipUnless(CHROMIUM, "no Chromium")
    def test_in_a_browser(self):
        a, b = self.two_runs()
        self.call("report", a, "--against", b)
        browser = Browser()
        self.addCleanup(browser.close)
        for width, dark in ((1200, False), (390, True)):
            browser.open(a / "report.html", width=width, dark=dark)
            browser.until(READY)
            self.assertLessEqual(browser.value("document.documentElement.scrollWidth"), width)
        browser.open(a / "report.html")
        browser.until(READY)

        # The samples that are shown and heard are those of the files.
        out = read(a / "out.wav")[1]
        self.assertEqual(browser.value("tracks.map(t => t.id).join()"), "mic,ref,out,other")
        self.assertEqual(browser.value("Array.from(tracks[2].samples.slice(90000, 90050),"
                                       "x => Math.round(32768 * x))"), list(out[90000:90050]))

        # A click on play, and another player from the same place on.
        browser.drag("#play")
        browser.until("position() > 0.2", 10)
        before = browser.value("position()")
        browser.drag("#hear-mic")
        self.assertEqual(browser.value(HEARD), "hear-mic")
        browser.until("player.gains.mic.gain.value > 0.9 && player.gains.out.gain.value < 0.1", 10)
        self.assertLess(abs(browser.value("position()") - before), 5)
        self.assertTrue(browser.value("is_playing()"))
        browser.press(" ")  # the choice has the focus: a space is its own
        browser.value("document.activeElement.blur()")
        browser.press(" ")
        self.assertFalse(browser.value("is_playing()"))
        browser.press("4")
        self.assertEqual(browser.value(HEARD), "hear-other")

        # A drag in a picture zooms all of them, a click moves there, keys and buttons zoom.
        browser.drag(WAVE, 0.5, 0.7)
        start, end = browser.value("[view.from, view.to]")
        self.assertTrue(3 < start < 6 and 1 < end - start < 3, (start, end))
        browser.drag(WAVE, 0.5)
        self.assertAlmostEqual(browser.value("position()"), (start + end) / 2, delta=0.2)
        browser.drag("#in")
        browser.press("-")
        browser.press("-")
        self.assertAlmostEqual(browser.value("view.to - view.from"), 2 * (end - start), delta=0.01)
        browser.drag("#all")
        self.assertEqual(browser.value("[view.from, view.to]"), [0, 10])

        # What does not see the pictures: labels, and the figures as tables.
        self.assertEqual(browser.value("[...document.querySelectorAll('canvas')].filter("
                                       "c => !c.getAttribute('aria-label')).length"), 0)
        self.assertEqual(browser.value("[...document.querySelectorAll('button,input')].filter("
                                       "b => !(b.ariaLabel || b.textContent || b.labels.length))"
                                       ".length"), 0)
        browser.drag("#seconds summary", 0.05)
        browser.until("document.querySelectorAll('#seconds tbody tr').length == 10", 10)
        found = browser.value("document.getElementById('findings').innerText")
        self.assertIn("Of the recording", found)
        self.assertIn("Of the configuration", found)
        summary = json.loads((a / "summary.json").read_text())
        self.assertIn(f"{summary['erle_db']:.1f} dB",
                      browser.value("document.getElementById('figures').textContent"))
        marked = browser.value("[...document.querySelectorAll('#settings .marked th')].map("
                               "c => c.textContent).join()")
        self.assertIn("use_kalman", marked)
        self.assertNotIn("taps", marked)
        self.assertEqual(browser.problems, [])


if __name__ == "__main__":
    unittest.main()
