"""The program qel-aec as a user runs it, and the recordings that its tests give it."""
import array
import json
import os
import pathlib
import subprocess
import tempfile
import unittest
import wave

PROGRAM = pathlib.Path(os.environ["QEL_BUILD"]) / "qel-aec"
CLEAN = {key: value for key, value in os.environ.items() if key != "LD_LIBRARY_PATH"}


def read(path):
    """Rate and samples of a mono WAV file."""
    with wave.open(str(path)) as file:
        return file.getframerate(), array.array("h", file.readframes(file.getnframes()))


def write(path, samples, rate=16000, channels=1):
    with wave.open(str(path), "wb") as file:
        file.setnchannels(channels)
        file.setsampwidth(2)
        file.setframerate(rate)
        file.writeframes(array.array("h", samples).tobytes())
    return path


class Program(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def call(self, *words, status=0):
        """What the program writes to standard output; fails unless it ends with this status, None for
        any."""
        done = subprocess.run([PROGRAM, *map(str, words)], env=CLEAN, capture_output=True,
                              text=True, check=False, timeout=300)
        self.error = done.stderr
        self.status = done.returncode
        self.assertEqual(self.status, self.status if status is None else status, f"{words}\n{done.stdout}\n{done.stderr}")
        return done.stdout

    def json(self, *words, status=0):
        return json.loads(self.call(*words, status=status))

    def simulate(self, name, *words):
        folder = self.folder / name
        self.call("simulate", "-o", folder, *words)
        return folder

    def names(self, folder):
        return sorted(path.name for path in folder.iterdir())
