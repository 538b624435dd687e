"""The recipes of other build systems: in step with the sources, and for LuaRocks working."""
import hashlib
import os
import pathlib
import shutil
import subprocess
import tempfile
import unittest

ROOT = pathlib.Path(__file__).parents[2]


@unittest.skipUnless((ROOT / ".git").exists(), "recipes are made from git's last commit")
class Recipes(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def recipes(self, *options):
        """Their files by suffix, or by name."""
        out = self.folder / "recipes"
        subprocess.run([os.environ["CMAKE"], *options, f"-DOUT={out}", "-P",
                        ROOT / "packaging/recipes.cmake"], check=True, stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)
        return {path.suffix or path.name: path for path in out.rglob("*") if path.is_file()}

    def test_licence_and_checksums_are_in_each_ones_terms(self):
        notice = ROOT / "packaging/no-licence.txt"
        md5 = hashlib.md5(notice.read_bytes()).hexdigest()
        cases = [
            ([], {".mk": "QEL_LICENSE = PROPRIETARY", ".bb": 'LICENSE = "CLOSED"',
                  "Makefile": "PKG_LICENSE:=LicenseRef-Proprietary",
                  ".rockspec": 'license = "proprietary"'}),
            (["-DQEL_LICENSE=MIT"],
             {".mk": "QEL_LICENSE = MIT", ".bb": f"no-licence.txt;md5={md5}",
              "Makefile": "PKG_LICENSE:=MIT", ".rockspec": 'license = "MIT"'}),
        ]
        for options, expected in cases:
            files = self.recipes(*options)
            archive = hashlib.sha256(files[".gz"].read_bytes()).hexdigest()
            for name in ".hash", ".bb", "Makefile":
                self.assertIn(archive, files[name].read_text())
            for name, words in expected.items():
                self.assertIn(words, files[name].read_text())

    @unittest.skipUnless(shutil.which("luarocks"), "no luarocks here")
    def test_luarocks_makes_a_rock_that_lua_loads(self):
        sources, tree = self.folder / "sources", self.folder / "tree"
        shutil.copytree(ROOT, sources, ignore=shutil.ignore_patterns("build", ".git"))
        rockspec = self.recipes()[".rockspec"]
        rocks = "luarocks", "--lua-version=5.1", "--tree", tree
        quick = {"CMAKE_GENERATOR": "Ninja", "CMAKE_BUILD_TYPE": "Debug"}
        if shutil.which("ccache"):
            quick |= {"CMAKE_CXX_COMPILER_LAUNCHER": "ccache", "CCACHE_BASEDIR": str(sources),
                      "CCACHE_NOHASHDIR": "1"}
        done = subprocess.run([*rocks, "make", rockspec], cwd=sources, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True,
                              env={**os.environ, **quick})
        self.assertEqual(done.returncode, 0, done.stdout)
        [path] = tree.glob("lib/lua/5.1/echo.so")
        subprocess.run([os.environ["LUA"], "-e", "require 'echo'"], check=True,
                       env={**os.environ, "LUA_CPATH": str(path)}, stdout=subprocess.DEVNULL)
        self.assertTrue(list(tree.rglob("etc/qel/aec.conf")))


if __name__ == "__main__":
    unittest.main()
