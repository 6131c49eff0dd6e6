#!/usr/bin/python3
"""One seam: what every manner of speaking uses does not know which one is spoken."""

import pathlib
import re
import sys
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
LIBRARY = ("control", "files", "http", "net", "platform", "support")
MANNERS = ("control/classic/", "control/modern/", "http/modern/")

# The property itself: how it is declared, stored and kept.
PROPERTY = {"control/Tessel.h", "control/Tessel.cpp", "control/life/Settings.h", "control/life/Settings.cpp",
            "control/life/Persistence.cpp", "http/Enumerations.h"}
# What makes the manners and gives one to each run.
CHOOSERS = {"control/life/Manners.h", "control/life/Manners.cpp", "control/life/Lifecycle.cpp"}


def sources():
    for layer in LIBRARY:
        for path in sorted((ROOT / layer).rglob("*")):
            if path.suffix in (".h", ".cpp"):
                yield str(path.relative_to(ROOT)), path.read_text(errors="surrogateescape")


def without_comments(text):
    return re.sub(r"//[^\n]*", "", text)


def askers(files):
    """The files that name the mode, the property's own ones aside."""
    return {name for name, text in files
            if name not in PROPERTY and re.search(r"HTTPMode\b", without_comments(text))}


def users(files):
    """{file: manners that it includes}, of files that belong to no manner."""
    found = {}
    for name, text in files:
        if name.startswith(MANNERS):
            continue
        used = {manner for manner in MANNERS if '#include "' + manner in text}
        if used:
            found[name] = used
    return found


def crossings(files):
    """Includes from one manner into another."""
    return [(name, other) for name, text in files for other in MANNERS
            if name.startswith(MANNERS) and name.split("/")[1] != other.split("/")[1] and '#include "' + other in text]


class Manners(unittest.TestCase):
    def test_the_mode_is_asked_for_where_it_is_chosen_and_nowhere_else(self):
        self.assertLessEqual(askers(sources()), CHOOSERS)

    def test_only_what_chooses_includes_a_manner(self):
        self.assertLessEqual(set(users(sources())), CHOOSERS)

    def test_no_manner_includes_another(self):
        self.assertEqual(crossings(sources()), [])

    def test_the_rules_find_what_breaks_them(self):
        files = [("control/answer/Sending.cpp", "if (settings.HTTPMode == e_HTTPMode::Modern) {}"),
                 ("control/answer/Listing.cpp", '#include "http/modern/Request.h"\n// HTTPMode'),
                 ("control/classic/Classic.cpp", '#include "control/modern/ModernInput.h"')]
        self.assertEqual(askers(files), {"control/answer/Sending.cpp"})
        self.assertEqual(users(files), {"control/answer/Listing.cpp": {"http/modern/"}})
        self.assertEqual(crossings(files), [("control/classic/Classic.cpp", "control/modern/")])


if __name__ == "__main__":
    unittest.main(verbosity=2, argv=sys.argv)
