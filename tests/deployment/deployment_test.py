#!/usr/bin/python3
"""The recipes of examples/deployment with real proxies, clients and processes:

    deployment_test.py TESSEL BEHIND_PROXY CLASS...

TESSEL is the program, BEHIND_PROXY the example host of that name, CLASS one or more of the classes below.
"""

import base64
import pathlib
import re
import signal
import socket
import subprocess
import sys
import unittest

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "kit")]
import proxies  # noqa: E402
import sandbox  # noqa: E402
from program import Program, SiteTest  # noqa: E402

TESSEL = BEHIND_PROXY = None  # set from the command line
UNIT = "tessel@.service"
CLIENT = "127.0.0.9"  # clients come from here; the proxies connect from 127.0.0.1
PROTOCOLS = ("--http1.1", "--http2")  # names of header lines come in any case with the one, in lower with the other
ANN = base64.b64encode(b"ann:secret-word").decode()
BIG = bytes(range(256)) * 12_000


def unit_command(port, site, *more):
    """What the unit starts, for this site; `more` are further options."""
    line = re.search(r"^ExecStart=(.*)$", (proxies.RECIPES / UNIT).read_text(), re.MULTILINE).group(1)
    words = line.replace("%i", str(port)).split()
    if (words[0], words[-1]) != ("/usr/local/bin/tessel", "/srv/tessel"):
        raise AssertionError("ExecStart of %s is %s" % (UNIT, line))
    return [TESSEL, *words[1:-1], *map(str, more), site]


def curl(*arguments):
    """(status code, body) of one request; status 0 where no answer came. `arguments` end with the address."""
    done = subprocess.run(["curl", "--silent", "--noproxy", "*", "--max-time", "20", "--interface", CLIENT,
                           "--write-out", "\n%{http_code}", *map(str, arguments)],
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, timeout=60)
    body, _, code = done.stdout.rpartition(b"\n")
    return int(code), body


class Site(SiteTest):
    def setUp(self):
        super().setUp()
        self.folder.chmod(0o755)  # a proxy may run as a user of its own
        (self.site / "index.html").write_bytes(b"<html><body>start</body></html>\n")
        (self.site / "a b.txt").write_bytes(b"blank\n")
        (self.site / "big.bin").write_bytes(BIG)


