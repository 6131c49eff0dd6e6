#!/usr/bin/python3
"""What the program `tessel` writes, whatever its readers do: program_log_test.py PROGRAM"""

import os
import pathlib
import re
import select
import signal
import socket
import subprocess
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "kit"))
from program import Program, SiteTest  # noqa: E402

TESSEL = None  # set from the command line

LONG_URL_BYTES = 8000       # a log line shows 8 KiB of a request line
KEPT_LINES = 4 * 1024 * 1024 // LONG_URL_BYTES  # so many wait at most for the reader of an output
MANY = 3 * KEPT_LINES       # more than are kept: one part is being written, another waits
START_SECONDS = 30
END_SECONDS = 3             # what hangs never ends
PROMPT_SECONDS = 1          # the end that is promised
PROMPT_TRIES = 5            # a busy machine delays some ends, not each
LINE_SECONDS = 2            # lines come within a second


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def ask(port, request):
    """The whole answer to `request`."""
    with socket.create_connection(("127.0.0.1", port), timeout=START_SECONDS) as client:
        client.sendall(request)
        return b"".join(iter(lambda: client.recv(65536), b""))


def full_pipe():
    """(reading end, writing end) of a pipe into which nothing more fits."""
    reading, writing = os.pipe()
    os.set_blocking(writing, False)
    try:
        while True:
            os.write(writing, b"x" * 4096)
    except BlockingIOError:
        os.set_blocking(writing, True)
    return reading, writing


def read_until(descriptor, pattern):
    """What is read up to a text that matches `pattern`, or to the end; it is to come soon."""
    text = ""
    while not re.search(pattern, text):
        if not select.select([descriptor], [], [], START_SECONDS)[0]:
            raise AssertionError("no %s in: %s" % (pattern, text[-1000:]))
        part = os.read(descriptor, 1 << 20)
        if not part:
            break
        text += part.decode()
    return text


class LogTest(SiteTest):
    def setUp(self):
        super().setUp()
        (self.site / "index.html").write_text("<html><body>start</body></html>\n")

    def pipe(self, full=False):
        reading, writing = full_pipe() if full else os.pipe()
        self.addCleanup(os.close, reading)
        return reading, writing

    def start(self, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL):
        """A program that serves, with these outputs, on `self.port`; ended with the test."""
        self.port = free_port()
        process = subprocess.Popen([TESSEL, "--server-port", str(self.port), self.site], stdin=subprocess.DEVNULL,
                                   stdout=stdout, stderr=stderr)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        limit = time.monotonic() + START_SECONDS
        while time.monotonic() < limit:
            with socket.socket() as probe:
                if probe.connect_ex(("127.0.0.1", self.port)) == 0:
                    return process
            self.assertIsNone(process.poll(), "it ended")
            time.sleep(0.01)
        raise AssertionError("it does not listen")

    def serves(self):
        self.assertIn(b"start", ask(self.port, b"GET / HTTP/1.0\r\n\r\n"))

    def ends(self, process, number=signal.SIGTERM):
        """Ends the program; how many seconds it took from the signal to the exit."""
        begin = time.monotonic()
        exited = os.pidfd_open(process.pid)
        process.send_signal(number)
        select.select([exited], [], [], END_SECONDS)  # wakes at the exit; a wait with a limit looks from time to time
        took = time.monotonic() - begin
        os.close(exited)
        self.assertLess(took, END_SECONDS)
        self.assertEqual(process.wait(END_SECONDS), 0)
        return took

    def ends_promptly(self, begin, number=signal.SIGTERM):
        """One of several programs that `begin` starts ends within a second; one that always takes longer fails."""
        took = []
        while not took or (took[-1] > PROMPT_SECONDS and len(took) < PROMPT_TRIES):
            took.append(self.ends(begin(), number))
        self.assertLessEqual(took[-1], PROMPT_SECONDS, "all tries: %s" % took)


