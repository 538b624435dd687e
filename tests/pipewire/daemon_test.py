"""The plugin in a real PipeWire: it cancels as the library does, and says what cannot work."""
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

BUILD = pathlib.Path(os.environ["QEL_BUILD"])
PLUGINS = BUILD / "spa-0.2"
ROOT = pathlib.Path(__file__).parents[2]


def skip(why):
    print(f"PipeWire's test is skipped: {why}; tools/setup.sh pipewire installs what it needs")
    sys.exit(77)


try:
    import numpy as np

    from performance import MEMORY, Stage, perform, quality, scene, whole
except ImportError as error:
    skip(error)
from server import NotThere, Server, missing

FRAMES = 640  # of the scene: the far end alone, and six seconds in which both talk
ATTEMPTS = 4
AS_THE_DEMO, TRACKING = ROOT / "conf/aec.conf", ROOT / "conf/aec-tracking.conf"
CANCELLERS = [  # as a server has it without a word, and as the demo has it
    {"name": "default", "library": "aec/libspa-aec-qel", "rate": 48000, "args": ""},
    {"name": "demo", "library": "aec/libspa-aec-qel", "rate": 16000,
     "args": f'qel.config = "{AS_THE_DEMO}"'}]
NOTHING = {"name": "nothing", "library": "aec/libspa-aec-null", "rate": 48000, "args": ""}
REFUSALS = {  # arguments, and what the server's log says of them
    "qel.taps = 0": ("[E]", "no canceller: taps = 0 cannot work"),
    "qel.use_hdr = true": ("[E]", "no canceller: use_hdr cannot work"),
    '"qel.a b" = 1': ("[E]", 'no canceller: "a b" is no name'),
    "qel.config = /none.conf": ("[E]", "/none.conf"),
    "qel.use_vda = yes": ("[W]", "there is no such key")}


class InTheServer(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(dir=MEMORY)
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        cls.stage = Stage(cls.folder, FRAMES)
        try:
            with Server(cls.stage.room, [NOTHING], PLUGINS) as server:
                server.link(f"{NOTHING['name']}-source:capture_MONO", "room-in:input_MONO")
        except NotThere as reason:
            skip(f"no sound server can run here, even without the plugin ({reason})")

    def alone(self, config, mic, ref, lead):
        """What the library makes of recordings whose frames start `lead` samples before them."""
        paths = [self.folder / name for name in ("mic.raw", "ref.raw", "out.raw")]
        for path, x in zip(paths, (mic, ref)):
            padded = np.pad(x, (lead, 1024))
            path.write_bytes(np.clip(np.round(padded), -32768, 32767).astype("<i2").tobytes())
        subprocess.run([BUILD / "examples/cancel", config, *paths], check=True, timeout=10,
                       stderr=subprocess.DEVNULL)
        out = np.fromfile(paths[2], "<i2")[lead:].astype(float)
        return quality(mic, np.pad(out, (0, len(mic)))[: len(mic)], self.stage)

    def too_low(self, mic, ref, outputs):
        """What the server's cancellers do worse than the library alone."""
        found = []
        for config, out in zip((TRACKING, AS_THE_DEMO), outputs):
            here = quality(mic, out, self.stage)
            # Reduction hangs on where frames begin, which is the server's choice.
            alone = [self.alone(config, mic, ref, lead) for lead in range(0, 512, 64)]
            print(f"server, {config.name}", here, "alone", *alone, sep="\n")
            found += [(config.name, key, here[key]) for key in ("reduction", "both")
                      if here[key] < min(one[key] for one in alone) - 1]
        return found

    def test_cancels_as_the_library_does_alone(self):
        names = [canceller["name"] for canceller in CANCELLERS]
        wrong = None
        for _ in range(ATTEMPTS):  # real time may tear sound where it is not seen
            with Server(self.stage.room, CANCELLERS, PLUGINS) as server:
                (mic, ref, *outputs), _ = perform(server, self.stage, names, self.folder)
            if not whole(mic, ref, self.stage):
                continue
            wrong = self.too_low(mic, ref, outputs)
            if not wrong:
                return
        self.assertIsNone(wrong)
        self.skipTest("the sound was torn each time: this machine is too busy for real time")

    def test_says_in_the_servers_log_what_cannot_work(self):
        cancellers = [{**CANCELLERS[0], "name": f"c{i}", "args": args}
                      for i, args in enumerate(REFUSALS)]
        with Server(self.stage.room, cancellers, PLUGINS, session=False) as server:
            last = list(REFUSALS.values())[-1][1]
            server.wait_for(lambda: last in server.said(), "the last line")
            lines = server.said().splitlines()
        for args, (level, text) in REFUSALS.items():
            self.assertTrue(any(line.startswith(level) and text in line for line in lines),
                            (args, lines))


if __name__ == "__main__":
    if not any(PLUGINS.glob("aec/*qel*")):
        skip("the plugin was not built")
    if missing():
        skip("no " + ", ".join(missing()))
    if not scene.SPEECH.exists():
        skip(f"no {scene.SPEECH}")
    unittest.main()
