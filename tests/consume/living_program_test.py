#!/usr/bin/python3
"""What the program `tessel` answers itself, and what its site's programs answer.

    living_program_test.py PROGRAM HOST CGI

HOST is the folder of the demonstration site and its error pages, CGI that of the site's programs.
"""

import json
import os
import pathlib
import random
import re
import signal
import subprocess
import sys
import time
import unittest
import xml.etree.ElementTree

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "kit"))
from program import SiteTest, ask  # noqa: E402

TESSEL = HOST = CGI = None  # set from the command line

TRAPPING = ["--trap-file-enable", "--trap-file-types", "json,svg,echo"]
PAGES = ["--ssi-enable", "--html-functions-enable"]
PROGRAM_BYTES = 1024  # what the server takes of a program's output


class LivingTest(SiteTest):
    def serve(self, *arguments, site=None):
        return self.start([TESSEL, "--server-port", "0", *arguments, site or self.site])


class HostAnswers(LivingTest):
    def test_the_statistics_are_json_and_count(self):
        program = self.serve(*TRAPPING, "--max-connections=9")
        (self.site / "big.bin").write_bytes(bytes(100_000))
        first = ask(program.port, "/status.json")
        self.assertEqual(first.status, 200)
        self.assertEqual(first.getheader("Content-Type"), "application/json")
        self.assertEqual(first.getheader("Cache-Control"), "no-store")
        status = json.loads(first.data)
        self.assertRegex(status.pop("upTime"), r"^00:00:00:\d\d$")
        self.assertIn(status.pop("upTimeSeconds"), range(60))
        self.assertEqual(status, {"version": "1.1.000", "requests": 0, "errors": 0, "kilobytesReceived": 0,
                                  "kilobytesSent": 0, "freeConnections": 9, "maxConnections": 9})
        for _ in range(3):
            self.assertEqual(len(ask(program.port, "/big.bin").data), 100_000)
        ask(program.port, "/none")
        last = json.loads(ask(program.port, "/STATUS.JSON").data)
        self.assertEqual(last["requests"], 5)
        self.assertIn(last["kilobytesSent"], range(293, 300))
        self.assertRegex(last["upTime"], r"^\d\d:\d\d:\d\d:\d\d$")
        self.assertEqual(last["upTimeSeconds"], int(last["upTime"][-2:]))

    def test_the_drawing_is_xml_and_shows_what_came(self):
        program = self.serve(*TRAPPING)
        for _ in range(7):
            ask(program.port, "/none")
        limit = time.monotonic() + 20
        highest = 0
        while highest < 1 and time.monotonic() < limit:
            time.sleep(0.2)
            answer = ask(program.port, "/requests.svg")
            root = xml.etree.ElementTree.fromstring(answer.data)
            shown = " ".join(root.itertext())
            highest = int((re.search(r"highest (\d+), now \d+", shown) or [0, 0])[1])
        self.assertGreaterEqual(highest, 1)
        self.assertEqual(answer.getheader("Content-Type"), "image/svg+xml")
        self.assertEqual(answer.getheader("Cache-Control"), "no-store")
        self.assertEqual((root.tag, root.get("width"), root.get("height")),
                         ("{http://www.w3.org/2000/svg}svg", "640", "240"))
        self.assertIn("requests per second", shown)
        self.assertIn("minutes ago", shown)
        self.assertEqual([each for each in root.iter() if "script" in each.tag], [])

    def test_a_form_comes_back_unchanged(self):
        program = self.serve(*TRAPPING)
        for body in (b"name=value&other=%C3%BC", b"\0\r\n\r\n<!--#echovar=TIME-->\xff\0", bytes(range(256)) * 40,
                     random.Random(7).randbytes(1 << 20)):
            answer = ask(program.port, "/form.echo", body)
            self.assertEqual((answer.status, answer.getheader("Content-Type")), (200, "text/plain; charset=utf-8"))
            self.assertEqual(answer.getheader("Cache-Control"), "no-store")
            self.assertTrue(answer.data == body, len(answer.data))
        self.assertEqual(ask(program.port, "/form.echo?a=1").data, b"")

    def test_other_requests_of_these_types_are_files(self):
        (self.site / "sub").mkdir()
        (self.site / "sub" / "status.json").write_text("[1]")
        (self.site / "logo.svg").write_text("<svg/>")
        program = self.serve(*TRAPPING)
        self.assertEqual(ask(program.port, "/sub/status.json").data, b"[1]")
        self.assertEqual(ask(program.port, "/logo.svg").data, b"<svg/>")
        self.assertEqual(ask(program.port, "/logo.svg").getheader("Cache-Control"), None)

    def test_without_trapping_there_are_no_such_names(self):
        program = self.serve()
        for path in ("/status.json", "/requests.svg", "/form.echo"):
            self.assertIn(b"HTTP 404", ask(program.port, path).data)


class FailingPrograms(LivingTest):
    def test_standard_error_says_how_a_program_failed(self):
        bad = self.site / "bad.exe"
        bad.write_text("#!/bin/sh\nprintf before\nexit 3\n")
        bad.chmod(0o755)
        program = self.serve("--cgi-enable")
        self.assertEqual(ask(program.port, "/bad.exe").data, b"before")
        self.assertEqual(program.end(signal.SIGTERM), 0)
        lines = [line for line in program.errors if line.startswith("Program ")]
        self.assertEqual(len(lines), 1, program.errors)
        self.assertRegex(lines[0], r"^Program %s: exit code 3, after \d+\.\d{3} s$" % re.escape(str(bad)))


