#!/usr/bin/python3
"""Builds a small host against the library, as its users do, runs it and fetches a page from it with curl.

    consume_test.py BUILD SCRATCH

BUILD is a build folder of the library, SCRATCH a folder for this test alone. Needs TESSEL_CXX, the compiler.
"""

import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import unittest

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "kit"))
from program import Program  # noqa: E402

BUILD_SECONDS = 600


def call(*command):
    """Runs a command that has to succeed; its output is shown when it does not."""
    done = subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, timeout=BUILD_SECONDS)
    if done.returncode:
        raise AssertionError("%s:\n%s" % (" ".join(map(str, command)), done.stdout.decode(errors="replace")))
    return done.stdout


def build_host(project, folder, *options):
    """Configures and builds a project anew; answers the folder with its programs."""
    shutil.rmtree(folder, ignore_errors=True)
    call("cmake", "-S", HERE / project, "-B", folder, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
         "-DCMAKE_CXX_COMPILER=" + os.environ["TESSEL_CXX"], *options)
    call("cmake", "--build", folder, "--target", "consume_host", "consume_toolbox")
    return folder


class Consume(unittest.TestCase):
    build = scratch = None  # set from the command line

    def serve_a_page(self, host):
        """The host uses the library alone."""
        page = b"<html><body>served by a host of its own</body></html>\n"
        with tempfile.TemporaryDirectory() as folder:
            pathlib.Path(folder, "index.html").write_bytes(page)
            with Program([host, folder]) as program:
                fetched = call("curl", "--silent", "--show-error", "--fail", "--max-time", "20", program.address)
                self.assertEqual(fetched, page)
                program.wait_for_output(r'"GET / HTTP/1\.1" 200 ')
                self.assertEqual(program.end(signal.SIGTERM), 0)

    def use_the_toolbox(self, program):
        self.assertEqual(call(program).decode().splitlines(),
                         ["Connection refused.", "127.0.0.1", "192.0.2.7", "Read", "connected"])

    def test_the_library_holds_nothing_of_the_toolbox(self):
        libraries = {p.name.split(".")[0]: p.read_bytes() for p in self.build.glob("lib*.[as]*") if p.is_file()}
        for name in (b"cls_NTSecurity", b"cls_INet", b"cls_WinSock", b"NotifyingSocket"):
            self.assertIn(name, libraries["libTesselToolbox"])
            self.assertNotIn(name, libraries["libTesselServer"])

    def test_an_installed_copy_is_found(self):
        prefix = self.scratch / "prefix"
        shutil.rmtree(prefix, ignore_errors=True)
        call("cmake", "--install", self.build, "--prefix", prefix)
        installed = {p.name for p in prefix.glob("include/TesselServer/*")}
        self.assertLessEqual({"Tessel.h", "Event.h", "EventLoop.h", "PropertyBag.h", "Error.h", "Timer.h",
                              "cls_INet.h", "cls_NTSecurity.h", "cls_WinSock.h", "NotifyingSocket.h"}, installed)
        self.assertEqual([p for p in prefix.rglob("*.h") if p.parent.name != "TesselServer"], [])
        built = build_host("find_package", self.scratch / "find_package", "-DCMAKE_PREFIX_PATH=%s" % prefix,
                           "-DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF", "-DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF")
        self.serve_a_page(built / "consume_host")
        self.use_the_toolbox(built / "consume_toolbox")

    def test_the_sources_are_added_as_a_folder(self):
        # all sources of a target compiled together, as some projects do for all that they hold
        built = build_host("add_subdirectory", self.scratch / "add_subdirectory", "-DCMAKE_UNITY_BUILD=ON",
                           "-DCMAKE_UNITY_BUILD_BATCH_SIZE=0")
        self.serve_a_page(built / "consume_host")
        self.use_the_toolbox(built / "consume_toolbox")

    def configured(self, source, name):
        """The settings of a project that was configured without any."""
        folder = self.scratch / name
        shutil.rmtree(folder, ignore_errors=True)
        call("cmake", "-S", source, "-B", folder, "-G", "Ninja", "-DCMAKE_CXX_COMPILER=" + os.environ["TESSEL_CXX"])
        lines = (line.partition("=") for line in (folder / "CMakeCache.txt").read_text().splitlines())
        return {key.partition(":")[0]: value for key, _, value in lines}

    def test_a_parent_keeps_its_build_type(self):
        self.assertEqual(self.configured(HERE / "add_subdirectory", "parent")["CMAKE_BUILD_TYPE"], "")

    def test_by_itself_it_is_optimised_and_builds_no_tests(self):
        settings = self.configured(HERE.parents[1], "plain")
        self.assertEqual(settings["CMAKE_BUILD_TYPE"], "Release")
        self.assertEqual({name: settings["TESSEL_BUILD_" + name] for name in ("HOST", "EXAMPLES", "TESTS")},
                         {"HOST": "ON", "EXAMPLES": "ON", "TESTS": "OFF"})


if __name__ == "__main__":
    Consume.build, Consume.scratch = map(pathlib.Path, sys.argv[1:3])
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2)
