"""Programs that serve, for tests in Python.

A program tells on standard error where it serves: "Open http://127.0.0.1:8080/".
"""

import http.client
import os
import pathlib
import re
import subprocess
import tempfile
import time
import unittest
import urllib.parse

START_SECONDS = 30  # a start takes milliseconds; a busy machine under sanitizers takes longer
END_SECONDS = 30


class Program:
    """A program from its start to its end; ends it when the block is left.

        with Program(["build/release/tessel", "--server-port=0", "site"]) as program:
            fetch(program.address)

    `before` is called in the new process before the program takes over.
    """

    def __init__(self, command, cwd=None, environment=None, before=None):
        self._out = tempfile.TemporaryFile()
        self._err = tempfile.TemporaryFile()
        self.process = subprocess.Popen([str(part) for part in command], cwd=cwd, env=environment,
                                        preexec_fn=before, stdin=subprocess.DEVNULL, stdout=self._out, stderr=self._err)
        try:
            self.address = self._wait_for_address()
        except BaseException:
            self.__exit__()
            raise
        self.port = urllib.parse.urlsplit(self.address).port

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        self._out.close()
        self._err.close()

    @property
    def output(self):
        """What it wrote to standard output so far, as lines without their ends."""
        return self._text(self._out).splitlines()

    @property
    def errors(self):
        """What it wrote to standard error so far, as lines without their ends."""
        return self._text(self._err).splitlines()

    def end(self, signal):
        """Sends `signal` to the program and answers its exit status, which is to come soon."""
        self.process.send_signal(signal)
        return self.process.wait(END_SECONDS)

    def wait_for_output(self, pattern):
        """The first line of standard output that matches; it is to come soon."""
        return self._wait(lambda: next((line for line in self.output if re.search(pattern, line)), None),
                          "line like %s" % pattern)

    def _wait_for_address(self):
        def find():
            match = re.search(r"^Open (http://\S+)\n", self._text(self._err), re.MULTILINE)
            if match:
                return match.group(1)
            if self.process.poll() is not None:
                raise AssertionError("it ended with %d: %s" % (self.process.returncode, self._text(self._err)))
            return None

        return self._wait(find, "address")

    def _wait(self, find, what):
        limit = time.monotonic() + START_SECONDS
        while time.monotonic() < limit:
            found = find()
            if found:
                return found
            time.sleep(0.01)
        raise AssertionError("no %s in %d seconds; output: %s; errors: %s" %
                             (what, START_SECONDS, self._text(self._out), self._text(self._err)))

    @staticmethod
    def _text(file):
        return os.pread(file.fileno(), 1 << 24, 0).decode("utf-8", "backslashreplace")


class SiteTest(unittest.TestCase):
    """A test with a folder of its own, `folder`, and in it `site`, which is empty."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name).resolve()
        self.site = self.folder / "site"
        self.site.mkdir()

    def start(self, command):
        """A program that ends with the test."""
        program = Program(command)
        self.addCleanup(program.__exit__)
        return program


def ask(port, path, body=None, headers=()):
    """The answer, with `data` in it: to a GET, or a POST when there is a body."""
    connection = http.client.HTTPConnection("127.0.0.1", port, timeout=20)
    try:
        connection.request("GET" if body is None else "POST", path, body, dict(headers))
        answer = connection.getresponse()
        answer.data = answer.read()
        return answer
    finally:
        connection.close()
