#!/usr/bin/python3
"""Keeps the rules of the house, and shows for each rule that it would notice a breach."""

import pathlib
import subprocess
import unittest

import house_rules

ROOT = pathlib.Path(__file__).resolve().parents[2]


def tracked_tree():
    """Every file that belongs to the project: those in the index, or, without a repository, those that lie there."""
    if (ROOT / ".git").exists():
        listed = subprocess.run(["git", "-c", "safe.directory=*", "-C", str(ROOT), "ls-files", "-z"], check=True,
                                stdout=subprocess.PIPE, timeout=60).stdout
        paths = [ROOT / name for name in listed.decode("utf-8", "surrogateescape").split("\0") if name]
    else:
        paths = [p for p in ROOT.rglob("*") if not p.relative_to(ROOT).parts[0].startswith("build")]
    return {p.relative_to(ROOT).as_posix(): p.read_bytes() for p in paths if p.is_file()}


class TheTree(unittest.TestCase):
    """One test for each rule."""


def _make_test(rule):
    def test(self):
        breaches = rule(tracked_tree())
        self.assertEqual(breaches, [], "\n" + "\n".join(breaches))

    test.__doc__ = rule.__doc__
    return test


for _rule in house_rules.RULES:
    setattr(TheTree, "test_" + _rule.__name__, _make_test(_rule))


class TheTreeIsSeen(unittest.TestCase):
    def test_the_tree_has_its_layers_and_public_headers(self):
        tree = tracked_tree()
        missing = [layer for layer in house_rules.LAYERS if layer + "/sources.cmake" not in tree]
        self.assertEqual(missing, [])
        self.assertIn("Tessel.h", house_rules.public_headers(tree))


