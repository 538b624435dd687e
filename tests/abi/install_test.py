"""What a user gets: the module in a prefix of his own, which a C program finds through pkg-config."""
import os
import pathlib
import subprocess
import tempfile
import unittest

PROGRAM = """
#include <stdio.h>

#include "qel/qel.h"

int main(void) { return puts(qel_api_aec_get_version()) < 0; }
"""


def output(*command, **environment):
    done = subprocess.run([str(word) for word in command], env={**os.environ, **environment},
                          stdout=subprocess.PIPE, text=True, check=True)
    return done.stdout


class Install(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        first = self.folder / "first"
        output(os.environ["CMAKE"], "--install", os.environ["QEL_BUILD"], "--prefix", first)
        self.prefix = first.rename(self.folder / "moved")

    def test_c_program_builds_and_runs_through_pkg_config(self):
        source, program = self.folder / "user.c", self.folder / "user"
        source.write_text(PROGRAM)
        [pc] = self.prefix.rglob("qel.pc")
        flags = output("pkg-config", "--cflags", "--libs", "qel", PKG_CONFIG_PATH=str(pc.parent))
        self.assertNotIn(str(self.folder / "first"), flags)
        output(os.environ["CC"], "-std=c99", "-pedantic-errors", "-Werror", source, "-o", program,
               *flags.split())
        self.assertEqual(output(program), "spu/aec v1.0.8\n")

    def test_lua_finds_the_module_and_headers_are_public_ones(self):
        [module] = self.prefix.rglob("echo.so")
        said = output(os.environ["LUA"], "-e", "print(type(require('echo').new))",
                      LUA_CPATH=f"{module.parent}/?.so")
        self.assertEqual(said, "function\n")
        for program in self.prefix.rglob("qel-aec"):
            self.assertIn("spu/aec", output(program, "--version", LD_LIBRARY_PATH=""))
            self.assertTrue((self.prefix / "share/man/man1/qel-aec.1").exists())
        headers = {path.suffix for path in (self.prefix / "include").rglob("*") if path.is_file()}
        self.assertEqual(headers, {".h"})


if __name__ == "__main__":
    unittest.main()
