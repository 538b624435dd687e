"""What configuring makes of build types, flags and compilers."""
import json
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).parents[2]


class Configure(unittest.TestCase):
    def configured(self, *options, **environment):
        """CMake's words and the command that would compile the version."""
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        clean = {name: value for name, value in os.environ.items()
                 if name not in ("CFLAGS", "CXXFLAGS", "CMAKE_BUILD_TYPE", "LD_PRELOAD")}
        done = subprocess.run([os.environ["CMAKE"], "-S", ROOT, "-B", folder.name, *options],
                              env={**clean, **environment}, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True)
        if done.returncode:
            return done.stdout, None
        commands = json.loads((pathlib.Path(folder.name) / "compile_commands.json").read_text())
        [command] = [entry["command"].split() for entry in commands
                     if entry["file"].endswith("/qel_version.cpp")]
        return done.stdout, command

    def test_flags_are_the_users(self):
        cases = [
            ("no build type is Release, after CXXFLAGS", [], ["-DMINE", "-O1", "-O3", "-DNDEBUG"]),
            ("a build type's own", ["-DCMAKE_CXX_FLAGS_RELEASE=-Os"], ["-DMINE", "-O1", "-Os"]),
        ]
        for what, options, flags in cases:
            said, command = self.configured(*options, CXXFLAGS="-DMINE -O1")
            self.assertIsNotNone(command, said)
            taken = [word for word in command if word.startswith(("-O", "-DMINE", "-DNDEBUG"))]
            self.assertEqual(taken, flags, what)

    @unittest.skipUnless(shutil.which("g++-11"), "no g++-11 here")
    def test_older_compiler_is_refused_in_a_line(self):
        said, command = self.configured("-DCMAKE_CXX_COMPILER=g++-11")
        self.assertIsNone(command)
        self.assertIn("unsuitable compiler", said)


if __name__ == "__main__":
    unittest.main()
