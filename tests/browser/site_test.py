#!/usr/bin/python3
"""The demonstration site in headless Chromium, served with room for one client at a time, once with nothing switched on
and once with everything, as ./run serves it.

    site_test.py PROGRAM HOST PROGRAMS SCREENSHOTS

HOST holds the site and its error pages, PROGRAMS is the folder of its programs. Takes a screenshot of some pages into
SCREENSHOTS.
"""

import os
import pathlib
import re
import shutil
import signal
import sys
import tempfile
import unittest
import urllib.error
import urllib.parse
import urllib.request

from selenium import webdriver
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By
from selenium.webdriver.support.wait import WebDriverWait

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "kit"))
from program import Program  # noqa: E402

WALL_CLOCK_SECONDS = 240  # for everything; a run takes a few seconds
PAGE_SECONDS = 30
FLAGS = ["--headless", "--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-dev-shm-usage",
         "--disable-background-networking", "--disable-component-update", "--disable-sync", "--window-size=1200,900",
         "--no-proxy-server", "--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE 127.0.0.1"]

PICTURES = """return Array.from(document.images).map(i => [i.src, i.complete && i.naturalWidth > 0,
    i.getAttribute('width') == i.naturalWidth || !i.hasAttribute('width')])"""
LINKS = "return Array.from(document.links).map(a => a.href)"
BACKGROUND = "return getComputedStyle(document.body).backgroundColor"
ROWS = """return Array.from(document.querySelectorAll('tr')).slice(1)
    .map(row => Array.from(row.cells).map(cell => cell.innerText))"""
SVG_TEXTS = "return Array.from(document.querySelectorAll('svg text')).map(each => each.textContent)"
DRAWING = """const drawing = document.getElementById('drawing');
    return drawing.complete && drawing.naturalWidth > 0 ? drawing.src : null"""
PAPER = "rgb(253, 250, 243)"  # what the style sheet says; without it the page is transparent


def is_page(address):
    return re.search(r"(?i)(/|\.html)$", urllib.parse.urlsplit(address).path) is not None


class Site:
    """What holds for the site however it is served; the classes that follow say how."""

    tessel = host = programs = screenshots = None  # set from the command line
    LIVE = r"(?i)/(live/.*|status\.json|requests\.svg|form\.echo|[^/]*\.exe)$"  # what is no file as it lies there

    @classmethod
    def switches(cls):
        return []

    @classmethod
    def follows(cls, path):
        """Whether a link to `path` is followed."""
        return True

    @classmethod
    def setUpClass(cls):
        cls.site = cls.host / "site"
        cls.profile = tempfile.mkdtemp(prefix="tessel-browser-")
        cls.addClassCleanup(shutil.rmtree, cls.profile, True)
        cls.program = Program([cls.tessel, "--server-port=0", "--max-connections=2", *cls.switches(), cls.site])
        cls.addClassCleanup(cls.program.__exit__)
        options = webdriver.ChromeOptions()
        options.binary_location = "/usr/bin/chromium"
        for flag in FLAGS + ["--user-data-dir=" + cls.profile]:
            options.add_argument(flag)
        service = Service("/usr/bin/chromedriver", log_path=os.devnull, env=dict(os.environ, HOME=cls.profile))
        cls.driver = webdriver.Chrome(service=service, options=options)
        cls.addClassCleanup(cls.driver.quit)
        cls.driver.set_page_load_timeout(PAGE_SECONDS)
        cls.pages, cls.files = cls.visit_all()

    @classmethod
    def visit_all(cls):
        """Follows every link from the start page: ({address of a page: what the browser saw}, addresses of files)."""
        pages, files, ahead = {}, set(), [cls.program.address]
        while ahead:
            address = ahead.pop(0)
            if address in pages:
                continue
            cls.driver.get(address)
            run = cls.driver.execute_script
            pages[address] = {"title": cls.driver.title, "pictures": run(PICTURES), "background": run(BACKGROUND),
                              "text": run("return document.body.innerText")}
            files.update(src for src, *_ in pages[address]["pictures"])
            for link in run(LINKS):
                link = urllib.parse.urldefrag(link).url
                if link.startswith(cls.program.address) and cls.follows(urllib.parse.urlsplit(link).path):
                    ahead.append(link) if is_page(link) else files.add(link)
        return pages, files

    def open(self, path):
        self.driver.get(self.program.address + path)

    def text(self):
        return self.driver.execute_script("return document.body.innerText")

    def take_screenshots(self, kind, paths):
        self.screenshots.mkdir(parents=True, exist_ok=True)
        for name, path in paths:
            self.open(path)
            target = self.screenshots / ("%s-%s.png" % (kind, name))
            self.assertTrue(self.driver.save_screenshot(str(target)))
            self.assertGreater(target.stat().st_size, 1000)

    def is_error(self, address):
        return address.lower().endswith(("/no-such-page.html", "/unlisted/"))

    def test_every_page_of_the_site_is_reached(self):
        reached = {urllib.parse.unquote(urllib.parse.urlsplit(address).path).lower() for address in self.pages}
        for path in self.site.rglob("*.html"):
            name = "/" + path.relative_to(self.site).as_posix()
            if name.startswith(("/parts/", "/live/nested/")) or not self.follows(name):
                continue  # the first two are parts of other pages
            self.assertTrue({name.lower(), re.sub(r"index\.html$", "", name).lower()} & reached, name)

    def test_every_picture_arrives_and_the_style_sheet_applies(self):
        count = 0
        for address, page in self.pages.items():
            if self.is_error(address):
                continue
            with self.subTest(address):
                self.assertEqual(page["background"], PAPER)
                self.assertGreaterEqual(len(page["pictures"]), 1)
                for source, has_arrived, has_its_size in page["pictures"]:
                    self.assertTrue(has_arrived, source)
                    self.assertTrue(has_its_size or ".svg" in source, source)
                    count += 1
        self.assertGreaterEqual(count, 20)

    def test_every_file_arrives_whole(self):
        files = [address for address in sorted(self.files)
                 if not re.search(self.LIVE, urllib.parse.urlsplit(address).path)]
        self.assertGreaterEqual(len(files), 15)
        for address in files:
            with self.subTest(address), urllib.request.urlopen(address, timeout=20) as answer:
                path = urllib.parse.unquote(urllib.parse.urlsplit(address).path).lstrip("/")
                self.assertEqual(answer.read(), (self.site / path).read_bytes())

    def test_the_access_log_has_every_page_with_its_status(self):
        for address in self.pages:
            parts = urllib.parse.urlsplit(address)
            path = parts.path + ("?" + parts.query if parts.query else "")
            status = "404" if path.endswith("no-such-page.html") else "403" if path == "/unlisted/" else "200"
            pattern = r'^127\.0\.0\.1 - - \[\d\d/\d\d/\d{4}:\d\d:\d\d:\d\d [+-]\d{4}\] "GET %s HTTP/1\.1" %s \d+ "' % (
                re.escape(path), status)
            self.program.wait_for_output(pattern)

    def test_nothing_went_wrong_on_the_way(self):
        self.assertEqual([line for line in self.program.errors if "Error" in line], [])
        self.assertIsNone(self.program.process.poll())


