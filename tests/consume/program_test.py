#!/usr/bin/python3
"""The program `tessel` as its user has it: program_test.py PROGRAM"""

import os
import pathlib
import re
import signal
import socket
import stat
import subprocess
import sys
import unittest
import urllib.request

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "kit"))
from program import Program, SiteTest, ask  # noqa: E402

TESSEL = None  # set from the command line

PROPERTIES = ["--server-ip", "--server-port", "--server-software", "--server-name", "--content-type-source",
              "--content-type-source-file", "--authentication-source", "--authentication-source-file", "--cgi-directory",
              "--cgi-timeout", "--max-connections", "--connection-timeout", "--index-page-names", "--trap-file-types",
              "--http-mode", "--client-timeout", "--keep-alive-timeout", "--max-header-bytes", "--cgi-file-types", "--charset"]
SWITCHES = ["cgi-enable", "ssi-enable", "html-functions-enable", "directory-browse-enable", "error-files-enable",
            "verbose-errors-enable", "trap-file-enable"]
OTHERS = ["--application-folder", "--content-type", "--max-body-bytes", "--max-body-bytes-total",
          "--max-unsent-page-bytes", "--max-programs", "--workers"]  # no properties


def run(*arguments, cwd=None):
    """(exit status, standard output, standard error) of a run that is to end by itself."""
    done = subprocess.run([TESSEL, *map(str, arguments)], cwd=cwd, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, timeout=60)
    return done.returncode, done.stdout.decode(), done.stderr.decode()


def get(port, path, headers=()):
    """(status, body) as the wire has them."""
    answer = ask(port, path, headers=headers)
    return answer.status, answer.data


class ProgramTest(SiteTest):
    def setUp(self):
        super().setUp()
        (self.site / "index.html").write_text("<html><body>start</body></html>\n")

    def serve(self, *arguments, cwd=None):
        return Program([TESSEL, "--server-port", "0", *arguments], cwd=cwd)

    def saved(self, *arguments, cwd=None):
        """The settings that these arguments come to, as {key: text}."""
        path = self.folder / "saved.conf"
        status, out, err = run("--save-config", path, *arguments, cwd=cwd)
        self.assertEqual((status, out), (0, ""), err)
        return dict(line.split("=", 1) for line in path.read_text().splitlines())


class Talk(ProgramTest):
    def test_help_names_every_option(self):
        status, out, err = run("--help")
        self.assertEqual((status, err), (0, ""))
        for name in PROPERTIES + ["--[no-]" + each for each in SWITCHES] + OTHERS:
            self.assertRegex(out, r"(?m)^  %s " % re.escape(name))
        for name in ("--config FILE", "--save-config FILE", "--help", "--version", "--about", "[DIRECTORY]"):
            self.assertIn(name, out)
        self.assertLessEqual(max(map(len, out.splitlines())), 120)

    def test_help_says_what_settings_do_that_surprise(self):
        """A promise each, in the words of its option."""
        text = re.sub(r"\s+", " ", run("--help")[1])
        for option, words in (
                ("verbose-errors-enable", ["status 200", "apt, curl -f, link checkers, node", "--no-verbose-errors-enable",
                                           "codes (404"]),
                ("cgi-enable", ["first 1,024 bytes", "GET only", "no standard input"]),
                ("cgi-directory", ["below the root", "is public"]),
                ("authentication-source-file", ["substring", "in any case", "the beginning of a password is enough",
                                                "the end of a name"])):
            begins = r" --(?:\[no-\])?%s (?:[A-Z] )?" % option
            ends = r"--(?:\[no-\])?[a-z-]+ (?:[A-Z]|Error)|[A-Z][a-z]+: "
            described = re.search(r"%s(.*?) (?=%s)" % (begins, ends), text)
            for part in words:
                with self.subTest(option, part=part):
                    self.assertIn(part, described[1])

    def test_version_and_about(self):
        self.assertEqual(run("--version"), (0, "tessel 1.1.000\n", ""))
        status, out, err = run("--about")
        self.assertEqual((status, err), (0, ""))
        self.assertTrue(out.startswith("Tessel 1.1.000\n"), out)


