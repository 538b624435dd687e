"""What a user gets: the installed tree, which a C project finds through CMake and through
pkg-config, moved elsewhere or below a sysroot, and which Lua finds."""
import os
import pathlib
import subprocess
import tempfile
import unittest

CMAKE, CC, SYSROOT = os.environ["CMAKE"], os.environ["CC"], os.environ["SYSROOT"]
TOOLCHAIN = os.environ["TOOLCHAIN"]
USER = pathlib.Path(__file__).parent / "user"


def output(*command, **environment):
    done = subprocess.run([str(word) for word in command], env={**os.environ, **environment},
                          stdout=subprocess.PIPE, text=True, check=True)
    return done.stdout


class Install(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(folder.cleanup)
        cls.folder = pathlib.Path(folder.name)
        install = CMAKE, "--install", os.environ["QEL_BUILD"], "--prefix"
        output(*install, cls.folder / "first")
        cls.moved = (cls.folder / "first").rename(cls.folder / "moved")
        cls.stage = cls.folder / "stage"  # a device's tree: prefix /usr below it
        output(*install, "/usr", DESTDIR=str(cls.stage))

    def starts(self, program, config, **environment):
        # The banner of the module comes first.
        said = output(*os.environ["QEL_EMULATOR"].split(), program, config, **environment)
        self.assertEqual(said.splitlines()[-1], "spu/aec v1.0.8, 1024 bytes")

    def build_by_pkg_config(self, name, **environment):
        flags = output("pkg-config", "--cflags", "--libs", "qel", **environment).split()
        program = self.folder / name
        sources = USER / "main.c", USER / "cancel.c"
        output(CC, *([f"--sysroot={SYSROOT}"] if SYSROOT else []), "-std=c99", "-pedantic-errors",
               "-Werror", *sources, "-o", program, *flags)
        return program, flags

    def build_by_cmake(self, name, tree):
        compiler = (f"-DCMAKE_TOOLCHAIN_FILE={USER.parents[2] / TOOLCHAIN}" if TOOLCHAIN else
                    f"-DCMAKE_C_COMPILER={CC}")
        output(CMAKE, "-S", USER, "-B", self.folder / name, f"-DCMAKE_FIND_ROOT_PATH={tree}",
               f"-DCMAKE_PREFIX_PATH={tree}", compiler)
        output(CMAKE, "--build", self.folder / name)
        return self.folder / name / "user"

    def test_c_project_uses_a_moved_tree(self):
        config = self.moved / "etc/qel/aec.conf"
        [pc] = self.moved.rglob("qel.pc")
        program, _ = self.build_by_pkg_config("moved_pc", PKG_CONFIG_PATH=str(pc.parent))
        self.starts(program, config)
        self.starts(self.build_by_cmake("moved_cmake", self.moved), config)

    def test_c_project_uses_a_sysroot(self):
        config = self.stage / "etc/qel/aec.conf"
        [pc], [module] = self.stage.rglob("qel.pc"), self.stage.rglob("echo.so")
        on_device = module.parent.relative_to(self.stage)
        there = {"LD_LIBRARY_PATH": str(module.parent)}
        program, flags = self.build_by_pkg_config("sysroot_pc", PKG_CONFIG_LIBDIR=str(pc.parent),
                                                  PKG_CONFIG_SYSROOT_DIR=str(self.stage))
        self.assertIn(f"-I{self.stage}/usr/include", flags)
        self.assertIn(f"-Wl,-rpath,/{on_device}", flags)
        self.starts(program, config, **there)
        self.starts(self.build_by_cmake("sysroot_cmake", self.stage / "usr"), config, **there)

    def test_lua_finds_module_and_examples_their_configuration(self):
        [module] = self.moved.rglob("echo.so")
        lua = os.environ["LUA"]
        said = output(lua, "-e", "print(type(require('echo').new))",
                      LUA_CPATH=f"{module.parent}/?.so")
        self.assertEqual(said.splitlines()[-1], "function")
        self.assertTrue((self.moved / "share/doc/qel/conf/aec.conf").samefile(
            self.moved / "etc/qel/aec.conf"))
        self.assertEqual((self.stage / "usr/share/doc/qel/conf").readlink(),
                         pathlib.Path("/etc/qel"))

    def test_the_tool_starts(self):
        for program in self.moved.rglob("bin/qel-aec"):
            said = output(*os.environ["QEL_EMULATOR"].split(), program, "--version",
                          LD_LIBRARY_PATH="")
            self.assertIn("spu/aec", said)
            self.assertTrue((self.moved / "share/man/man1/qel-aec.1").exists())

    def test_headers_are_public_ones(self):
        headers = {path.suffix for path in (self.moved / "include").rglob("*") if path.is_file()}
        self.assertEqual(headers, {".h"})


if __name__ == "__main__":
    unittest.main()
