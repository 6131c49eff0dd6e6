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
import time
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


ROWS_OF_LIST = """return Array.from(document.querySelectorAll('tr')).slice(2)
    .map(row => Array.from(row.cells).map(cell => cell.innerText.trim()))"""


def path_of(address):
    """The path of an address, without codes."""
    return urllib.parse.unquote(urllib.parse.urlsplit(address).path)


class Site:
    """What holds for the site however it is served; the classes that follow say how."""

    tessel = host = programs = screenshots = None  # set from the command line
    # What is not sent as it lies there.
    LIVE = r"(?i)/(live/.*|status\.json|requests\.svg|form\.echo|[^/]*\.exe|htaccess\.txt)$"
    FORBIDDEN = ()  # folders that are not for show

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
                if link.startswith(cls.program.address) and cls.follows(path_of(link)):
                    ahead.append(link) if cls.is_page(link) else files.add(link)
        return pages, files

    @classmethod
    def is_page(cls, address):
        path = path_of(address)
        return path.lower().endswith(("/", ".html")) or (cls.site / path.lstrip("/")).is_dir()

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
        return address.lower().endswith(("/no-such-page.html",) + self.FORBIDDEN)

    def is_list(self, address):
        return self.pages[address]["title"].startswith("Directory Listing:")

    def test_every_page_of_the_site_is_reached(self):
        reached = {path_of(address).lower() for address in self.pages}
        for path in self.site.rglob("*.html"):
            name = "/" + path.relative_to(self.site).as_posix()
            if name.startswith(("/parts/", "/live/nested/")) or not self.follows(name):
                continue  # the first two are parts of other pages
            self.assertTrue({name.lower(), re.sub(r"index\.html$", "", name).lower()} & reached, name)

    def test_every_picture_arrives_and_the_style_sheet_applies(self):
        count = 0
        for address, page in self.pages.items():
            if self.is_error(address) or self.is_list(address):
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
                self.assertEqual(answer.read(), (self.site / path_of(address).lstrip("/")).read_bytes())

    def test_the_access_log_has_every_page_with_its_status(self):
        for address in self.pages:
            parts = urllib.parse.urlsplit(address)
            path = parts.path + ("?" + parts.query if parts.query else "")
            status = "404" if path.endswith("no-such-page.html") else "403" if path in self.FORBIDDEN else "200"
            pattern = r'^127\.0\.0\.1 - - \[\d\d/\d\d/\d{4}:\d\d:\d\d:\d\d [+-]\d{4}\] "GET %s HTTP/1\.1" %s \d+ "' % (
                re.escape(path), status)
            self.program.wait_for_output(pattern)

    def test_nothing_went_wrong_on_the_way(self):
        self.assertEqual([line for line in self.program.errors if "Error" in line], [])
        self.assertIsNone(self.program.process.poll())


class WithNothingSwitchedOn(Site, unittest.TestCase):
    """`tessel host/site`: the pages that need no switch are whole, and those that do say so."""

    FORBIDDEN = ("/unlisted/", "/shelf/", "/members/papers/")

    @classmethod
    def follows(cls, path):
        return not re.search(cls.LIVE, path)

    def test_errors_are_shown(self):
        self.assertIn("HTTP 404: File Not Found", self.pages[self.program.address + "docs/no-such-page.html"]["text"])
        for path in self.FORBIDDEN:
            self.assertIn("HTPP 403: Forbidden", self.pages[self.program.address + path[1:]]["text"])

    def test_nobody_is_asked_for_a_password(self):
        self.assertIn("Welcome, member", self.pages[self.program.address + "members/"]["text"])

    def test_a_live_page_says_what_it_wants(self):
        self.open("live/")
        self.assertIn("this server has that switched off", " ".join(self.text().split()))
        self.assertEqual(self.driver.execute_script(BACKGROUND), PAPER)

    def test_screenshots(self):
        self.take_screenshots("plain", (("start", ""), ("pictures", "pictures/"), ("names", "docs/names.html"),
                                        ("missing", "docs/no-such-page.html"), ("live", "live/")))