class Refusals(ProgramTest):
    """Each is one line on standard error that names what and why, and nothing on standard output."""

    def expect(self, status, words, *arguments, cwd=None):
        with self.subTest(" ".join(map(str, arguments))):
            got, out, err = run(*arguments, cwd=cwd)
            self.assertEqual((got, out), (status, ""), err)
            self.assertRegex(err, r"\Atessel: [^\n]+\n\Z")
            for word in words:
                self.assertIn(str(word), err)

    def test_a_command_line_that_cannot_be_understood(self):
        for arguments, words in [
            (["--no-such-option"], ["--no-such-option"]),
            (["--no-such-option=1"], ["--no-such-option"]),
            (["-x"], ["-x"]),
            (["one", "two"], ["two"]),
            (["--server-port"], ["--server-port", "value is missing"]),
            (["--server-port", "http"], ["--server-port", '"http"', "0 to 65535"]),
            (["--server-port="], ["--server-port", '""', "0 to 65535"]),
            (["--server-port=80 "], ["--server-port", "0 to 65535"]),
            (["--server-port=80.5"], ["--server-port", "0 to 65535"]),
            (["--server-port=-1"], ["--server-port", "0 to 65535"]),
            (["--server-port=65536"], ["--server-port", "0 to 65535"]),
            (["--server-port=99999999999999999999"], ["--server-port", "0 to 65535"]),
            (["--cgi-timeout", "-1"], ["--cgi-timeout", "0 to 2000000000"]),
            (["--cgi-timeout", "2000000001"], ["--cgi-timeout", "0 to 2000000000"]),
            (["--connection-timeout", "x"], ["--connection-timeout", "0 to 2000000000"]),
            (["--max-connections", "1"], ["--max-connections", "2 to 10000"]),
            (["--max-connections", "10001"], ["--max-connections", "2 to 10000"]),
            (["--max-body-bytes", "-1"], ["--max-body-bytes", "0 to 2147483647"]),
            (["--max-body-bytes=2147483648"], ["--max-body-bytes", "0 to 2147483647"]),
            (["--max-body-bytes-total", "1G"], ["--max-body-bytes-total", "0 to 9223372036854775807"]),
            (["--max-unsent-page-bytes=-1"], ["--max-unsent-page-bytes", "0 to 9223372036854775807"]),
            (["--max-programs=0"], ["--max-programs", "1 to 1000"]),
            (["--workers", "5"], ["--workers", "0 to 4"]),
            (["--content-type", "x"], ["--content-type", '"x"', ".extension=type/subtype"]),
            (["--content-type=.x=plain"], ["--content-type", '".x=plain"', ".extension=type/subtype"]),
            (["--content-type"], ["--content-type", "value is missing"]),
            (["--content-type-source", "web"], ["--content-type-source", '"web"', "registry, file, internal"]),
            (["--authentication-source", ""], ["--authentication-source", "global-file, directory-file"]),
            (["--ssi-enable=perhaps"], ["--ssi-enable", "perhaps"]),
            (["--no-server-ip"], ["--no-server-ip"]),
            (["--bad\nname"], ["\\x0A"]),
        ]:
            self.expect(2, words, *arguments)

    def test_settings_that_cannot_be_used(self):
        file = self.site / "index.html"
        no_table = self.folder / "users.txt"
        no_table.write_text("user:password\n" * 32768)
        for arguments, words in [
            ([self.folder / "none"], [self.folder / "none", "no such folder"]),
            ([file], [file, "is not a folder"]),
            ([""], ["DIRECTORY"]),
            (["--application-folder", self.folder / "none", self.site], [self.folder / "none", "no such folder"]),
            (["--application-folder", file, self.site], [file, "is not a folder"]),
            (["--application-folder=", self.site], ["--application-folder"]),
            (["--config", self.folder / "none.conf"], ["none.conf"]),
            (["--config", self.site], [self.site]),
            (["--content-type-source-file", self.folder / "none", self.site], [self.folder / "none", "content types"]),
            (["--authentication-source-file", self.site, self.site], [self.site, "passwords"]),
            (["--authentication-source-file", no_table, self.site], [no_table, "passwords", "32767 lines"]),
            (["--content-type=.x=a/b", "--content-type-source=internal", self.site], ["--content-type", "registry"]),
            (["--save-config", self.folder / "none" / "x.conf", self.site], [self.folder / "none" / "x.conf"]),
        ]:
            self.expect(1, words, *arguments)

    def test_values_of_a_configuration_that_cannot_be_used(self):
        config = self.folder / "bad.conf"
        for line, word in [
            ("SSIEnable=perhaps", "neither True nor False"),
            ("ServerPort=http", "0 to 65535"),
            ("ServerPort=65536", "0 to 65535"),
            ("ServerPort=", "0 to 65535"),
            ("ServerMaxConnections=1", "2 to 10000"),
            ("CGITimeout=-1", "0 to 2000000000"),
            ("ConnectionTimeout=9999999999", "0 to 2000000000"),
            ("ContentTypeSource=3", "0 to 2"),
            ("AuthenticationSource=4", "0 to 3"),
            ("VirtualPath=%s" % (self.folder / "none"), "no such folder"),
            ("AuthenticationSourceFile=%s" % (self.folder / "none"), "passwords"),
        ]:
            config.write_text(line + "\n")
            directory = [] if line.startswith("VirtualPath") else [self.site]
            self.expect(1, [line.split("=")[1], word], "--config", config, *directory)

    def test_a_port_in_use(self):
        with socket.create_server(("127.0.0.1", 0)) as other:
            port = other.getsockname()[1]
            self.expect(1, ["127.0.0.1", port, "in use"], "--server-port", port, self.site)

    def test_an_address_of_another_machine(self):
        self.expect(1, ["192.0.2.1", "[10049]"], "--server-ip", "192.0.2.1", "--server-port", "0", self.site)


