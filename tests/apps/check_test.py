"""qel-aec check: places, words and levels of what is wrong, and the settings as they are."""
import pathlib
import unittest

from program import Program

CONF = pathlib.Path(__file__).resolve().parents[2] / "conf"


class Check(Program):
    def conf(self, text, name="a.conf"):
        path = self.folder / name
        path.write_text(text)
        return path

    def test_faults_by_code_place_and_status(self):
        self.conf("aec = {\n  taps = 6 ;\n}", "bad.conf")
        self.conf("\naec = {\n  taps = 6x;\n}", "odd.conf")
        on = "use_vad = yes;"
        for text, code, status, place, name in (
            (f"aec = {{\n\t{on} use_vda = yes;\n}}", "unknown", 1, (2, 17), "a.conf"),
            (f"aec = {{ {on} taps = 6ms; }}", "trailing", 1, (1, 24), "a.conf"),
            (f"aec = {{ {on} taps = 5; taps = 6; }}", "twice", 1, (1, 34), "a.conf"),
            (f"aec = {{ {on} use_nlp = on; }}", "boolean", 1, (1, 24), "a.conf"),
            (f"aec = {{ {on} taps = 0; }}", "range", 2, (1, 24), "a.conf"),
            (f"aec = {{ {on} frame_size = 509; nlp = {{ frame_size = 509; }} }}", "slow", 1, (1, 24),
             "a.conf"),
            (f"aec = {{ {on} }}\n#include ${{pwd}}/odd.conf;", "trailing", 1, (3, 3), "odd.conf"),
            ("#include ${pwd}/bad.conf;", "syntax", 2, (2, 11), "bad.conf"),
            ("aec = { taps = 6 ; }", "syntax", 2, (1, 17), "a.conf"),
            ("", "unreadable", 2, (0, 0), "a.conf"),
        ):
            path = self.conf(text)
            report = self.json("check", path, "--json", status=status)
            self.assertEqual(report["status"], ["ok", "warning", "error"][status], text)
            [found] = [f for f in report["findings"] if f["code"] == code]
            self.assertEqual((found["line"], found["column"]), place, text)
            self.assertEqual(pathlib.Path(found["file"]).name, name)
            self.assertTrue(found["text"] and found["advice"], text)
            # For people: the line, and the mark below the column.
            lines = self.call("check", path, status=status).splitlines()
            at = next(i for i, line in enumerate(lines) if line.endswith(f"[{code}]"))
            if place[0]:
                source = (self.folder / name).read_text().splitlines()[place[0] - 1]
                self.assertEqual(lines[at + 1], "    " + source)
                self.assertEqual(lines[at + 2].index("^"), 4 + place[1] - 1)

    def test_frame_len(self):
        path = CONF / "aec.conf"
        for frame_len, status in ((512, 0), (1024, 0), (500, 1)):
            self.json("check", path, "--json", "--frame-len", frame_len, status=status)

    def test_settings_and_what_they_mean_together(self):
        path = self.conf("aec = { use_vad = yes; taps = 6; frame_size = 256; freqs = 8000; nlp = {"
                         " frame_size = 256; freqs = 8000; } vad = { amp_thresh = 7.5; } }")
        report = self.json("check", path, "--json")
        self.assertEqual(report["findings"], [])
        self.assertEqual((report["latency_ms"], report["longest_echo_ms"]), (32, 192))
        self.assertGreater(report["ms_per_second"], 0)
        settings = {s["key"]: (s["value"], s["default"]) for s in report["settings"]}
        for key, expected in (("taps", (6, False)), ("vad.amp_thresh", (7.5, False)),
                              ("vad.spe2sil_num", (15, True)), ("use_kalman", (False, True))):
            self.assertEqual(settings[key], expected)

    def test_valid_files_and_missing_ones(self):
        for path in CONF.glob("*.conf"):
            self.assertIn("nothing to find fault with", self.call("check", path))
        for path in (self.folder / "nowhere.conf", self.folder):
            self.assertIn("unreadable", self.call("check", path, status=2))
        self.assertIn("no-vad", self.call("check", self.conf("aec = { taps = 5; }")))


if __name__ == "__main__":
    unittest.main()
