#!/usr/bin/python3
"""What the documents say and the sources can prove."""

import pathlib
import re
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent


def lines_of(text):
    return [line.strip() for line in text.splitlines() if line.strip()]


def is_part(lines, of):
    return any(of[i:i + len(lines)] == lines for i in range(len(of) - len(lines) + 1))


class Documents(unittest.TestCase):
    def test_the_code_in_the_readme_is_built_and_tested(self):
        blocks = re.findall(r"^```cpp\n(.*?)^```$", (ROOT / "README.md").read_text(), re.MULTILINE | re.DOTALL)
        sources = [*(ROOT / "examples").glob("*.cpp"), *(ROOT / "tests" / "wire").glob("*.cpp")]
        self.assertGreater(len(blocks), 1)
        for block in blocks:
            self.assertTrue(any(is_part(lines_of(block), lines_of(source.read_text())) for source in sources), block)

    def test_the_places_of_a_setting_are_all_named(self):
        tour = (ROOT / "docs" / "architecture.md").read_text()
        row = re.search(r"^\| a setting \|(.*)$", tour, re.MULTILINE).group(1)
        sources = [path for folder in ("control", "host") for ending in ("*.h", "*.cpp")
                   for path in (ROOT / folder).rglob(ending)]
        places = {str(path.relative_to(ROOT)) for path in [*sources, ROOT / "README.md"]
                  if re.search("SSI-?Enable", path.read_text(), re.IGNORECASE)}
        self.assertEqual(set(re.findall(r"`([^`]+)`", row)), places)

    def test_all_variables_are_listed(self):
        source = (ROOT / "http" / "ServerVariables.cpp").read_text()
        named = re.findall(r'^    \{"([A-Z_]+)", ', source, re.MULTILINE)
        listed = re.findall(r"^\| `([A-Z_]+)` \|", (ROOT / "docs" / "variables.md").read_text(), re.MULTILINE)
        self.assertEqual(len(named), 29)
        self.assertEqual(listed, named)
        header = (ROOT / "control" / "Tessel.h").read_text()
        comment = re.search(r"In the order of that list:\n((?:  //   .*\n)*)", header).group(1)
        self.assertEqual(re.findall(r"[A-Z_]+", comment), named)


if __name__ == "__main__":
    unittest.main(verbosity=2)