class Functions(LivingTest):
    def shown(self, port, page, query=""):
        (self.site / "page.html").write_text(page)
        return ask(port, "/page.html" + query).data.decode()

    def test_tags_are_answered(self):
        program = self.serve("--html-functions-enable", "--max-connections=9")
        text = self.shown(program.port, "".join("[<%%=Function %s()%%>]" % name for name in (
            "Version", "UpTime", "Requests", "Errors", "BytesSent", "BytesReceived", "FreeConnections", "Now",
            "Nobody")))
        self.assertRegex(text, r"^\[1\.1\.000\]\[00:00:00:\d\d\]\[1\]\[0\]\[0K\]\[0K\]\[9/9\]"
                               r"\[20\d\d-\d\d-\d\d \d\d:\d\d:\d\d\]\[\]$")
        now = time.strptime(re.search(r"\[(20[^]]*)\]", text).group(1), "%Y-%m-%d %H:%M:%S")
        self.assertLess(abs(time.time() - time.mktime(now)), 60)

    def test_echo_gives_its_own_argument_and_nothing_of_the_client(self):
        program = self.serve(*PAGES)
        page = "[<%=Function Echo(text=one%20word)%>][<%=function echo(\"text=two\")%>]"
        self.assertEqual(self.shown(program.port, page, "?text=client&a=1"), "[one word][two]")
        self.assertEqual(self.shown(program.port, "[<%=Function Echo()%>]", "?text=client"), "[]")

    def test_tags_stay_when_functions_are_off(self):
        program = self.serve("--ssi-enable")
        self.assertEqual(self.shown(program.port, "[<%=Function Version()%>]"), "[<%=FunctionVersion()%>]")


class ErrorFolder(LivingTest):
    def test_error_pages_come_from_the_application_folder(self):
        errors = self.folder / "own" / "html" / "errors"
        errors.mkdir(parents=True)
        (errors / "http404.html").write_text("<p>gone: <%=Function Version()%>, <!--#echo var=\"SERVER_PORT\"--></p>")
        for folder in (self.folder / "own", os.path.relpath(self.folder / "own")):
            program = self.serve(*PAGES, "--error-files-enable", "--application-folder", folder)
            answer = ask(program.port, "/none.html")
            self.assertEqual((answer.status, answer.data.decode()), (200, "<p>gone: 1.1.000, %d</p>" % program.port))


class Demonstration(LivingTest):
    """The site with the switches of ./run."""

    def serve_all(self, *arguments):
        return self.serve(*PAGES, *TRAPPING, "--cgi-enable", "--cgi-directory", CGI, "--directory-browse-enable",
                          "--error-files-enable", "--verbose-errors-enable", "--application-folder", HOST, *arguments,
                          site=HOST / "site")

    def test_every_page_is_put_together(self):
        port = self.serve_all().port
        for page in sorted((HOST / "site" / "live").glob("*.html")):
            with self.subTest(page.name):
                text = ask(port, "/live/" + page.name).data.decode()
                self.assertIn('<header class="bar">', text)
                self.assertIn("/live/%s of the demonstration site" % page.name, text)
                left = re.findall(r"<!--#.*?-->|<%.*?%>", text)
                self.assertEqual([tag for tag in left if tag != "<!--#includefile=nested/not-there.html-->"], [])

    def test_error_pages_are_the_sites_own(self):
        port = self.serve_all().port
        text = ask(port, "/none.html").data.decode()
        self.assertIn("<h1>This page is missing</h1>", text)
        self.assertRegex(text, r"has answered \d+ requests")

    def test_pictures_are_files_although_they_are_offered_to_the_host(self):
        port = self.serve_all().port
        for picture in sorted((HOST / "site" / "pictures").glob("*.svg")):
            self.assertEqual(ask(port, "/pictures/" + picture.name).data, picture.read_bytes())

    def test_programs_answer_and_show_what_a_client_says_as_text(self):
        port = self.serve_all().port
        for path, words in (("/environment.exe?q=<script>", "q=&lt;script&gt;"),
                            ("/shell.exe?name=%3Cb%3E+x", "Hello, &lt;b&gt; x"),
                            ("/python.exe?item=%3Cb%3E", "No item &lt;b&gt;"), ("/SHELL.EXE", "Hello, visitor")):
            answer = ask(port, path)
            self.assertIn(words, answer.data.decode())
            self.assertTrue(answer.getheader("Content-Type").startswith("text/html"), path)
        self.assertEqual(ask(port, "/python.exe?item=7").status, 404)
        elsewhere = ask(port, "/python.exe?go=home")
        self.assertEqual((elsewhere.status, elsewhere.getheader("Location")), (302, "/"))

    def test_the_output_of_each_program_is_within_what_is_taken(self):
        hostile = "<&>\"'" * 1000
        environment = dict(os.environ, QUERY_STRING="name=%s&item=%s" % (hostile, hostile), DOCUMENT_URI=hostile,
                           REQUEST_METHOD="POST", REMOTE_ADDR="255.255.255.255", SERVER_NAME="n" * 255,
                           SERVER_PORT="65535", TIME="12:59:59PM")
        for name in ("environment.exe", "shell.exe", "python.exe"):
            done = subprocess.run([CGI / name], env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                  check=True, timeout=20)
            self.assertIn(len(done.stdout), range(200, PROGRAM_BYTES), name)

    def test_it_ends_as_any_other(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            program = self.serve_all()
            self.assertIn(b"2 words:", ask(program.port, "/live/programs.html").data)
            self.assertEqual(program.end(number), 0)
            self.assertEqual(program.errors[-1], "Server Stopped.")
            self.assertEqual([line for line in program.errors if "Error" in line], [])


if __name__ == "__main__":
    TESSEL, HOST, CGI = (pathlib.Path(argument).resolve() for argument in sys.argv[1:4])
    unittest.main(argv=sys.argv[:1] + sys.argv[4:], verbosity=2)
