#!/usr/bin/python3
"""The demonstration site in headless Chromium, served with room for one client at a time.

    site_test.py PROGRAM SITE SCREENSHOTS

Takes a screenshot of some pages into SCREENSHOTS.
"""

import os
import pathlib
import re
import shutil
import signal
import sys
import tempfile
import unittest
import urllib.parse
import urllib.request

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

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
PAPER = "rgb(253, 250, 243)"  # what the style sheet says; without it the page is transparent


def is_page(address):
    return re.search(r"(?i)(/|\.html)$", urllib.parse.urlsplit(address).path) is not None


class Site(unittest.TestCase):
    tessel = site = screenshots = None  # set from the command line

    @classmethod
    def setUpClass(cls):
        cls.profile = tempfile.mkdtemp(prefix="tessel-browser-")
        cls.addClassCleanup(shutil.rmtree, cls.profile, True)
        cls.program = Program([cls.tessel, "--server-port=0", "--max-connections=2", cls.site])
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
                if link.startswith(cls.program.address):
                    ahead.append(link) if is_page(link) else files.add(link)
        return pages, files

    def is_error(self, address):
        return address.lower().endswith(("/docs/no-such-page.html", "/unlisted/"))

    def test_every_page_of_the_site_is_reached(self):
        reached = {urllib.parse.unquote(urllib.parse.urlsplit(address).path).lower() for address in self.pages}
        for path in self.site.rglob("*.html"):
            name = "/" + path.relative_to(self.site).as_posix()
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
                    self.assertTrue(has_its_size or source.endswith(".svg"), source)
                    count += 1
        self.assertGreaterEqual(count, 20)

    def test_every_file_arrives_whole(self):
        self.assertGreaterEqual(len(self.files), 15)
        for address in sorted(self.files):
            with self.subTest(address), urllib.request.urlopen(address, timeout=20) as answer:
                path = urllib.parse.unquote(urllib.parse.urlsplit(address).path).lstrip("/")
                self.assertEqual(answer.read(), (self.site / path).read_bytes())

    def test_errors_are_shown(self):
        for path, heading in (("docs/no-such-page.html", "HTTP 404: File Not Found"), ("unlisted/", "HTPP 403: Forbidden")):
            self.assertIn(heading, self.pages[self.program.address + path]["text"])

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

    def test_screenshots(self):
        self.screenshots.mkdir(parents=True, exist_ok=True)
        for name, path in (("start", ""), ("pictures", "pictures/"), ("names", "docs/names.html"),
                           ("missing", "docs/no-such-page.html")):
            self.driver.get(self.program.address + path)
            target = self.screenshots / (name + ".png")
            self.assertTrue(self.driver.save_screenshot(str(target)))
            self.assertGreater(target.stat().st_size, 1000)


def _give_up(*_):
    raise TimeoutError("the wall-clock limit of %d seconds" % WALL_CLOCK_SECONDS)


if __name__ == "__main__":
    signal.signal(signal.SIGALRM, _give_up)
    signal.alarm(WALL_CLOCK_SECONDS)
    Site.tessel = os.path.abspath(sys.argv[1])
    Site.site, Site.screenshots = (pathlib.Path(argument).resolve() for argument in sys.argv[2:4])
    unittest.main(argv=sys.argv[:1] + sys.argv[4:], verbosity=2)
