"""The manual page of qel-aec says what its help says."""
import re
import shutil
import subprocess
import unittest

from program import PROGRAM, Program

COMMANDS = ("check", "probe", "run", "report", "sweep", "simulate")


def words(text):
    """The text without line breaks, markup and escapes of a manual page."""
    text = re.sub(r"\\f[BR]|^\.(TP|SS|SH|B|TH)\b", " ", text, flags=re.MULTILINE)
    return " ".join(text.replace("\\-", "-").replace("\\&", "").replace("\\e", "\\").split())


class Man(Program):
    def test_every_line_of_help_is_in_it(self):
        page = PROGRAM.with_name("qel-aec.1")
        self.assertEqual(page.read_text(), self.call("--man"))
        said = words(page.read_text())
        for command in COMMANDS:
            text = self.call(command, "--help")
            description, text = text.split("Usage:", 1)
            self.assertIn(words(description), said)
            # An option's entry begins two blanks in; its description may go on further in.
            entries = re.split(r"\n  (?=\S)", text)[1:]
            self.assertGreater(len(entries), 1, command)
            for entry in entries:
                self.assertIn(words(re.split(r"\n(?=\S)", entry)[0]), said, command)
        self.assertIn(words(self.call("--help").rsplit("Exit status:", 1)[1]), said)

    @unittest.skipUnless(shutil.which("groff"), "no groff")
    def test_it_can_be_shown(self):
        done = subprocess.run(["groff", "-man", "-Tutf8", "-ww", PROGRAM.with_name("qel-aec.1")],
                              capture_output=True, text=True, check=True)
        self.assertEqual(done.stderr, "")


if __name__ == "__main__":
    unittest.main()