class WithNothingSwitchedOn(Site, unittest.TestCase):
    """`tessel host/site`: the pages that need no switch are whole, and those that do say so."""

    @classmethod
    def follows(cls, path):
        return not re.search(cls.LIVE, path)

    def test_errors_are_shown(self):
        for path, heading in (("docs/no-such-page.html", "HTTP 404: File Not Found"),
                              ("unlisted/", "HTPP 403: Forbidden")):
            self.assertIn(heading, self.pages[self.program.address + path]["text"])

    def test_a_live_page_says_what_it_wants(self):
        self.open("live/")
        self.assertIn("this server has that switched off", " ".join(self.text().split()))
        self.assertEqual(self.driver.execute_script(BACKGROUND), PAPER)

    def test_screenshots(self):
        self.take_screenshots("plain", (("start", ""), ("pictures", "pictures/"), ("names", "docs/names.html"),
                                        ("missing", "docs/no-such-page.html"), ("live", "live/")))


class WithEverythingSwitchedOn(Site, unittest.TestCase):
    """The switches of ./run without arguments."""

    @classmethod
    def switches(cls):
        return ["--ssi-enable", "--html-functions-enable", "--cgi-enable", "--cgi-directory", cls.programs,
                "--directory-browse-enable", "--error-files-enable", "--verbose-errors-enable", "--application-folder",
                cls.host, "--trap-file-enable", "--trap-file-types", "json,svg,echo"]

    def test_the_switches_are_those_of_run(self):
        run = (self.host.parent / "run").read_text()
        demonstration = re.search(r"^demonstration=\((.*?)^\)", run, re.MULTILINE | re.DOTALL).group(1)
        self.assertEqual(re.findall(r"--[a-z-]+", demonstration),
                         [word for word in map(str, self.switches()) if word.startswith("--")])

    def test_no_tag_is_left(self):
        live = [address for address in self.pages if "/live/" in address]
        self.assertGreaterEqual(len(live), 6)
        for address in live:
            with self.subTest(address), urllib.request.urlopen(address, timeout=20) as answer:
                left = re.findall(r"<!--#.*?-->|<%.*?%>", answer.read().decode())
                self.assertEqual([tag for tag in left if tag != "<!--#includefile=nested/not-there.html-->"], [])
                self.assertNotIn("switched off", self.pages[address]["text"].split("How it is switched on")[0])

    def test_a_missing_page_is_the_sites_own_and_alive(self):
        for path in ("docs/no-such-page.html", "live/no-such-page.html"):
            text = self.pages[self.program.address + path]["text"]
            self.assertIn("This page is missing", text)
            self.assertRegex(text, r"It is 20\d\d-\d\d-\d\d \d\d:\d\d:\d\d; .* has answered \d+ requests")

    def test_variables_are_the_same_in_both_forms(self):
        self.open("live/variables.html?colour=teal%20tiles")
        rows = self.driver.execute_script(ROWS)
        values = {name: first for name, first, second in rows}
        self.assertEqual(len(rows), 29)
        self.assertEqual([row for row in rows if row[1] != row[2] and row[0] != "TIME"], [])
        for name, value in (("REQUEST_METHOD", "GET"), ("SERVER_PORT", str(self.program.port)),
                            ("REMOTE_ADDR", "127.0.0.1"), ("DOCUMENT_URI", "/live/variables.html"),
                            ("QUERY_STRING", "colour=teal%20tiles")):
            self.assertEqual(values[name], value)
        self.assertIn("Chrom", values["HTTP_USER_AGENT"])
        self.assertIn("“teal%20tiles”", self.text())

    def test_includes_are_three_deep_and_a_missing_one_stays(self):
        self.open("live/includes.html")
        deepest = self.driver.find_element(By.CSS_SELECTOR, ".frame .frame .frame .frame pre")
        self.assertIn("This is live/nested/inner.txt.", deepest.text)
        kept = self.driver.find_element(By.TAG_NAME, "textarea").get_attribute("value")
        self.assertEqual(kept, "<!--#includefile=nested/not-there.html-->")

    def test_functions_answer_and_the_drawing_renders(self):
        self.open("live/functions.html")
        text = self.text()
        self.assertIn("1.1.000", text)
        self.assertIn("Three tiles & more", text)
        wait = WebDriverWait(self.driver, PAGE_SECONDS)
        first = wait.until(lambda driver: driver.execute_script(DRAWING))
        wait.until(lambda driver: driver.execute_script(DRAWING) not in (None, first))  # it is drawn anew

    def test_the_drawing_is_a_picture_of_its_own(self):
        self.open("requests.svg")
        shown = self.driver.execute_script(SVG_TEXTS)
        for words in ("Requests per second over the last five minutes", "requests per second", "minutes ago", "now"):
            self.assertIn(words, shown)

    def test_a_form_comes_back_as_it_was_sent(self):
        name, message = "Ödön & <Zoë>", "100 % = \"ganz\" + viel; € ü\nzweite Zeile"
        query = urllib.parse.urlencode({"name": name, "message": message.replace("\n", "\r\n"), "agreed": "on"})
        for button, expected in (("encoded", query), ("plain", "name=" + name), ("parts", message)):
            with self.subTest(button):
                self.open("live/form.html")
                for field, value in (("name", name), ("message", message)):
                    element = self.driver.find_element(By.NAME, field)
                    element.clear()
                    element.send_keys(value)
                self.driver.find_element(By.ID, button).click()
                WebDriverWait(self.driver, PAGE_SECONDS).until(lambda driver: driver.current_url.endswith("/form.echo"))
                self.assertEqual(self.driver.execute_script("return document.contentType"), "text/plain")
                self.assertIn(expected, self.text())
                self.screenshots.mkdir(parents=True, exist_ok=True)
                self.assertTrue(self.driver.save_screenshot(str(self.screenshots / ("live-echo-%s.png" % button))))

    def test_programs_answer(self):
        for path, heading in (("shell.exe?name=J%C3%B6rg+%26+%3CZo%C3%AB%3E", "Hello, Jörg & <Zoë>"),
                              ("shell.exe", "Hello, visitor"), ("python.exe", "A program in Python"),
                              ("python.exe?item=%3C7%3E", "No item <7>"),
                              ("environment.exe?a=1&b=%3Ctwo%3E", "A program in C"),
                              ("python.exe?go=home", "It works")):
            with self.subTest(path):
                self.open(path)
                self.assertIn(heading, self.driver.find_element(By.TAG_NAME, "h1").text)
        self.assertEqual(self.driver.current_url, self.program.address)
        with self.assertRaises(urllib.error.HTTPError) as missing:
            urllib.request.urlopen(self.program.address + "python.exe?item=7", timeout=20)
        missing.exception.close()
        self.assertEqual(missing.exception.code, 404)

    def test_programs_run_inside_a_page(self):
        self.open("live/programs.html")
        text = self.text()
        self.assertIn("2 words:\na=1\nb=2", text)
        self.assertRegex(text, r"It ran at \d\d:\d\d:\d\d,\nas process \d+\.")
        self.assertIn("Create::Process Failed.", text)

    def test_screenshots(self):
        self.take_screenshots("live", [("start", "")] + [(name, "live/%s.html" % name) for name in (
            "index", "variables", "includes", "functions", "form", "programs")] + [
                ("missing", "no-such-page.html"), ("forbidden", "unlisted/"), ("requests", "requests.svg"),
                ("shell", "shell.exe?name=Ada"), ("python", "python.exe?item=7"),
                ("environment", "environment.exe?a=1&b=%3Ctwo%3E")])


def _give_up(*_):
    raise TimeoutError("the wall-clock limit of %d seconds" % WALL_CLOCK_SECONDS)


if __name__ == "__main__":
    signal.signal(signal.SIGALRM, _give_up)
    signal.alarm(WALL_CLOCK_SECONDS)
    Site.tessel = os.path.abspath(sys.argv[1])
    Site.host, Site.programs, Site.screenshots = (pathlib.Path(argument).resolve() for argument in sys.argv[2:5])
    unittest.main(argv=sys.argv[:1] + sys.argv[5:], verbosity=2)
