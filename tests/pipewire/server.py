"""A sound server of one's own without a sound card: PipeWire and WirePlumber on a private session
bus, a speaker and a microphone that are null sinks, the room between them a convolver, and the
canceller that the caller asks for. The demo's talkers speak in it.
"""
import ctypes
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).parents[2]
PROGRAMS = ("pipewire", "wireplumber", "dbus-run-session", "pw-cat", "pw-link")
GRAPH_RATE = 48000  # as a server has it by default
SYSTEM_PLUGINS = next(pathlib.Path("/usr/lib").glob("*/spa-0.2"), None)

CONFIG = """
context.properties = {
    core.daemon = true, core.name = pipewire-0, default.clock.rate = %(rate)d
    default.clock.quantum = %(quantum)d, default.clock.min-quantum = %(quantum)d
    default.clock.max-quantum = %(quantum)d
    mem.allow-mlock = false, settings.check-quantum = false
}
context.spa-libs = {
    audio.convert.* = audioconvert/libspa-audioconvert
    support.* = support/libspa-support
}
context.modules = [
    { name = libpipewire-module-rt, args = { nice.level = -11 }, flags = [ ifexists nofail ] }
    { name = libpipewire-module-protocol-native }
    { name = libpipewire-module-spa-node-factory }
    { name = libpipewire-module-client-node }
    { name = libpipewire-module-client-device }
    { name = libpipewire-module-access }
    { name = libpipewire-module-adapter }
    { name = libpipewire-module-metadata }
    { name = libpipewire-module-link-factory }
    { name = libpipewire-module-session-manager }
    { name = libpipewire-module-filter-chain
      args = {
        audio.channels = 1, audio.position = [ MONO ]
        filter.graph = { nodes = [ { type = builtin, label = convolver, name = room
            config = { filename = "%(room)s" } } ] }
        capture.props = { node.name = room-in, node.autoconnect = false }
        playback.props = { node.name = room-out, node.autoconnect = false } } }
    %(cancellers)s
]
context.objects = [
    { factory = adapter
      args = { factory.name = support.null-audio-sink, node.name = speaker
        media.class = Audio/Sink, audio.position = [ MONO ], priority.session = 1000 } }
    { factory = adapter
      args = { factory.name = support.null-audio-sink, node.name = mic
        media.class = Audio/Source/Virtual, audio.position = [ MONO ], priority.session = 1000 } }
]
"""
CANCELLER = """
    { name = libpipewire-module-echo-cancel
      flags = [ nofail ]
      args = {
        library.name = %(library)s
        audio.rate = %(rate)d, audio.channels = 1, audio.position = [ MONO ]
        capture.props = { node.name = %(name)s-capture, target.object = mic }
        source.props = { node.name = %(name)s-source }
        sink.props = { node.name = %(name)s-sink }
        playback.props = { node.name = %(name)s-playback, target.object = speaker
                           node.autoconnect = %(plays)s }
        aec.args = { %(args)s } } }
"""


def missing():
    """What of PipeWire is not installed here."""
    return [name for name in PROGRAMS if not shutil.which(name)] + [
        name for name in ("libspa-0.2-modules",) if not SYSTEM_PLUGINS]


signal.signal(signal.SIGTERM, lambda *_: sys.exit("ended from outside"))  # and so do all others
LIBC = ctypes.CDLL(None)
PR_SET_PDEATHSIG = 1


def become_a_player():
    """Lets a program go before others, if that is allowed, for what is late in real time is lost;
    and end with this one, however that ends."""
    LIBC.prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
    try:
        os.sched_setscheduler(0, os.SCHED_RR, os.sched_param(10))
    except PermissionError:
        pass


class NotThere(Exception):
    """What should have come in the server did not."""


class Server:
    """with Server(...) as server: ... Everything that it started ends with it."""

    def __init__(self, room, cancellers, plugins, quantum=1024, session=True):
        """`room`: impulse response, a WAV file at GRAPH_RATE; `cancellers`: dictionaries of name,
        library, rate and args, of which the first one plays to the speaker; `plugins`: a folder
        that has SPA plugins besides the system's; `quantum`: samples in a cycle, which must not be
        more than a canceller's block, or the module tears the reference apart; without a session
        nothing is linked, and no client gets ports."""
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="pw-"))
        os.chmod(self.folder, 0o700)
        text = "".join(CANCELLER % {"plays": "true" if i == 0 else "false", **canceller}
                       for i, canceller in enumerate(cancellers))
        config = self.folder / "server.conf"
        config.write_text(CONFIG % {"rate": GRAPH_RATE, "quantum": quantum, "room": room,
                                    "cancellers": text})
        found = self.folder / "spa"
        shutil.copytree(SYSTEM_PLUGINS, found, symlinks=True, copy_function=os.symlink)
        for plugin in pathlib.Path(plugins).glob("*/*.so"):
            os.symlink(plugin.absolute(), found / plugin.relative_to(plugins))
        state = {name: str(self.folder) for name in (
            "XDG_RUNTIME_DIR", "XDG_STATE_HOME", "XDG_CONFIG_HOME", "PIPEWIRE_RUNTIME_DIR", "HOME")}
        self.environment = {**os.environ, **state, "SPA_PLUGIN_DIR": str(found),
                            "PIPEWIRE_DEBUG": "2"}
        self.environment.pop("DBUS_SESSION_BUS_ADDRESS", None)
        self.started = []
        self.log = self.folder / "log"
        self.pipewire = self.start("pipewire", "-c", config)
        self.wait_for(lambda: (self.folder / "pipewire-0").exists(), "the server's socket")
        if session:
            self.start("dbus-run-session", "--", "wireplumber")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        for process in reversed(self.started):
            for sign in (signal.SIGTERM, signal.SIGKILL):
                try:
                    os.killpg(process.pid, sign)
                    process.wait(3)
                except (ProcessLookupError, subprocess.TimeoutExpired):
                    pass
        shutil.rmtree(self.folder, ignore_errors=True)

    def start(self, *command):
        """Starts a program as leader of a group of its own, so that its children end with it."""
        with open(self.log, "ab") as log:
            process = subprocess.Popen([str(word) for word in command], env=self.environment,
                                       stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                                       start_new_session=True, preexec_fn=become_a_player)
        self.started.append(process)
        return process

    def said(self):
        return self.log.read_text(errors="replace")

    def run(self, *command):
        """What a program says; None if it fails."""
        try:
            done = subprocess.run(command, env=self.environment, capture_output=True, text=True,
                                  timeout=5)
        except subprocess.TimeoutExpired:
            return None
        return done.stdout if done.returncode == 0 else None

    def wait_for(self, condition, what, seconds=20):
        end = time.monotonic() + seconds
        while not condition():
            if time.monotonic() > end or self.pipewire.poll() is not None:
                raise NotThere(f"{what} did not come:\n{self.said()}")
            time.sleep(0.1)

    def linked(self, source, sink):
        listed = self.run("pw-link", "-l") or ""
        return re.search(rf"^{source}\n(  \|-> .*\n)*  \|-> {sink}$", listed, re.MULTILINE)

    def link(self, source, sink):
        """Links two ports once they are there, and until they are linked: pw-link promises less."""
        def tried():
            return self.linked(source, sink) or self.run("pw-link", source, sink) and False
        self.wait_for(tried, f"the link from {source} to {sink}")

    def cpu_seconds(self):
        """Processor time of the server so far."""
        fields = pathlib.Path(f"/proc/{self.pipewire.pid}/stat").read_text().rsplit(")")[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")
