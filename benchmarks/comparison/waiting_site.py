"""What keeps a server busy for long or has to be waited for: the site, and who asks for what of it."""

import base64
import dataclasses
import re
import typing

import site_tree

SMALL = "/small/f1k.bin"
MANY = 100_000                 # files in a folder, and tags in a page
PAGE_BYTES = 64 << 20
PASSWORDS_BYTES = 16 << 20
SLOW_FILES = 8
SLOW_BYTES = 100 * 1024        # more than what a server keeps in memory
SLOW_MILLISECONDS = 200        # each reading of the slow disk
TAG = '<!--#echo var="REMOTE_ADDR"-->'
LAST_USER = "zoe:kept-at-the-end"
END_OF_PAGE = b"<p>The page ends here.</p>\n"
PROGRAM_HEAD = "Content-Type: text/plain\\n\\n"


def file_name(number):
    return "file%06d.txt" % number


def large_page():
    """A page of 64 MiB with its tags spread evenly."""
    room = PAGE_BYTES - len(END_OF_PAGE)
    part = TAG.encode() + site_tree.letters(room // MANY - len(TAG) - 1) + b"\n"
    page = part * MANY
    return page + b" " * (room - len(page)) + END_OF_PAGE


def passwords():
    """A file of passwords whose last line alone lets a client in."""
    line = b"somebody:whose password is of no use to anybody who asks here\n"
    last = (LAST_USER + "\n").encode()
    return line * ((PASSWORDS_BYTES - len(last)) // len(line)) + last


def exec_page(names):
    return "".join('<!--#exec cgi="%s"-->,' % name for name in names)


def write_program(path, script):
    path.write_text("#!/bin/sh\n%s\n" % script)
    path.chmod(0o755)


def build(root, slow):
    """Writes the site into the folder `root`, and what the slow disk shows into the folder `slow`."""
    for folder in ("small", "cgi", "many", "guarded", "slow"):
        (root / folder).mkdir()
    for path in (root / "small" / "f1k.bin", root / "guarded" / "f1k.bin"):
        path.write_bytes(site_tree.letters(1024))
    for i in range(MANY):
        (root / "many" / file_name(i)).write_bytes(b"%06d" % i)
    (root / "guarded" / "htaccess.txt").write_bytes(passwords())
    (root / "large.html").write_bytes(large_page())
    (root / "host.html").write_text('[<!--#echo var="REMOTE_HOST"-->]')
    write_program(root / "cgi" / "sleep5.exe", "printf '%s'; sleep 5; echo slept" % PROGRAM_HEAD)
    write_program(root / "cgi" / "print.exe", "printf '%s'; exec timeout 20 yes" % PROGRAM_HEAD)
    naps = ["nap%d.exe" % i for i in range(5)]
    for name in naps:
        write_program(root / "cgi" / name, "sleep 1; echo slept")
    (root / "naps.html").write_text(exec_page(naps))
    for i in range(SLOW_FILES):
        (slow / ("s%d.bin" % i)).write_bytes(site_tree.letters(SLOW_BYTES))


@dataclasses.dataclass(frozen=True)
class Ask:
    """One request, and what is wrong with the body of its answer, "" when nothing is."""

    path: str
    check: typing.Callable
    source: str = ""               # where the client comes from, "" as the system chooses
    fields: str = ""               # further header lines, each with its end


@dataclasses.dataclass(frozen=True)
class Workload:
    name: str
    title: str
    waves: typing.Callable         # (number of the wave from 0) -> the requests of it, all at once; None at the end
    features: tuple = ()
    before: int = 0                # how many waves come before what is measured
    timeout: int = 30              # CGITimeout, in seconds
    others: tuple = ()             # who else can do it


def holds(text):
    return lambda body: "" if text in body else "%d bytes without %s" % (len(body), text)


def counts(text, expected):
    def check(body):
        found = body.count(text)
        return "" if found == expected else "%d times %s, not %d" % (found, text, expected)
    return check


def lists_all(body):
    named = len(set(re.findall(rb"file\d{6}\.txt", body)))
    return "" if named == MANY else "%d of %d files are listed" % (named, MANY)


def is_large_page(body):
    if not body.endswith(END_OF_PAGE):
        return "%d bytes, which do not end as the page does" % len(body)
    return counts(b"127.0.0.1", MANY)(body)


def once(*asks):
    return lambda number: asks if number == 0 else None


def always(*asks):
    return lambda number: asks


def _other_case(number):
    wanted = (number * 7919 + MANY // 2) % MANY
    return (Ask("/many/" + file_name(wanted).upper(), site_tree.equals(b"%06d" % wanted)),)


def _unknown_client(number):
    """A page that names its client, asked for by one that nobody asked for a name before."""
    return (Ask("/host.html", holds(b"[Unknown]"), source="127.0.%d.%d" % (1 + number // 250, 1 + number % 250)),)


def _slow_disk(number):
    files = tuple(Ask("/slow/s%d.bin" % ((number + i) % SLOW_FILES), site_tree.equals(site_tree.letters(SLOW_BYTES)))
                  for i in range(2))
    return files + (Ask("/slow/", counts_names(SLOW_FILES)),)


def counts_names(expected):
    def check(body):
        named = len(set(re.findall(rb"s\d\.bin", body)))
        return "" if named == expected else "%d of %d files are listed" % (named, expected)
    return check


def _authorization(user):
    return "Authorization: Basic %s\r\n" % base64.b64encode(user.encode()).decode()


SLEEPER = Ask("/cgi/sleep5.exe", holds(b"slept\n"))
NAPS = Ask("/naps.html", counts(b"slept", 5))
PRINTER = Ask("/cgi/print.exe", holds(b"y\ny\n"))
LISTING = Ask("/many/", lists_all)
LARGE = Ask("/large.html", is_large_page)
GUARDED = Ask("/guarded/f1k.bin", site_tree.equals(site_tree.letters(1024)), fields=_authorization(LAST_USER))


def _together(number):
    if number > 0:
        return None
    return (SLEEPER,) * 10 + (NAPS, PRINTER, LISTING, LARGE, GUARDED) + _other_case(0) + _unknown_client(7) + _slow_disk(0)


BOTH = ("lighttpd", "nginx")
WORKLOADS = [
    Workload("nothing", "nothing else", always(), others=BOTH),
    Workload("program", "a program that sleeps 5 s", once(SLEEPER), ("cgi",), others=("lighttpd",)),
    Workload("programs", "ten of them", once(*[SLEEPER] * 10), ("cgi",), others=("lighttpd",)),
    Workload("naps", "a page with five programs", once(NAPS), ("cgi", "ssi")),
    Workload("printer", "a program that prints for ever, for 3 s", once(PRINTER), ("cgi",), timeout=3),
    Workload("listing-cold", "a listing of 100,000 files, the first", once(LISTING), ("listing",), others=BOTH),
    Workload("listing-warm", "a listing of 100,000 files, from the third", always(LISTING), ("listing",), before=2,
             others=BOTH),
    Workload("page", "a page of 64 MiB with 100,000 tags", once(LARGE), ("ssi",)),
    Workload("case", "a name in other case among 100,000", _other_case),
    Workload("names", "a silent name server, a page with REMOTE_HOST", _unknown_client, ("ssi",)),
    Workload("slow", "a disk that sleeps 200 ms in each reading", _slow_disk, ("listing",), others=BOTH),
    Workload("passwords", "a password file of 16 MiB", always(GUARDED), ("guarded",)),
    Workload("together", "all of them together", _together, ("cgi", "ssi", "listing", "guarded"), timeout=8),
]
NAMES = [workload.name for workload in WORKLOADS]