class ProxyTests:
    """What every recipe must do. A class below has KIND."""

    CHUNKS = 200  # the status of a POST whose body comes in chunks, without a length

    def before(self, command):
        """The proxy, before two processes that `command(port)` starts."""
        self.processes = [self.start(command(0)) for _ in range(2)]
        return self.proxy_before(self.processes)

    def proxy_before(self, processes):
        folder = self.folder / "proxy"
        folder.mkdir()
        self.proxy = self.KIND(folder, [process.port for process in processes])
        self.addCleanup(self.proxy.__exit__)

    def before_tessel(self, *more):
        self.before(lambda port: unit_command(port, self.site, *more))

    def fetch(self, path, *arguments):
        return curl("--cacert", self.folder / "proxy" / "cert.pem", "--resolve",
                    "%s:%d:127.0.0.1" % (proxies.NAME, self.proxy.port), *arguments,
                    "https://%s:%d%s" % (proxies.NAME, self.proxy.port, path))

    def requests_of(self, process, mark):
        return [line for line in process.output if mark in line]

    def test_pages_and_status_codes_arrive(self):
        self.before_tessel()
        for protocol in PROTOCOLS:
            with self.subTest(protocol):
                self.assertEqual(self.fetch("/", protocol), (200, (self.site / "index.html").read_bytes()))
                self.assertEqual(self.fetch("/a%20b.txt", protocol), (200, b"blank\n"))
                self.assertEqual(self.fetch("/big.bin", protocol), (200, BIG))
                self.assertEqual(self.fetch("/none.html", protocol)[0], 404)

    def test_error_pages_come_with_200_unless_they_are_switched_off(self):
        self.before_tessel("--verbose-errors-enable")
        status, page = self.fetch("/none.html")
        self.assertEqual(status, 200)
        self.assertIn(b"404", page)

    def test_the_body_of_a_post_arrives(self):
        self.before_tessel("--trap-file-enable")
        body = self.folder / "body"
        for protocol in PROTOCOLS:
            for size in (3, 5_000, 300_000):
                with self.subTest(protocol, size=size):
                    body.write_bytes(BIG[:size])
                    self.assertEqual(self.fetch("/form.echo", protocol, "--data-binary", "@%s" % body),
                                     (200, BIG[:size]))
        self.assertEqual(self.fetch("/form.echo", "--http1.1", "--header", "Expect: 100-continue", "--data", "a=1"),
                         (200, b"a=1"))

    def test_a_body_without_a_length(self):
        self.before_tessel("--trap-file-enable")
        status, body = self.fetch("/form.echo", "--http1.1", "--header", "Transfer-Encoding: chunked", "--data", "a=1")
        self.assertEqual(status, self.CHUNKS)
        if status == 200:
            self.assertEqual(body, b"a=1")

    def test_passwords_are_asked_for_through_the_proxy(self):
        closed = self.site / "closed"
        closed.mkdir()
        (closed / "htaccess.txt").write_text("realm: The site\nann:secret-word\n")
        (closed / "page.txt").write_bytes(b"for ann\n")
        self.before_tessel("--authentication-source", "directory-file")
        for protocol in PROTOCOLS:
            with self.subTest(protocol):
                self.assertEqual(self.fetch("/closed/page.txt", protocol)[0], 401)
                self.assertEqual(self.fetch("/closed/page.txt", protocol, "--user", "ann:wrong")[0], 401)
                for right in (["--user", "ann:secret-word"], ["--header", "authorization: Basic " + ANN]):
                    self.assertEqual(self.fetch("/closed/page.txt", protocol, *right), (200, b"for ann\n"), right)

    def test_the_host_knows_the_client_whatever_the_client_pretends(self):
        self.before(lambda port: [BEHIND_PROXY, port, self.site])
        forged = ["--header", "A: X-Forwarded-For: 6.6.6.6", "--header", "X-Forwarded-For: 6.6.6.6", "--referer",
                  "X-Forwarded-For: 6.6.6.6", "--user", "ann:secret"]
        for protocol in PROTOCOLS:
            for more in ([], forged):
                with self.subTest(protocol, more=more):
                    name = b"ann" if more else b""
                    self.assertEqual(self.fetch("/client", protocol, *more),
                                     (200, CLIENT.encode() + b"\n" + name + b"\n"))

    def test_the_access_log_has_the_address_of_the_proxy_and_the_agent_of_the_client(self):
        self.before_tessel()
        for protocol in PROTOCOLS:
            with self.subTest(protocol):
                self.fetch("/a%20b.txt?log", protocol, "--user-agent", "", "--header", "user-agent: agent" + protocol)
                line = proxies.wait_for(lambda: next((line for process in self.processes
                                                      for line in self.requests_of(process, "agent" + protocol)), None),
                                        "log line")
                self.assertRegex(line, r"^127\.0\.0\.1 ")

    def test_the_processes_share_the_load(self):
        self.before_tessel()
        for _ in range(20):
            self.assertEqual(self.fetch("/a%20b.txt?load"), (200, b"blank\n"))
        counts = proxies.wait_for(lambda: self.counts("?load", 20), "20 log lines")
        self.assertGreaterEqual(min(counts), 8, counts)

    def counts(self, mark, all_of_them):
        counts = [len(self.requests_of(process, mark)) for process in self.processes]
        return counts if sum(counts) == all_of_them else None

    def test_a_stopped_process_is_found_dead_and_gets_requests_again_when_it_is_back(self):
        self.before_tessel()
        one, two = self.processes
        self.assertEqual(one.end(signal.SIGTERM), 0)
        for _ in range(10):
            self.assertEqual(self.fetch("/a%20b.txt?down"), (200, b"blank\n"))
        proxies.wait_for(lambda: len(self.requests_of(two, "?down")) == 10, "requests at the other process")
        self.proxy.wait_until_one_is_down()
        again = self.start(unit_command(one.port, self.site))

        def is_asked_again():
            self.assertEqual(self.fetch("/a%20b.txt?back"), (200, b"blank\n"))
            return self.requests_of(again, "?back")

        proxies.wait_for(is_asked_again, "request at the process that is back")


