#!/usr/bin/python3
"""Each public header compiles alone and twice, with warnings as errors, from a folder that holds nothing else.

Needs TESSEL_CXX, the compiler, in the environment; without it, c++.
"""

import os
import pathlib
import subprocess
import tempfile
import unittest

import house_rules

ROOT = pathlib.Path(__file__).resolve().parents[2]
COMPILER = os.environ.get("TESSEL_CXX", "c++")
FLAGS = ["-std=c++20", "-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror", "-fsyntax-only"]


def compile_text(source, include_dir):
    """What the compiler says, "" when it is content."""
    done = subprocess.run([COMPILER, *FLAGS, "-x", "c++", "-I", str(include_dir), "-"], input=source.encode(),
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=120)
    return done.stdout.decode(errors="replace") if done.returncode else ""


class PublicHeaders(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.include = pathlib.Path(folder.name)
        (self.include / "TesselServer").mkdir()

    def test_each_compiles_alone(self):
        tree = {p.relative_to(ROOT).as_posix(): p.read_bytes() for p in ROOT.glob("*/sources.cmake")}
        public = house_rules.public_headers(tree)
        self.assertIn("Tessel.h", public)
        for name, path in public.items():
            (self.include / "TesselServer" / name).write_bytes((ROOT / path).read_bytes())
        for name in sorted(public):
            with self.subTest(name):
                line = "#include <TesselServer/%s>\n" % name
                self.assertEqual(compile_text(line + line, self.include), "")

    def test_a_header_that_needs_another_is_noticed(self):
        (self.include / "TesselServer" / "Bad.h").write_text("#pragma once\nstd::string Name();\n")
        self.assertIn("error", compile_text("#include <TesselServer/Bad.h>\n", self.include))
        self.assertEqual(compile_text("#include <string>\n#include <TesselServer/Bad.h>\n", self.include), "")


if __name__ == "__main__":
    unittest.main(verbosity=2)