class Settings(ProgramTest):
    def test_own_defaults(self):
        self.assertEqual(self.saved(cwd=self.site), {"ServerIP": "127.0.0.1", "ServerPort": "8080",
                                                     "ServerMaxConnections": "1000", "VirtualPath": str(self.site)})

    def test_every_option_in_both_forms_reaches_its_property(self):
        types, users = self.folder / "types.txt", self.folder / "users.txt"
        types.write_text("html,text/html\n")
        users.write_text("user:password\n")
        values = [("--server-ip", "127.0.0.2", "ServerIP", None), ("--server-port", "81", "ServerPort", None),
                  ("--server-software", "Soft/1 = x", "ServerSoftware", None), ("--server-name", "name", "ServerName", None),
                  ("--content-type-source", "internal", "ContentTypeSource", "2"),
                  ("--content-type-source-file", str(types), "ContentTypeSourceFile", None),
                  ("--authentication-source", "domain-acl", "AuthenticationSource", "3"),
                  ("--authentication-source-file", str(users), "AuthenticationSourceFile", None),
                  ("--cgi-directory", "/usr/lib/programs", "CGIDirectory", None), ("--cgi-timeout", "5", "CGITimeout", None),
                  ("--max-connections", "7", "ServerMaxConnections", None),
                  ("--connection-timeout", "0", "ConnectionTimeout", None),
                  ("--index-page-names", "a.htm, b.htm", "IndexPageNames", "a.htm,b.htm"),
                  ("--trap-file-types", "cgi,pl", "TrapFileTypes", None),
                  ("--http-mode", "modern", "HTTPMode", "1"), ("--client-timeout", "5", "ClientTimeout", None),
                  ("--keep-alive-timeout", "0", "KeepAliveTimeout", None),
                  ("--max-header-bytes", "2048", "MaxHeaderBytes", None),
                  ("--cgi-file-types", "py, sh", "CGIFileTypes", "py,sh"), ("--charset", "latin1", "Charset", None)]
        self.assertEqual([name for name, *_ in values], PROPERTIES)
        expected = {key: kept or value for _, value, key, kept in values}
        expected.update({key: "True" for key in ("CGIEnable", "SSIEnable", "HTMLFunctionsEnable", "DirectoryBrowseEnable",
                                                 "ErrorFilesEnable", "TrapFileEnable")})
        expected.update({"VerboseErrorsEnable": "False", "VirtualPath": str(self.site)})
        switches = ["--" + ("no-" if each == "verbose-errors-enable" else "") + each for each in SWITCHES]
        apart = [part for name, value, *_ in values for part in (name, value)]
        joined = [name + "=" + value for name, value, *_ in values]
        self.assertEqual(self.saved(*apart, *switches, self.site), expected)
        self.assertEqual(self.saved(*joined, *switches, self.site), expected)

    def test_what_is_no_property_is_not_saved(self):
        self.assertEqual(self.saved("--application-folder", self.folder, "--content-type=.x=a/b", "--max-body-bytes=1",
                                    "--max-body-bytes-total=1", "--max-unsent-page-bytes=1", "--max-programs=1",
                                    "--workers=0", self.site),
                         self.saved(self.site))

    def test_switches_and_repetitions(self):
        for arguments, key, value in [
            (["--ssi-enable", "--no-ssi-enable"], "SSIEnable", None),
            (["--no-ssi-enable", "--ssi-enable"], "SSIEnable", "True"),
            (["--ssi-enable=true"], "SSIEnable", "True"),
            (["--ssi-enable=false"], "SSIEnable", None),
            (["--no-verbose-errors-enable"], "VerboseErrorsEnable", "False"),
            (["--server-name=a", "--server-name=b"], "ServerName", "b"),
            (["--server-ip="], "ServerIP", ""),
            (["--server-ip", ""], "ServerIP", ""),
            (["--server-name", "--ssi-enable"], "ServerName", "--ssi-enable"),
            (["--server-name=[x]"], "ServerName", "[x]"),
        ]:
            with self.subTest(" ".join(arguments)):
                self.assertEqual(self.saved(*arguments, self.site).get(key), value)

    def test_a_configuration_goes_round(self):
        first = self.folder / "first.conf"
        again = self.folder / "again.conf"
        self.assertEqual(run("--save-config", first, "--server-port=80", "--server-ip=", "--max-connections=2",
                             "--server-name=100% a=b", "--ssi-enable", self.site), (0, "", ""))
        self.assertEqual(stat.S_IMODE(first.stat().st_mode), 0o600)
        self.assertEqual(run("--config", first, "--save-config", again), (0, "", ""))
        self.assertEqual(again.read_text(), first.read_text())
        self.assertEqual(dict(line.split("=", 1) for line in first.read_text().splitlines()),
                         {"ServerPort": "80", "ServerIP": "", "ServerMaxConnections": "2", "SSIEnable": "True",
                          "ServerName": "100%25 a=b", "VirtualPath": str(self.site)})

    def test_options_count_before_the_configuration_and_it_before_the_defaults(self):
        config = self.folder / "it.conf"
        config.write_text("ServerPort=81\r\nServerName=from the file\n\nSSIEnable=1\nVirtualPath=%s\n" % self.site)
        kept = self.saved("--config", config, "--server-name", "from the line", "--no-ssi-enable")
        self.assertEqual(kept, {"ServerIP": "127.0.0.1", "ServerPort": "81", "ServerMaxConnections": "1000",
                                "ServerName": "from the line", "VirtualPath": str(self.site)})
        other = self.folder / "other"
        other.mkdir()
        self.assertEqual(self.saved("--config", config, other)["VirtualPath"], str(other))

    def test_an_unknown_key_is_told_and_passed_over(self):
        config = self.folder / "it.conf"
        config.write_text("Port=81\n")
        status, out, err = run("--config", config, "--save-config", self.folder / "x.conf", self.site)
        self.assertEqual((status, out), (0, ""))
        self.assertRegex(err, r'\Atessel: .*it\.conf: "Port" is no setting[^\n]*\n\Z')


