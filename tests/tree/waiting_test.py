#!/usr/bin/python3
"""What benchmarks/compare --waiting asks for, and what it makes of what it found."""

import pathlib
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "benchmarks" / "comparison"))

import compare  # noqa: E402
import waiting  # noqa: E402
import waiting_site as site  # noqa: E402

IDLED = {"cpu_ms": 0.25, "wall_ms": 3.0}


def found(turn_cpu=0.5, turn_wall=4.0, small=2.0):
    small = {"requests": 500, "p999_ms": small, "longest_ms": small}
    turns = {"turns": 4000, "long_turns": 7, "turn_cpu_ms": turn_cpu, "turn_wall_ms": turn_wall, "turn_kept_ms": 0.75}
    return waiting.Found(small, turns)


class Site(unittest.TestCase):
    def test_the_page_is_as_long_as_it_may_be_and_has_its_tags(self):
        page = site.large_page()
        self.assertEqual(len(page), site.PAGE_BYTES)
        self.assertEqual(page.count(site.TAG.encode()), site.MANY)
        answer = page.replace(site.TAG.encode(), b"127.0.0.1")
        self.assertEqual(site.is_large_page(answer), "")
        self.assertNotEqual(site.is_large_page(page), "")
        self.assertNotEqual(site.is_large_page(answer[:-1]), "")

    def test_the_password_is_in_the_last_line_alone(self):
        text = site.passwords()
        self.assertLessEqual(len(text), site.PASSWORDS_BYTES)
        self.assertGreater(len(text), site.PASSWORDS_BYTES - 1000)
        self.assertEqual(text.index(site.LAST_USER.encode()), len(text) - len(site.LAST_USER) - 1)

    def test_a_listing_names_each_file(self):
        names = [site.file_name(i).encode() for i in range(site.MANY)]
        self.assertEqual(site.lists_all(b" ".join(names)), "")
        self.assertNotEqual(site.lists_all(b" ".join(names[1:])), "")

    def test_each_wave_in_other_case_asks_for_another_file(self):
        case = next(w for w in site.WORKLOADS if w.name == "case")
        paths = [case.waves(number)[0].path for number in range(1000)]
        self.assertEqual(len(set(paths)), 1000)
        self.assertTrue(all(path.endswith(".TXT") for path in paths))

    def test_each_client_without_a_name_comes_from_another_address(self):
        names = next(w for w in site.WORKLOADS if w.name == "names")
        self.assertEqual(len({names.waves(number)[0].source for number in range(1000)}), 1000)

    def test_the_names_of_workloads_are_no_names_of_others(self):
        self.assertEqual(len(set(site.NAMES)), len(site.NAMES))
        self.assertFalse(set(site.NAMES) & set(compare.NAMES))


class Tables(unittest.TestCase):
    def test_a_row_has_the_turns_and_the_small_files_of_each_server(self):
        others = {"lighttpd": waiting.Found({"requests": 9, "p999_ms": 1, "longest_ms": 1234.5}, {})}
        lines = waiting.table({"page": {"tessel": found(), **others}}, IDLED).splitlines()
        self.assertEqual(lines[2], "| a program that does nothing |  | 0.25 | 3.00 |  |  |  |  |  |  |")
        self.assertEqual(lines[3], "| a page of 64 MiB with 100,000 tags | 7 of 4,000 | 0.50 | 4.00 | 0.75 | 500 | 2.00 | "
                                   "2.00 | 1,234.50 |  |")
        self.assertEqual(len({line.count("|") for line in lines}), 1)

    def test_goals_are_met_up_to_their_limits(self):
        cases = [  # what was found, whether each goal is met, why
            (found(1.0, 5.0, 4.99), ["yes", "yes", "yes"], "each at its limit"),
            (found(1.01, 5.0, 4.99), ["**no**", "yes", "yes"], "processor time"),
            (found(1.0, 5.01, 4.99), ["yes", "**no**", "yes"], "wall: 2 ms more than the machine took"),
            (found(1.0, 5.0, 5.0), ["yes", "yes", "**no**"], "the small file"),
        ]
        for each, met, why in cases:
            rows = waiting.goals_of({"page": {"tessel": each}}, IDLED).splitlines()[2:]
            self.assertEqual([row.split("|")[3].strip() for row in rows], met, why)

    def test_the_machine_takes_the_longer_of_its_times(self):
        self.assertEqual(waiting.longest([{"wall_ms": 1, "cpu_ms": 5}, {"wall_ms": 4, "cpu_ms": 2}]),
                         {"wall_ms": 4, "cpu_ms": 5})

    def test_tables_take_the_place_between_their_marks(self):
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "performance.md"
            parts = ["before", compare.BEGIN_MARK, "theirs", compare.END_MARK, waiting.BEGIN_MARK, "old", waiting.END_MARK,
                     "after"]
            path.write_text("\n".join(parts))
            compare.put("new\n", path, waiting.BEGIN_MARK, waiting.END_MARK)
            parts[5] = "new\n"
            self.assertEqual(path.read_text(), "\n".join(parts))

    def test_the_document_has_the_marks(self):
        text = (ROOT / "docs" / "performance.md").read_text()
        self.assertLess(text.index(waiting.BEGIN_MARK), text.index(waiting.END_MARK))


if __name__ == "__main__":
    unittest.main(verbosity=2)