class CheckTests:
    """For proxies that ask the processes by themselves."""

    def test_a_site_that_asks_its_checks_for_a_password_is_found_dead(self):
        passwords = self.folder / "passwords"
        passwords.write_text("ann:secret-word\n")
        self.before_tessel("--authentication-source-file", passwords)
        self.proxy.wait_until_one_is_down()


class PatienceTests:
    """For those that wait seconds for the answer to a check, not a minute."""

    def test_a_process_that_hangs_is_found_dead(self):
        self.before_tessel()
        self.processes[0].process.send_signal(signal.SIGSTOP)
        socket.create_connection(("127.0.0.1", self.processes[0].port), 20).close()  # it can still be connected to
        self.proxy.wait_until_one_is_down()
        for _ in range(10):
            self.assertEqual(self.fetch("/a%20b.txt?hangs"), (200, b"blank\n"))
        proxies.wait_for(lambda: len(self.requests_of(self.processes[1], "?hangs")) == 10, "requests at the other one")


class NginxTest(ProxyTests, Site):
    KIND = proxies.Nginx


class HAProxyTest(ProxyTests, CheckTests, PatienceTests, Site):
    KIND = proxies.HAProxy
    CHUNKS = 411


class ApacheTest(ProxyTests, CheckTests, Site):
    KIND = proxies.Apache


class CaddyTest(ProxyTests, CheckTests, PatienceTests, Site):
    KIND = proxies.Caddy
    CHUNKS = 411


class UnitTest(Site):
    def test_systemd_understands_it_and_finds_it_well_shut(self):
        unit = self.folder / UNIT
        unit.write_text(proxies.recipe(UNIT, {"/usr/local/bin/tessel": TESSEL}))
        for command in (["verify"], ["security", "--offline=yes", "--threshold=15", "--no-pager"]):
            done = subprocess.run(["systemd-analyze", *command, unit], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  stderr=subprocess.STDOUT, timeout=60)
            self.assertEqual(done.returncode, 0, done.stdout.decode())

    def test_the_program_needs_nothing_that_its_filters_refuse(self):
        filters = sandbox.filters_of((proxies.RECIPES / UNIT).read_text())
        (self.site / "program.exe").write_text("#!/bin/sh\necho from a program\n")
        (self.site / "program.exe").chmod(0o755)
        command = unit_command(0, self.site, "--trap-file-enable", "--cgi-enable", "--directory-browse-enable")
        with Program(command, before=lambda: sandbox.enter(filters)) as program:
            for path, words in [("/", b"start"), ("/big.bin", BIG), ("/program.exe", b"from a program\n")]:
                status, body = curl(program.address + path[1:])
                self.assertEqual(status, 200)
                self.assertIn(words, body)
            self.assertEqual(curl("--data", "a=1", program.address + "form.echo"), (200, b"a=1"))
            self.assertEqual(program.end(signal.SIGTERM), 0)

    def test_the_filters_refuse_what_they_are_there_for(self):
        filters = sandbox.filters_of((proxies.RECIPES / UNIT).read_text())
        for attempt in ("import socket; socket.socket(socket.AF_INET6)", "import os; os.chroot('/')"):
            done = subprocess.run([sys.executable, "-c", attempt], preexec_fn=lambda: sandbox.enter(filters),
                                  stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=60)
            self.assertEqual(done.returncode, -signal.SIGSYS, attempt)


class PageTest(unittest.TestCase):
    def test_every_recipe_is_explained(self):
        page = (proxies.ROOT / "docs" / "deployment.md").read_text()
        for file in proxies.RECIPES.iterdir():
            self.assertIn("examples/deployment/" + file.name, page)


if __name__ == "__main__":
    TESSEL, BEHIND_PROXY = (str(pathlib.Path(each).resolve()) for each in sys.argv[1:3])
    unittest.main(argv=sys.argv[:1] + sys.argv[3:], verbosity=2)