class Serving(ProgramTest):
    def test_serves_the_folder_and_ends_with_status_0(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(number.name), self.serve(self.site) as program:
                self.assertEqual(get(program.port, "/"), (200, (self.site / "index.html").read_bytes()))
                program.wait_for_output(r'^127\.0\.0\.1 - - \[.*\] "GET / HTTP/1\.1" 200 \d+ "" ""$')
                self.assertEqual(program.end(number), 0)
                log = program.output
                self.assertRegex(log[0], r"^#\[.*\] - Starting Server \.\.\.$")
                self.assertIn("#HTML Home Path: %s" % self.site, log)
                self.assertIn("#Max Connections: 1000", log)
                self.assertRegex(log[-1], r"^#\[.*\] - Server Stopped\.$")
                self.assertEqual(program.errors[0], "Starting Server ...")
                self.assertEqual(program.errors[-1], "Server Stopped.")
                self.assertEqual(program.address, "http://127.0.0.1:%d/" % program.port)

    def test_ends_at_once_while_a_program_runs(self):
        gate, begun = self.folder / "gate", self.folder / "begun"
        os.mkfifo(gate)
        os.mkfifo(begun)
        slow = self.site / "slow.exe"
        slow.write_text("#!/bin/sh\n: > %s\nread line < %s\n" % (begun, gate))
        slow.chmod(0o755)
        for number in (signal.SIGINT, signal.SIGTERM):
            with self.subTest(number.name), self.serve("--cgi-enable", self.site) as program, \
                    socket.create_connection(("127.0.0.1", program.port)) as client:
                client.sendall(b"GET /slow.exe HTTP/1.0\r\n\r\n")
                begun.read_text()  # returns when the program has come so far
                self.assertEqual(get(program.port, "/")[0], 200)  # others are served meanwhile
                self.assertEqual(program.end(number), 0)
                self.assertEqual(client.recv(1), b"")
                gate.write_text("\n")  # the program is waiting still: it is let go

    def test_serves_the_working_folder_without_an_argument(self):
        with self.serve(cwd=self.site) as program:
            self.assertEqual(get(program.port, "/index.html")[0], 200)
            program.wait_for_output(r"^#HTML Home Path: %s$" % re.escape(str(self.site)))

    def test_all_addresses_open_on_this_machine(self):
        with self.serve("--server-ip=", self.site) as program:
            self.assertTrue(program.address.startswith("http://127.0.0.1:"), program.address)
            self.assertEqual(get(program.port, "/")[0], 200)

    def test_a_configuration_serves(self):
        config = self.folder / "it.conf"
        config.write_text("VirtualPath=%s\nVerboseErrorsEnable=False\nIndexPageNames=start.htm\n" % self.site)
        (self.site / "start.htm").write_text("another start")
        with self.serve("--config", config) as program:
            self.assertEqual(get(program.port, "/"), (200, b"another start"))
            self.assertEqual(get(program.port, "/none")[0], 404)

    def test_a_folder_is_listed_only_when_that_is_switched_on(self):
        (self.site / "shelf" / "two words").mkdir(parents=True)
        (self.site / "shelf" / "book.txt").write_text("a book")
        with self.serve("--no-verbose-errors-enable", self.site) as program:
            self.assertEqual(get(program.port, "/shelf/"), (403, b""))
            program.wait_for_output('"GET /shelf/ HTTP/1.1" 403 ')
        with self.serve("--directory-browse-enable", "--server-name=my own", self.site) as program:
            status, page = get(program.port, "/shelf/")
            self.assertEqual(status, 200)
            for part in (b"<title>Directory Listing: my own - /shelf/</title>", b"<a href = />[Parent Directory]</a>",
                         b"<a href = /shelf/two%20words>two words</a>", b"<a href = /shelf/book.txt>book.txt</a>"):
                self.assertIn(part, page)
            self.assertEqual(get(program.port, "/"), (200, (self.site / "index.html").read_bytes()))

    def test_content_types_of_the_command_line(self):
        for name in ("a.x1", "b.X2", "c.txt"):
            (self.site / name).write_text("text")
        with self.serve("--content-type", ".x1=application/x-one", "--content-type=.x2=text/x-two; charset=utf-8",
                        "--content-type", ".txt=text/x-mine", self.site) as program:
            for path, kind in (("/a.x1", "application/x-one"), ("/b.X2", "text/x-two; charset=utf-8"),
                               ("/c.txt", "text/x-mine"), ("/", "text/html")):
                with urllib.request.urlopen(program.address + path[1:], timeout=20) as answer:
                    self.assertEqual(answer.headers["Content-Type"], kind)

    def test_a_body_beyond_the_limit_is_refused(self):
        with self.serve("--max-body-bytes=5", "--no-verbose-errors-enable", self.site) as program:
            for length, status in ((5, b"200"), (6, b"400")):
                with socket.create_connection(("127.0.0.1", program.port), timeout=20) as client:
                    client.sendall(b"POST / HTTP/1.0\r\nContent-Length: %d\r\n\r\n" % length + b"x" * length)
                    self.assertEqual(client.makefile("rb").readline().split()[1], status)

    def test_passwords_are_asked_for_where_the_source_says(self):
        (self.site / "members").mkdir()
        (self.site / "members" / "page.txt").write_text("for members")
        (self.site / "members" / "htaccess.txt").write_text("ann:secret\n")
        users = self.folder / "users.txt"
        users.write_text("bob:other\n")
        ann = {"Authorization": "Basic YW5uOnNlY3JldA=="}
        bob = {"Authorization": "Basic Ym9iOm90aGVy"}
        everywhere = ["--authentication-source=global-file", "--authentication-source-file", users]
        by_folder = ["--authentication-source=directory-file"]
        for options, path, who in (([], "/", (True, True, True)),
                                   ([], "/members/page.txt", (True, True, True)),
                                   (by_folder, "/", (True, True, True)),
                                   (by_folder, "/members/page.txt", (False, True, False)),
                                   (everywhere, "/", (False, False, True)),
                                   (everywhere, "/members/page.txt", (False, False, True)),
                                   (["--authentication-source=local-acl"], "/members/page.txt", (True, True, True)),
                                   (["--authentication-source=domain-acl"], "/members/page.txt", (True, True, True))):
            with self.subTest(options=options, path=path), self.serve(*options, self.site) as program:
                answers = [get(program.port, path, headers) for headers in ({}, ann, bob)]
                self.assertEqual([status for status, _ in answers], [200 if served else 401 for served in who])
                self.assertEqual([body != b"" for _, body in answers], list(who))

    def test_trapped_requests_are_served_as_files(self):
        with self.serve("--trap-file-enable", self.site) as program:
            self.assertEqual(get(program.port, "/"), (200, (self.site / "index.html").read_bytes()))
            self.assertEqual(get(program.port, "/", {"Accept": "*/*"})[0], 200)

    def test_a_log_line_is_one_line_without_control_characters(self):
        with self.serve(self.site) as program:
            with socket.create_connection(("127.0.0.1", program.port), timeout=20) as client:
                client.sendall(b"GET /\x1b[31m HTTP/1.0\r\nReferer: a\x07b\rc\r\nUser-Agent: agent\x7f\r\n\r\n")
                while client.recv(4096):
                    pass
            line = program.wait_for_output("agent")
            self.assertIn("\\x1B[31m", line)
            self.assertIn("a\\x07b", line)
            self.assertIn("agent\\x7F", line)
            self.assertNotRegex("".join(program.output), r"[\x00-\x1f\x7f]")

    def test_more_clients_than_the_soft_limit_of_descriptors(self):
        """The program raises its limit, so that the number it is asked for can be served."""
        command = 'ulimit -S -n 64 && exec "$0" "$@"'
        with Program(["/bin/bash", "-c", command, TESSEL, "--server-port=0", self.site]) as program:
            clients = [socket.create_connection(("127.0.0.1", program.port), timeout=20) for _ in range(100)]
            for client in clients:
                client.sendall(b"POST / HTTP/1.0\r\nContent-Length: 1000\r\n\r\n")
            self.assertEqual(get(program.port, "/")[0], 200)
            for client in clients:
                client.close()
            self.assertEqual([line for line in program.errors if "Error" in line], [])

    def test_serves_on_when_nobody_reads_the_log(self):
        command = 'exec "$0" "$@" > >(head -n 1 > /dev/null)'
        with Program(["/bin/bash", "-c", command, TESSEL, "--server-port=0", self.site]) as program:
            for _ in range(20):
                self.assertEqual(get(program.port, "/")[0], 200)
            self.assertEqual(program.end(signal.SIGTERM), 0)

    def test_ends_also_while_a_client_is_half_way(self):
        with self.serve(self.site) as program:
            with socket.create_connection(("127.0.0.1", program.port), timeout=20) as client:
                client.sendall(b"POST / HTTP/1.0\r\nContent-Length: 1000\r\n\r\n")
                self.assertEqual(get(program.port, "/")[0], 200)
                self.assertEqual(program.end(signal.SIGTERM), 0)


if __name__ == "__main__":
    TESSEL = os.path.abspath(sys.argv[1])
    unittest.main(argv=sys.argv[:1] + sys.argv[2:], verbosity=2)
