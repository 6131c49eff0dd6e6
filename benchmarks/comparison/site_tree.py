"""The site that every server serves, and the workloads: what is asked for, and how the answer is known to be right."""

import dataclasses
import re
import shutil
import typing

KIB = 1024
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
PROCESSING = ("tessel", "nginx", "lighttpd")

WORKLOADS = [
    Workload("1k", "A file of 1 KiB", "/f1k.bin", equals(letters(KIB)), ALL, features=("body=1024",)),
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
