#!/usr/bin/python3
"""What README.md says of errors, passwords and programs, with the program `tessel` and the example that it names:
readme_test.py PROGRAM EXAMPLE
"""

import os
import pathlib
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "kit"))
from program import SiteTest  # noqa: E402

TESSEL = TWO_WAYS = None  # set from the command line


def run(*command):
    """(exit status, standard output) of a client."""
    done = subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, timeout=60)
    return done.returncode, done.stdout.decode("latin-1")


def curl(*arguments):
    return run("curl", "--silent", "--noproxy", "*", "--max-time", "20", *arguments)


class Readme(SiteTest):
    def setUp(self):
        super().setUp()
        (self.site / "page.txt").write_text("a page\n")

    def serve(self, *options):
        return self.start([TESSEL, "--server-port", "0", *options, self.site])

    def test_programs_take_an_error_page_for_a_success_unless_they_are_switched_off(self):
        is_ok = "fetch(process.argv[1]).then(answer => console.log(answer.ok))"
        for option, failed, ok in [("--verbose-errors-enable", 0, "true\n"),
                                   ("--no-verbose-errors-enable", 22, "false\n")]:
            with self.subTest(option):
                program = self.serve(option)
                status, page = curl("--fail", program.address + "none.deb")
                self.assertEqual((status, page != ""), (failed, failed == 0))
                self.assertEqual(run("node", "-e", is_ok, program.address + "none.deb"), (0, ok))
                program.wait_for_output('"GET /none.deb HTTP/1.1" 404 ')

    def test_the_help_says_so_too(self):
        self.assertIn("Send errors as pages, with status 200", run(TESSEL, "--help")[1])

    def test_any_part_of_the_password_file_lets_in(self):
        (self.folder / "users").write_text("ann:secret\n")
        program = self.serve("--authentication-source-file", self.folder / "users", "--no-verbose-errors-enable")
        for credentials, status in [("ann:secret", 0), ("ANN:SECRET", 0), ("ann:s", 0), ("n:sec", 0), ("ann:", 0),
                                    ("ann:other", 22), ("ann:secret1", 22), ("bob:secret", 22)]:
            with self.subTest(credentials):
                self.assertEqual(curl("--fail", "--user", credentials, program.address + "page.txt")[0], status)

    def test_the_example_does_not_start_without_its_password_file(self):
        done = subprocess.run([TWO_WAYS, "run", self.site, self.folder / "none"], stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, timeout=60)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertRegex(done.stderr, r"\A\S+/none cannot be read: .*open to every client\n\Z")

    def test_a_program_gets_no_input_and_1024_bytes_of_its_output_count(self):
        (self.site / "many.exe").write_text("#!/bin/sh\nhead -c 2000 /dev/zero | tr '\\0' x\n")
        (self.site / "input.exe").write_text('#!/bin/sh\necho "[$(cat)]"\n')
        for program in self.site.glob("*.exe"):
            program.chmod(0o755)
        program = self.serve("--cgi-enable")
        self.assertEqual(curl(program.address + "many.exe"), (0, "x" * 1024))
        self.assertEqual(curl("--data", "a=1", program.address + "input.exe"), (0, "[]\n"))

    def test_what_is_no_program_in_the_default_folder_of_programs_is_public(self):
        (self.site / "scripts").mkdir()
        (self.site / "scripts" / "tool.conf").write_text("a secret\n")
        program = self.serve("--cgi-enable")
        self.assertEqual(curl("--fail", program.address + "scripts/tool.conf"), (0, "a secret\n"))


if __name__ == "__main__":
    TESSEL, TWO_WAYS = map(os.path.abspath, sys.argv[1:3])
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2)