class StalledReaders(LogTest):
    def test_a_log_that_is_not_read_holds_nothing_and_its_lost_lines_are_counted(self):
        reading, writing = self.pipe()
        process = self.start(stdout=writing)
        os.close(writing)
        for i in range(MANY):
            url = b"/?%d-" % i
            self.assertIn(b"start", ask(self.port, b"GET %s HTTP/1.0\r\n\r\n" % url.ljust(LONG_URL_BYTES, b"u")))
        text = read_until(reading, r"Lost lines.*\n")
        logged = [int(n) for n in re.findall(r'"GET /\?(\d+)-', text)]
        lost = re.findall(r"(?m)^#Lost lines: (\d+) ", text)
        self.assertEqual(len(lost), 1, "one line says it")
        self.assertEqual(logged, list(range(MANY - int(lost[0]))), "those that are kept are the first, in order")
        self.assertTrue(text.splitlines()[-1].startswith("#Lost lines: "), "it is where the lines would be")
        self.assertGreaterEqual(len(logged), KEPT_LINES // 2)
        self.serves()
        self.assertRegex(read_until(reading, r"\n"), r'\A\S+ - - \[.*\] "GET / HTTP/1.0" 200 \d+ "" ""\n\Z')
        self.ends(process)

    def test_it_ends_within_a_second_whatever_its_outputs_do(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            for stalled in (("stdout",), ("stderr",), ("stdout", "stderr")):
                def begin():
                    ends = {name: self.pipe(full=True)[1] for name in stalled}
                    process = self.start(**ends)
                    for descriptor in ends.values():
                        os.close(descriptor)
                    for _ in range(3):
                        self.serves()
                    return process

                with self.subTest(number.name, stalled=stalled):
                    self.ends_promptly(begin, number)

    def test_a_terminal_that_takes_nothing_and_a_full_disk_hold_nothing_either(self):
        terminal, end = os.openpty()
        self.addCleanup(os.close, terminal)
        with open("/dev/full", "wb") as full:
            for what, output in (("terminal", end), ("disk", full)):
                def begin():
                    process = self.start(stdout=output)
                    for _ in range(100):  # far more than a terminal takes in
                        ask(self.port, b"GET %s HTTP/1.0\r\n\r\n" % b"/?".ljust(LONG_URL_BYTES, b"u"))
                    self.serves()
                    return process

                with self.subTest(what):
                    self.ends_promptly(begin)
        os.close(end)

    def test_one_output_that_is_not_read_does_not_hold_the_other(self):
        _, stalled = self.pipe(full=True)
        reading, writing = self.pipe()
        for outputs, words in (({"stdout": stalled, "stderr": writing}, r"Open http\S+\n"),
                               ({"stdout": writing, "stderr": stalled}, r'"GET / HTTP/1.0" 200')):
            with self.subTest(words):
                process = self.start(**outputs)
                self.serves()
                read_until(reading, words)
                self.ends(process)
        os.close(stalled)
        os.close(writing)

    def test_outputs_whose_readers_have_gone_harm_nothing(self):
        ends = {}
        for name in ("stdout", "stderr"):
            reading, ends[name] = os.pipe()
            os.close(reading)
        process = self.start(**ends)
        for descriptor in ends.values():
            os.close(descriptor)
        for _ in range(20):
            self.serves()
        self.ends(process)

    def test_what_is_read_late_is_still_written_at_the_end(self):
        reading, writing = self.pipe(full=True)
        process = self.start(stdout=writing)
        os.close(writing)
        self.serves()
        process.send_signal(signal.SIGTERM)
        text = read_until(reading, r" - Server Stopped\.\n")
        self.assertEqual(process.wait(END_SECONDS), 0)
        self.assertIn('"GET / HTTP/1.0" 200', text)
        self.assertRegex(text.splitlines()[-1], r"^#\[.*\] - Server Stopped\.$")


class Lines(LogTest):
    def test_lines_are_written_in_blocks_and_soon(self):
        def writes():
            return int(re.search(r"syscw: (\d+)", pathlib.Path("/proc/%d/io" % program.process.pid).read_text())[1])

        with Program([TESSEL, "--server-port=0", self.site]) as program:
            program.wait_for_output("Server Started")
            for i in range(4):  # a sanitizer writes to a pipe of its own for each kind of object that it has not seen
                ask(program.port, b"GET /?seen%d HTTP/1.0\r\n\r\n" % i)
            program.wait_for_output(r'"GET /\?seen3 ')
            before, begin = writes(), time.monotonic()
            for i in range(300):
                ask(program.port, b"GET /?%d HTTP/1.0\r\n\r\n" % i)
            asked = time.monotonic()
            program.wait_for_output(r'"GET /\?299 ')
            now = time.monotonic()
            self.assertLess(now - asked, LINE_SECONDS)
            self.assertLess(writes() - before, 6 * (now - begin) + 3, "five blocks a second")

    def test_no_line_is_lost_at_the_end(self):
        with Program([TESSEL, "--server-port=0", self.site]) as program:
            for i in range(200):
                ask(program.port, b"GET /?%d HTTP/1.0\r\n\r\n" % i)
            self.assertEqual(program.end(signal.SIGTERM), 0)
            self.assertEqual(re.findall(r'"GET /\?(\d+) ', "\n".join(program.output)), [str(i) for i in range(200)])
            self.assertRegex(program.output[-1], r"^#\[.*\] - Server Stopped\.$")

    def test_a_line_tells_a_byte_from_its_code(self):
        with Program([TESSEL, "--server-port=0", self.site]) as program:
            for sent in (b"\x1b[2J", b"\\x1B[2J", b"\x9b2J", b"\xc2\x9b2J", b"\xc3\x80\xe2\x82\xac", b"\xe9"):
                ask(program.port, b"GET /?%s HTTP/1.0\r\n\r\n" % sent)
            ask(program.port, b"GET /last HTTP/1.0\r\n\r\n")
            program.wait_for_output("GET /last ")
            self.assertEqual(re.findall(r'"GET /\?(.*?) HTTP', "\n".join(program.output)),
                             [r"\x1B[2J", r"\\x1B[2J", r"\x9B2J", r"\xC2\x9B2J", "\u00c0\u20ac", r"\xe9"])


if __name__ == "__main__":
    TESSEL = os.path.abspath(sys.argv[1])
    unittest.main(argv=sys.argv[:1] + sys.argv[2:], verbosity=2)