class TheRules(unittest.TestCase):
    """A small tree that keeps every rule, and what happens when one thing is put wrong."""

    def setUp(self):
        host = b"#include <TesselServer/Tessel.h>\nint main() {}\n"
        self.tree = {
            "platform/sources.cmake": b"set(SOURCES\n  Clock.cpp)\nset(PUBLIC_HEADERS world/Error.h)\n",
            "platform/world/Error.h": b"// An error.\n#pragma once\n#include <string>\n",
            "platform/Clock.h": b"#pragma once\n",
            "platform/Clock.cpp": b'#include "platform/Clock.h"\n#include <unistd.h>\n#include <cerrno>\n',
            "support/sources.cmake": b"set(SOURCES Text.cpp)\n",
            "support/Text.h": b"#pragma once\n#include <TesselServer/Error.h>\n",
            "support/Text.cpp": b'#include "support/Text.h"\n#include <vector>\n',
            "files/sources.cmake": b"set(SOURCES )\n",
            "files/List.h": b'#pragma once\n#include "support/Text.h"\n',
            "net/sources.cmake": b"set(SOURCES )\nset(TOOLBOX_SOURCES Ping.cpp)\nset(TOOLBOX_HEADERS Ping.h)\n",
            "net/Names.h": b"#pragma once\n",
            "net/Ping.h": b"#pragma once\n#include <TesselServer/Error.h>\n",
            "net/Ping.cpp": b'#include "net/Ping.h"\n#include "net/Names.h"\n',
            "http/sources.cmake": b"set(SOURCES )\n",
            "http/Page.h": b'#pragma once\n#include "files/List.h"\n#include "net/Names.h"\n',
            "control/sources.cmake": b"set(SOURCES internal/Core.cpp)\nset(PUBLIC_HEADERS Tessel.h)\n",
            "control/Tessel.h": b"#pragma once\n#include <TesselServer/Error.h>\n",
            "control/internal/Core.cpp": b'#include "http/Page.h"\n',
            "host/Options.h": b"#pragma once\n",
            "host/main.cpp": b'#include <CLI/CLI.hpp>\n#include <csignal>\n#include "host/Options.h"\n',
            "examples/minimal.cpp": host,
            "tests/host/OptionsTest.cpp": b'#include "host/Options.h"\n',
            "tests/kit/Tree.h": b'#pragma once\n#include "platform/Clock.h"\n',
            "tests/http/PageTest.cpp": b'#include <gtest/gtest.h>\n#include <sys/stat.h>\n#include "http/Page.h"\n'
                                       b'#include "tests/kit/Tree.h"\n',
            "README.md": b"# It\n\n```cpp\n" + host + b"```\n\nSee [the clock](platform/Clock.h), [a page](https://x.org/y).\n",
        }

    def expect_breach(self, rule, path, words):
        breaches = rule(self.tree)
        self.assertEqual(len(breaches), 1, breaches)
        self.assertTrue(breaches[0].startswith(path + ": "), breaches[0])
        self.assertIn(words, breaches[0])

    def test_a_clean_tree_keeps_every_rule(self):
        for rule in house_rules.RULES:
            self.assertEqual(rule(self.tree), [], rule.__name__)

    def test_wrong_includes_are_noticed(self):
        cases = [
            ("support/Text.cpp", '#include "files/List.h"', "upward"),
            ("files/List.h", '#include "net/Names.h"', "sideways"),
            ("net/Names.h", '#include "files/List.h"', "sideways"),
            ("platform/Clock.cpp", '#include "support/Text.h"', "upward"),
            ("http/Page.h", '#include "control/Tessel.h"', "upward"),
            ("support/Text.h", "#include <TesselServer/Tessel.h>", "upward through a public name"),
            ("support/Text.h", "#include <TesselServer/Text.h>", "a header that is not public"),
            ("support/Text.cpp", "#include <unistd.h>", "the operating system"),
            ("control/internal/Core.cpp", "#include <sys/socket.h>", "the operating system"),
            ("http/Page.h", "#  include <errno.h>", "the operating system, written with blanks"),
            ("http/Page.h", "#include <time.h>", "a C header"),
            ("http/Page.h", "#include <cerrno>", "errno by its other name"),
            ("control/Tessel.h", "#include <csignal>", "signals"),
            ("host/main.cpp", "#include <poll.h>", "the operating system in a host"),
            ("host/main.cpp", '#include "control/internal/Core.cpp"', "the insides of the control"),
            ("host/main.cpp", '#include "platform/Clock.h"', "the insides of the library"),
            ("host/main.cpp", "#include <TesselServer/Clock.h>", "a header that is not installed"),
            ("examples/minimal.cpp", '#include "host/Options.h"', "another program"),
            ("examples/minimal.cpp", "#include <CLI/CLI.hpp>", "a library of another program"),
            ("http/Page.h", '#include "host/Options.h"', "a program"),
            ("http/Page.h", '#include "tests/kit/Tree.h"', "the tests"),
            ("http/Page.h", "#include <gtest/gtest.h>", "the test library"),
            ("tests/http/PageTest.cpp", '#include "control/Tessel.h"', "upward in a test"),
            ("tests/http/PageTest.cpp", '#include "host/Options.h"', "a program, in the tests of a layer"),
            ("tests/http/PageTest.cpp", "#include <benchmark/benchmark.h>", "the benchmark library in a test"),
            ("support/Text.cpp", '#include "Text.h"', "a path that does not begin at the root"),
            ("support/Text.cpp", '#include "support/../net/Names.h"', "a path that goes back"),
        ]
        for path, line, why in cases:
            with self.subTest(why):
                before = self.tree[path]
                self.tree[path] = line.encode() + b"\n" + before
                self.expect_breach(house_rules.layer_breaches, path, "includes ")
                self.tree[path] = before

    def test_an_include_in_a_comment_is_no_include(self):
        self.tree["support/Text.cpp"] += b"// #include <unistd.h>\n"
        self.assertEqual(house_rules.layer_breaches(self.tree), [])

    def test_a_use_of_the_toolbox_by_the_library_is_noticed(self):
        for line in (b'#include "net/Ping.h"\n', b"#include <TesselServer/Ping.h>\n"):
            before = self.tree["http/Page.h"]
            self.tree["http/Page.h"] = before + line
            self.expect_breach(house_rules.toolbox_breaches, "http/Page.h", "belongs to the toolbox")
            self.tree["http/Page.h"] = before

    def test_the_toolbox_may_use_the_toolbox(self):
        self.tree["examples/minimal.cpp"] += b"#include <TesselServer/Ping.h>\n"
        self.tree["tests/net/PingTest.cpp"] = b'#include "net/Ping.h"\n'
        self.assertEqual(house_rules.toolbox_breaches(self.tree), [])
        self.assertEqual(house_rules.layer_breaches(self.tree), [])

    def test_a_public_header_with_a_private_include_is_noticed(self):
        for line in (b'#include "platform/Clock.h"\n', b"#include <unistd.h>\n"):
            self.tree["platform/world/Error.h"] = b"#pragma once\n" + line
            self.expect_breach(house_rules.public_header_breaches, "platform/world/Error.h", "is public and includes")

    def test_a_public_header_that_is_missing_is_noticed(self):
        del self.tree["control/Tessel.h"]
        self.expect_breach(house_rules.public_header_breaches, "control/Tessel.h", "is not there")

    def test_a_header_without_guard_is_noticed(self):
        for data in (b"", b"#include <string>\n#pragma once\n", b"// #pragma once\n"):
            self.tree["net/Names.h"] = data
            self.expect_breach(house_rules.guard_breaches, "net/Names.h", "no #pragma once")

    def test_a_long_file_is_noticed(self):
        self.tree["support/Text.cpp"] = b"\n" * 600
        self.assertEqual(house_rules.length_breaches(self.tree), [])
        self.tree["support/Text.cpp"] = b"\n" * 601
        self.expect_breach(house_rules.length_breaches, "support/Text.cpp", "601 lines")

    def test_a_source_that_is_not_built_is_noticed(self):
        self.tree["net/Names.cpp"] = b""
        self.expect_breach(house_rules.source_list_breaches, "net/Names.cpp", "is not in net/sources.cmake")

    def test_private_words_are_noticed(self):
        for word in house_rules.PRIVATE_WORDS:
            with self.subTest(word):
                tree = {"a.txt": b"one\ntwo " + word.upper().encode() + b"\n"}
                self.assertEqual(house_rules.word_breaches(tree), ['a.txt: has "%s" in line 2' % word])
                self.assertEqual(len(house_rules.word_breaches({"docs/x" + word: b""})), 1)

    def test_a_readme_that_shows_another_host_is_noticed(self):
        for data, words in ((b"# It\n", "shows no host"), (b"```cpp\nint main() {}\n```\n", "is not examples/minimal.cpp")):
            self.tree["README.md"] = data
            self.expect_breach(house_rules.readme_breaches, "README.md", words)

    def test_a_host_of_21_lines_is_noticed(self):
        self.tree["examples/minimal.cpp"] = b"\n" * 21
        self.tree["README.md"] = b"```cpp\n" + b"\n" * 21 + b"```\n"
        self.expect_breach(house_rules.readme_breaches, "README.md", "21 lines")

    def test_a_dead_link_is_noticed(self):
        self.tree["docs/tour.md"] = b"[up](../README.md#it) [folder](../host/) [gone](gone.md)\n"
        self.expect_breach(house_rules.link_breaches, "docs/tour.md", "gone.md")


if __name__ == "__main__":
    unittest.main(verbosity=2)
