"""The rules of the house, as functions over a tree of files.

A tree is a dictionary from path, with "/" and relative to the root, to the file's bytes. Each rule answers a list of
lines, one for each breach, which begin with the path; an empty list means that the rule is kept.
"""

import posixpath
import re

# A layer may include itself and the layers it stands on.
LAYERS = {
    "platform": {"platform"},
    "support": {"support", "platform"},
    "files": {"files", "support", "platform"},
    "net": {"net", "support", "platform"},
    "http": {"http", "files", "net", "support", "platform"},
    "control": {"control", "http", "files", "net", "support", "platform"},
}

# Programs that host the control: they see its public headers and their own, nothing else.
HOSTS = {"host", "examples"}

# The headers of the C++20 standard library. Whatever else stands between < and > belongs to the operating system or to
# somebody else.
STANDARD_HEADERS = set("""
    algorithm any array atomic barrier bit bitset charconv chrono codecvt compare complex concepts condition_variable
    coroutine deque exception execution filesystem format forward_list fstream functional future initializer_list iomanip
    ios iosfwd iostream istream iterator latch limits list locale map memory memory_resource mutex new numbers numeric
    optional ostream queue random ranges ratio regex scoped_allocator semaphore set shared_mutex source_location span
    sstream stack stdexcept stop_token streambuf string string_view strstream syncstream system_error thread tuple
    type_traits typeindex typeinfo unordered_map unordered_set utility valarray variant vector version
    cassert cctype cerrno cfenv cfloat cinttypes climits clocale cmath csetjmp csignal cstdarg cstddef cstdint cstdio
    cstdlib cstring ctime cuchar cwchar cwctype""".split())

# Standard headers that are doors to the operating system all the same, and who may open them.
GUARDED_HEADERS = {"cerrno": {"platform", "tests", "fuzz"}, "csignal": {"platform", "host", "tests", "fuzz"}}

# Headers of others, and the folders that may use them.
FOREIGN_HEADERS = {
    "gtest/": {"tests", "fuzz"},
    "gmock/": {"tests", "fuzz"},
    "benchmark/": {"benchmarks"},
    "CLI/": {"host"},
}

# Whose tests and tools may use headers of the operating system, as platform/ does.
NEAR_THE_SYSTEM = {"platform", "tests", "benchmarks", "fuzz"}

MAX_LINES = 600  # a longer file of the library is two files

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(?:<([^>\n]+)>|"([^"\n]+)")', re.MULTILINE)


def text(data):
    return data.decode("utf-8", "surrogateescape")


def top(path):
    return path.split("/", 1)[0]


def is_code(path):
    return path.endswith((".h", ".cpp"))


def _listed(tree, name):
    """The paths that the list `name` holds in the sources.cmake of all layers."""
    paths = []
    for layer in LAYERS:
        match = re.search(r"set\(%s\b([^)]*)\)" % name, text(tree.get(layer + "/sources.cmake", b"")))
        paths += [layer + "/" + each for each in match.group(1).split()] if match else []
    return paths


def public_headers(tree):
    """The installed headers: name -> path of the file in its layer."""
    return {posixpath.basename(path): path for path in _listed(tree, "PUBLIC_HEADERS") + _listed(tree, "TOOLBOX_HEADERS")}


def toolbox(tree):
    """The files of the toolbox: its sources, their headers and the public ones."""
    sources = _listed(tree, "TOOLBOX_SOURCES")
    headers = [path[:-len(".cpp")] + ".h" for path in sources] + _listed(tree, "TOOLBOX_HEADERS")
    return set(sources + headers) & set(tree)


def includes(data):
    """All (name, in angles) of a file."""
    return [(angled or quoted, bool(angled)) for angled, quoted in INCLUDE.findall(text(data))]


def _allowed_layers(path):
    """The layers whose headers `path` may include; None when it may include all."""
    parts = path.split("/")
    if parts[0] in LAYERS:
        return LAYERS[parts[0]]
    if parts[0] == "tests" and len(parts) > 2 and parts[1] in LAYERS:
        return LAYERS[parts[1]]
    if parts[0] in HOSTS:
        return set()
    return None


def _check_angled(tree, public, path, name):
    folder = top(path)
    if name.startswith("TesselServer/"):
        target = public.get(name[len("TesselServer/"):])
        if target is None:
            return "is no public header"
        allowed = _allowed_layers(path)
        if folder not in HOSTS and allowed is not None and top(target) not in allowed:
            return "lies in %s/, which is not below" % top(target)
        return None
    if name in GUARDED_HEADERS:
        return None if folder in GUARDED_HEADERS[name] else "is for %s only" % ", ".join(sorted(GUARDED_HEADERS[name]))
    if name in STANDARD_HEADERS:
        return None
    for prefix, folders in FOREIGN_HEADERS.items():
        if name.startswith(prefix):
            return None if folder in folders else "is for %s only" % ", ".join(sorted(folders))
    return None if folder in NEAR_THE_SYSTEM else "is no header of the C++ standard library"


