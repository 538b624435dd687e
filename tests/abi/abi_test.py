"""What echo.so shows and needs: exported and undefined names, libraries, names found by dlsym; and
the records that hosts compile against: bytes on 64-bit and on 32-bit processors, fields in order."""
import ctypes
import os
import pathlib
import re
import subprocess
import unittest

HERE = pathlib.Path(__file__).parent
ROOT = HERE.parents[1]
MODULE = os.environ["QEL_BUILD"] + "/echo.so"
HEADERS = list((ROOT / "qel").rglob("*.h"))


def output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def names(library, which):
    listing = output(os.environ["NM"], "-D", which, library)
    return {line.split()[-1].split("@")[0] for line in listing.splitlines()}


def declared(headers):
    found = set()
    for header in headers:
        text = re.sub(r"//.*", "", header.read_text())
        for statement in re.findall(r"QEL_API\b([^;{]*);", text):
            pointer = re.match(r"[^(]*\(\*(\w+)\)", statement)
            found.add((pointer or re.search(r"(\w+)\s*(?:\(|$)", statement)).group(1))
    return found


class Abi(unittest.TestCase):
    maxDiff = None

    def test_exports_are_the_list_and_declared(self):
        expected = set((HERE / "exports.txt").read_text().split())
        self.assertEqual(declared(HEADERS), expected)
        if not os.environ["QEL_NEON"]:
            expected -= declared(header for header in HEADERS if header.stem.endswith("_neon"))
        self.assertEqual(names(MODULE, "--defined-only"), expected)

    def test_needs_lua_cjson_libc_and_libm_alone(self):
        needed = re.findall(r"\(NEEDED\).*\[(.*)\]", output(os.environ["READELF"], "-d", MODULE))
        self.assertEqual({name.split(".")[0] for name in needed}, {"libc", "libm", "libcjson"})
        allowed = {"_ITM_deregisterTMCloneTable", "_ITM_registerTMCloneTable", "__gmon_start__"}
        for name in needed:
            path = output(os.environ["CC"], "--sysroot=" + os.environ["SYSROOT"],
                          "-print-file-name=" + name)
            allowed |= names(path.strip(), "--defined-only")
        undefined = names(MODULE, "--undefined-only") - allowed
        self.assertEqual([name for name in undefined if not re.match(r"luaL?_\w+$", name)], [])

    def test_records_are_laid_out_as_listed(self):
        checks = '#include "qel/qel.h"\n'
        listed = (HERE / "records.txt").read_text()
        for record in re.findall(r"^(\w+) (\d+) (\d+):([^:]*)$", listed, re.MULTILINE):
            name, bytes_64, bytes_32, fields = record
            values = ", ".join(f".{field} = {{}}" for field in fields.split())  # in order, for C++
            checks += f"static_assert(sizeof({name}{{{values}}}) == " \
                      f"(sizeof(void*) == 8 ? {bytes_64} : {bytes_32}));\n"
        subprocess.run([os.environ["CC"], "--sysroot=" + os.environ["SYSROOT"], "-std=c++20", "-I", ROOT,
                        "-fsyntax-only", "-xc++", "-"], input=checks, text=True, check=True)

    @unittest.skipIf(os.environ["QEL_EMULATOR"], "Python loads modules of this machine only")
    def test_loaded_without_lua_it_has_cjson_and_filled_tables(self):
        module = ctypes.CDLL(MODULE)
        self.assertTrue(module.cJSON_Parse)
        for pointer in ("qel_vector_float32_add", "qel_fft_r2c_1d_float32", "_g_modules"):
            self.assertTrue(ctypes.c_void_p.in_dll(module, pointer).value, pointer)

    def test_umbrella_includes_every_header(self):
        umbrella = re.findall(r'#include "(.*)"', (ROOT / "qel/qel.h").read_text())
        self.assertEqual({ROOT / name for name in umbrella}, set(HEADERS) - {ROOT / "qel/qel.h"})


if __name__ == "__main__":
    unittest.main()
