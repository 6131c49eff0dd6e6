"""The site that every server serves, and the workloads: what is asked for, and how the answer is known to be right."""

import dataclasses
import re
import shutil
import typing

KIB = 1024
COLD_FILES = 4000     # each of them is asked for once
DEEP = "one/two/three"
NUMBER = "####"       # what stands for the number of a file, for the generator too
LISTED = {"list100": 100, "list10000": 10000}
INCLUDED = "".join("<p>This line stands in the included file.</p>\n" for _ in range(6))
CGI_BODY = "x" * 199 + "\n"

# How each server writes an echo of the client's address and an include.
DIRECTIVES = {
    "tessel": ('<!--#echo var="REMOTE_ADDR"-->', '<!--#include virtual="/part.txt"-->'),
    "nginx": ('<!--# echo var="remote_addr" -->', '<!--# include virtual="/part.txt" -->'),
    "lighttpd": ('<!--#echo var="REMOTE_ADDR" -->', '<!--#include virtual="/part.txt" -->'),
}


def letters(count):
    """What the files contain: the alphabet, over and over."""
    alphabet = "abcdefghijklmnopqrstuvwxyz"
    return (alphabet * (count // 26 + 1))[:count].encode()


def page(echo, include):
    """A page of 1 KiB once its two directives are replaced."""
    head = "<!DOCTYPE html><title>A page</title>\n<p>You come from "
    middle = ".</p>\n"
    filler = KIB - len(head) - len("127.0.0.1") - len(middle) - len(INCLUDED)
    return (head + echo + middle + include).encode() + letters(filler)


def plain_page():
    """A page of 1 KiB without directives."""
    head = "<!DOCTYPE html><title>A page</title>\n<p>"
    return head.encode() + letters(KIB - len(head))


def build(root, programs, folders):
    """Writes the site into the folder `root`, with those folders to be listed whose names are in `folders`; the program
    that servers run comes from `programs`."""
    for name, size in (("f1k.bin", KIB), ("f64k.bin", 64 * KIB), ("f10m.bin", 10240 * KIB)):
        (root / name).write_bytes(letters(size))
    (root / "plain.html").write_bytes(plain_page())
    (root / "part.txt").write_text(INCLUDED)
    for server, (echo, include) in DIRECTIVES.items():
        (root / ("page-%s.html" % server)).write_bytes(page(echo, include))
    for folder in folders:
        (root / folder).mkdir()
        for i in range(LISTED[folder]):
            (root / folder / ("file%05d.txt" % i)).write_bytes(b"x" * (100 + i % 900))
    (root / "cgi").mkdir()
    shutil.copy(programs / "comparison_print", root / "cgi" / "print200.exe")


def numbered(text, number):
    return text.replace(NUMBER, "%04d" % number)


def cold_body():
    """What a file of the cold site contains, but for its number: each can be told from the others."""
    return NUMBER.encode() + letters(KIB - len(NUMBER))


def build_cold(root):
    """Writes the cold site: the files in the root and as many three folders deep, one more of each than is asked for in
    turn, for the first look; and one file to warm a server with."""
    (root / "f1k.bin").write_bytes(letters(KIB))
    (root / DEEP).mkdir(parents=True)
    for folder in (root, root / DEEP):
        for i in range(COLD_FILES + 1):
            (folder / numbered("c%s.bin" % NUMBER, i)).write_bytes(numbered(cold_body().decode(), i).encode())


@dataclasses.dataclass(frozen=True)
class Workload:
    """One thing to ask for."""

    name: str
    title: str
    path: str                       # {server} stands for the server's name
    check: typing.Callable          # (body) -> what is wrong with it, "" when nothing is
    servers: tuple                  # who can answer it
    status: str = "200"
    features: tuple = ()
    compare_every: int = 1          # of how many answers one is compared byte by byte
    at_once: int = 64
    longer: int = 1                 # how many times as long as others it is measured
    warm_requests: int = 300
    calls_requests: int = 500      # for the run that counts system calls
    note: str = ""
    site: str = "site"              # the folder that is served: "site" or "cold"
    numbers: int = 1                # how many files are asked for in turn, by the number in the path

    def path_for(self, server):
        return self.path.format(server=server.split("-")[0])


def equals(expected):
    return lambda body: "" if body == expected else "%d bytes that are not the file" % len(body)


def any_body(_):
    return ""


def lists(count):
    """A body that names every file of the listing."""
    def check(body):
        named = set(re.findall(rb"file\d{5}\.txt", body))
        return "" if len(named) == count else "%d of %d files are listed" % (len(named), count)
    return check


ALL = ("floor", "tessel", "nginx", "nginx-deferred", "lighttpd", "microhttpd", "civetweb")
SMALL = ALL + ("program", "nginx-open-file-cache")
COLD = ("floor", "tessel", "program", "nginx", "nginx-open-file-cache", "lighttpd")
PROCESSING = ("tessel", "nginx", "lighttpd")


def cold(name, title, folder, at_once):
    return Workload(name, title, "/%sc%s.bin" % (folder, NUMBER),
                    equals(numbered(cold_body().decode(), COLD_FILES).encode()), COLD, features=("body=1024",),
                    at_once=at_once, site="cold", numbers=COLD_FILES,
                    note="Each of %s files is asked for once, of a server that has just been started and has answered 300 "
                         "requests for another file%s. The system has all of them in memory. The floor sends its one "
                         "answer." % (format(COLD_FILES, ","), "" if at_once > 1 else "; one client"))


WORKLOADS = [
    Workload("1k", "A file of 1 KiB", "/f1k.bin", equals(letters(KIB)), SMALL, features=("body=1024",),
             note="\"program\" is the program tessel as it ships, its log going to a file."),
    Workload("1k-1", "A file of 1 KiB, one client", "/f1k.bin", equals(letters(KIB)), COLD, features=("body=1024",),
             at_once=1),
    cold("cold", "Files of 1 KiB that were not asked for before", "", 64),
    cold("cold-1", "Files of 1 KiB that were not asked for before, one client", "", 1),
    cold("deep", "Files of 1 KiB that were not asked for before, three folders deep", DEEP + "/", 64),
    cold("deep-1", "Files of 1 KiB that were not asked for before, three folders deep, one client", DEEP + "/", 1),
    Workload("html", "A page of 1 KiB without directives, page processing on", "/plain.html", equals(plain_page()),
             PROCESSING, features=("ssi",)),
    Workload("missing", "A file that is not there", "/missing.bin", any_body, ALL, status="404",
             note="The floor and tessel (`VerboseErrorsEnable` off) answer with a header alone, the others with their "
                  "own short page, and nginx writes its error log as well as its access log."),
    Workload("64k", "A file of 64 KiB", "/f64k.bin", equals(letters(64 * KIB)), ALL, features=("body=65536",)),
    Workload("10m", "A file of 10 MiB", "/f10m.bin", equals(letters(10240 * KIB)), ALL[1:], compare_every=8,
             longer=3, warm_requests=16, calls_requests=100,
             note="Of every eighth answer each byte is compared; of the others the client drops the bytes unread and "
                  "checks their number, so that it is not the bottleneck."),
    Workload("ssi", "A page with one echo and one include, 1 KiB in all", "/page-{server}.html",
             equals(page("127.0.0.1", INCLUDED)), PROCESSING, features=("ssi",),
             note="Each server has the page in its own way of writing directives."),
    Workload("list100", "The listing of 100 files", "/list100/", lists(100), PROCESSING, features=("listing",),
             warm_requests=50, calls_requests=200,
             note="Each server has its own page. civetweb does not take part: asked for by many at once, its page is "
                  "not always the same."),
    Workload("list10000", "The listing of 10,000 files", "/list10000/", lists(10000), PROCESSING, features=("listing",),
             at_once=8, longer=3, warm_requests=2, calls_requests=20, note="8 at once. Each server has its own page."),
    Workload("cgi", "A program that prints 200 bytes", "/cgi/print200.exe", equals(CGI_BODY.encode()),
             ("tessel", "lighttpd"), features=("cgi",), at_once=8, warm_requests=10, calls_requests=50,
             note="8 at once. The processor time of the program itself, a small static one, is counted too."),
]