def _check_quoted(tree, path, name):
    if posixpath.normpath(name) != name or name not in tree:
        return "is no path of a file from the root"
    folder, target = top(path), top(name)
    if folder in HOSTS:
        return None if target == folder else "belongs to the insides of the library or to another program"
    if target == folder:
        return None
    if target in HOSTS:
        return None if path.startswith("tests/%s/" % target) else "belongs to a program"
    if target == "tests":
        return None if folder in ("fuzz", "benchmarks") else "belongs to the tests"
    allowed = _allowed_layers(path)
    if allowed is not None and target not in allowed:
        return "lies in %s/, which is not below" % target
    return None


def layer_breaches(tree):
    """Includes go strictly down; hosts see public headers; the system's headers stay in platform/."""
    public = public_headers(tree)
    breaches = []
    for path in sorted(filter(is_code, tree)):
        for name, angled in includes(tree[path]):
            wrong = _check_angled(tree, public, path, name) if angled else _check_quoted(tree, path, name)
            if wrong:
                breaches.append("%s: includes %s, which %s" % (path, name, wrong))
    return breaches


def toolbox_breaches(tree):
    """What belongs to the toolbox is used by the toolbox, by hosts and by tests, never by the library itself."""
    public, tools = public_headers(tree), toolbox(tree)
    breaches = []
    for path in sorted(p for p in tree if is_code(p) and top(p) in LAYERS and p not in tools):
        for name, angled in includes(tree[path]):
            target = public.get(posixpath.basename(name)) if angled else name
            if target in tools:
                breaches.append("%s: includes %s, which belongs to the toolbox" % (path, name))
    return breaches


def public_header_breaches(tree):
    """Public headers include the standard library and each other, as <TesselServer/Name.h>."""
    public = public_headers(tree)
    breaches = []
    for name, path in sorted(public.items()):
        if path not in tree:
            breaches.append("%s: is listed as a public header and is not there" % path)
            continue
        for included, angled in includes(tree[path]):
            if not angled or not (included in STANDARD_HEADERS or included.startswith("TesselServer/")):
                breaches.append("%s: is public and includes %s" % (path, included))
    return breaches


def guard_breaches(tree):
    """Every header begins with #pragma once, behind its comment."""
    breaches = []
    for path in sorted(tree):
        if path.endswith(".h") and not re.search(r"\A(?:[ \t]*(?://[^\n]*)?\n)*#pragma once\n", text(tree[path])):
            breaches.append("%s: has no #pragma once" % path)
    return breaches


def length_breaches(tree):
    """No file of the library or the program is longer than MAX_LINES."""
    breaches = []
    for path in sorted(filter(is_code, tree)):
        lines = tree[path].count(b"\n")
        if (top(path) in LAYERS or top(path) in HOSTS) and lines > MAX_LINES:
            breaches.append("%s: has %d lines" % (path, lines))
    return breaches


def source_list_breaches(tree):
    """A source file that no sources.cmake names would be built by nobody."""
    breaches = []
    for layer in LAYERS:
        names = set(re.sub(r"[()]", " ", text(tree.get(layer + "/sources.cmake", b""))).split())
        for path in sorted(tree):
            if top(path) == layer and path.endswith(".cpp") and path[len(layer) + 1:] not in names:
                breaches.append("%s: is not in %s/sources.cmake" % (path, layer))
    return breaches


# Put together here, so that this file keeps its own rule.
PRIVATE_WORDS = ["speci" + "fication", "spec" + ".md", "/wo" + "rk/"]


def word_breaches(tree):
    """The code explains itself: it points to no paper that its reader does not have, and to no machine's folder."""
    breaches = []
    for path, data in sorted(tree.items()):
        for word in PRIVATE_WORDS:
            if word in path.lower():
                breaches.append('%s: has "%s" in its name' % (path, word))
            if word.encode() in data.lower():
                line = data.lower().split(word.encode())[0].count(b"\n") + 1
                breaches.append('%s: has "%s" in line %d' % (path, word, line))
    return breaches


def first_block(markdown, language):
    """The first fenced block of a language, or None."""
    match = re.search(r"^```%s\n(.*?)^```$" % re.escape(language), markdown, re.MULTILINE | re.DOTALL)
    return match.group(1) if match else None


def readme_breaches(tree):
    """The host shown in README.md is examples/minimal.cpp, which is built, and has 20 lines at most."""
    shown = first_block(text(tree.get("README.md", b"")), "cpp")
    built = text(tree.get("examples/minimal.cpp", b""))
    if shown is None:
        return ["README.md: shows no host"]
    if shown != built:
        return ["README.md: the host it shows is not examples/minimal.cpp"]
    if shown.count("\n") > 20:
        return ["README.md: the host it shows has %d lines" % shown.count("\n")]
    return []


def link_breaches(tree):
    """What README.md, CHANGELOG.md and docs/ link to exists."""
    folders = {posixpath.dirname(path) for path in tree}
    breaches = []
    for path in sorted(p for p in tree if p.endswith(".md")):
        for target in re.findall(r"\]\(([^)#\s]+)", text(tree[path])):
            if re.match(r"[a-z]+:", target):
                continue
            full = posixpath.normpath(posixpath.join(posixpath.dirname(path), target))
            if full not in tree and full not in folders:
                breaches.append("%s: links to %s, which is not there" % (path, target))
    return breaches


RULES = [layer_breaches, toolbox_breaches, public_header_breaches, guard_breaches, length_breaches,
         source_list_breaches, word_breaches, readme_breaches, link_breaches]