class WithEverythingSwitchedOn(Site, unittest.TestCase):
    """The switches of ./run without arguments."""

    ASKS_OR_CUTS = r"^/(members/|shelf/cut links/.)"  # places with passwords, and files whose links are cut
    MEMBER = "ada:tiles-and-grout"

    @classmethod
    def switches(cls):
        return ["--ssi-enable", "--html-functions-enable", "--cgi-enable", "--cgi-directory", cls.programs,
                "--directory-browse-enable", "--authentication-source", "directory-file", "--error-files-enable",
                "--verbose-errors-enable", "--application-folder", cls.host, "--trap-file-enable", "--trap-file-types",
                "json,svg,echo"]

    @classmethod
    def follows(cls, path):
        return not re.search(cls.ASKS_OR_CUTS, path)

    def list(self):
        """What the list shows that is open now: its rows without the parent's, [name, size, date]."""
        return [row for row in self.driver.execute_script(ROWS_OF_LIST) if row[0] != "[Parent Directory]"]

    def click(self, text):
        """Follows a link of a list, and waits for where it leads."""
        link = next(each for each in self.driver.find_elements(By.TAG_NAME, "a") if each.text == text)
        address = link.get_attribute("href")
        link.click()
        WebDriverWait(self.driver, PAGE_SECONDS).until(lambda driver: driver.current_url == address)

    def test_the_switches_are_those_of_run(self):
        run = (self.host.parent / "run").read_text()
        demonstration = re.search(r"^demonstration=\((.*?)^\)", run, re.MULTILINE | re.DOTALL).group(1)
        shown = [str(each) for each in self.switches()]
        self.assertEqual(re.findall(r"--[a-z-]+", demonstration), [word for word in shown if word.startswith("--")])
        self.assertIn("--authentication-source directory-file", demonstration)

    def test_the_shelf_is_browsed_three_floors_down_and_back(self):
        self.open("docs/folders.html")
        self.driver.find_element(By.LINK_TEXT, "/shelf/").click()
        floors = ("first floor", "second floor", "third floor")
        for floor in floors:
            self.click(floor)
        self.assertEqual(path_of(self.driver.current_url), "/shelf/" + "/".join(floors))
        self.assertEqual([row[0] for row in self.list()], ["treasure.txt"])
        self.click("treasure.txt")
        self.assertIn("three levels down", self.text())
        self.driver.back()
        for folder in ("/shelf/first floor/second floor/", "/shelf/first floor/", "/shelf/", "/"):
            self.click("[Parent Directory]")
            self.assertEqual(path_of(self.driver.current_url), folder)
        self.assertIn("It works", self.text())

    def test_a_list_shows_names_sizes_and_dates(self):
        self.open("shelf/sizes/")
        rows = {name: (size, date) for name, size, date in self.list()}
        self.assertEqual({name: size for name, (size, _) in rows.items()}, {
            "empty.txt": "0 bytes", "512-bytes.txt": "512 bytes", "1023-bytes.txt": "1,023 bytes",
            "1024-bytes.txt": "1.00KB", "1536-bytes.txt": "1.50KB", "10239-bytes.txt": "10.00KB",
            "10240-bytes.txt": "10.0KB", "102399-bytes.txt": "100.0KB", "102400-bytes.txt": "100KB"})
        for name, (_, date) in rows.items():
            changed = time.localtime((self.site / "shelf" / "sizes" / name).stat().st_mtime)
            self.assertTrue(date.startswith(time.strftime("%Y/%m/%d", changed)), date)
        self.open("shelf/")
        names = [row[0] for row in self.list()]
        self.assertEqual(sorted(names[:4]), ["cut links", "first floor", "odd names", "sizes"])
        self.assertEqual(sorted(names[4:]), [".begins-with-a-dot", "read-me-first.txt"])

    def test_every_odd_name_is_reached(self):
        reached = {path_of(address) for address in [*self.pages, *self.files]}
        odd = [path for path in (self.site / "shelf").rglob("*") if path.is_file() and "odd names" in path.parts]
        self.assertEqual(len(odd), 8)
        for path in odd:
            self.assertIn("/" + path.relative_to(self.site).as_posix(), reached)

    def test_links_of_some_names_are_cut_and_their_files_are_there(self):
        listed = {}
        self.open("shelf/cut links/")
        for name, address in self.driver.execute_script("return Array.from(document.links).map(a => [a.text, a.href])"):
            listed[name.encode("cp1252").decode()] = address  # the page says that its letters are Western ones
        folder = self.site / "shelf" / "cut links"
        self.assertEqual(set(listed), {"[Parent Directory]"} | {path.name for path in folder.iterdir()})
        for path in folder.iterdir():
            self.driver.get(listed[path.name])
            self.assertIn("This page is missing", self.text())
            address = self.program.address + urllib.parse.quote("shelf/cut links/" + path.name)
            with urllib.request.urlopen(address, timeout=20) as answer:
                self.assertEqual(answer.read(), path.read_bytes())

    def test_members_log_in(self):
        """Without a name and a password nothing is shown, with those that the page tells everything is."""
        self.open("docs/passwords.html")
        user, password = (each.text for each in self.driver.find_elements(By.CSS_SELECTOR, "td > code")[:2])
        self.assertEqual(user + ":" + password, self.MEMBER)
        with_password = self.program.address.replace("://", "://%s:%s@" % (user, password))
        for path in ("members/", "members/minutes.txt", "members/papers/"):
            refused = '"GET /%s HTTP/1.1" 401 ' % path
            # With a password the browser asks without it first, then with it.
            for address, refusals in ((self.program.address, 1), (with_password.replace(password, "wrong"), 3)):
                self.driver.get(address + path)
                self.assertNotRegex(self.driver.page_source, "Welcome, member|Minutes of|statutes")
                WebDriverWait(self.driver, PAGE_SECONDS).until(
                    lambda _: sum(refused in line for line in self.program.output) >= refusals, refused)
        self.driver.get(with_password + "members/")
        self.assertIn("Welcome, member", self.text())
        self.driver.find_element(By.LINK_TEXT, "minutes").click()
        WebDriverWait(self.driver, PAGE_SECONDS).until(lambda driver: driver.current_url.endswith("minutes.txt"))
        self.assertIn("Minutes of the tile society", self.text())
        self.driver.get(with_password + "members/papers/")
        self.assertEqual(sorted(row[0] for row in self.list()), ["accounts.csv", "statutes.txt"])
        self.click("statutes.txt")
        self.assertIn("A tile is a tile.", self.text())
        self.take_screenshots("members", (("page", "members/"), ("papers", "members/papers/")))
        self.open("members/htaccess.txt")
        self.assertIn("This page is missing", self.text())

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
                ("missing", "no-such-page.html"), ("unlisted", "unlisted/"), ("requests", "requests.svg"),
                ("folders", "docs/folders.html"), ("passwords", "docs/passwords.html"), ("errors", "docs/errors.html"),
                ("shelf", "shelf/"), ("third-floor", "shelf/first floor/second floor/third floor"),
                ("sizes", "shelf/sizes"), ("odd-names", "shelf/odd names"), ("cut-links", "shelf/cut links"),
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
