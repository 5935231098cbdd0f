#!/usr/bin/env python3
"""Tests how scripts/uncovered.py holds unreached lines against their reasons, on a small project."""

import json
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parent.parent.parent
SCRIPT = PROJECT / "scripts" / "uncovered.py"
SOURCE = """int f(int a)
{
    if (a < 0)
        return -1;
    if (a > 9)
        return -1;
    return a;
}
"""


def line(number, count, branches=()):
    return {"line_number": number, "count": count, "gcovr/noncode": False,
            "branches": [{"count": taken, "fallthrough": False, "throw": False} for taken in branches]}


class Reasons(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.project = Path(directory.name)
        (self.project / "rooms").mkdir()
        (self.project / "rooms" / "f.cpp").write_text(SOURCE, encoding="utf-8")

    def judge(self, counts, reasons):
        """The exit status and the output; counts are those of the lines 3 to 7."""
        lines = [line(3 + index, count, (count, 0) if index in (0, 2) else ()) for index, count in enumerate(counts)]
        report = self.project / "coverage.json"
        report.write_text(json.dumps({"files": [{"file": "rooms/f.cpp", "lines": lines}]}), encoding="utf-8")
        (self.project / "reasons.toml").write_text(reasons, encoding="utf-8")
        command = [sys.executable, "-B", SCRIPT, report, self.project / "reasons.toml", self.project]
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        return done.returncode, done.stdout

    @staticmethod
    def reason(*texts, more="", why="no such number"):
        listed = ", ".join(json.dumps(text) for text in texts)
        return f'[[uncovered]]\nfile = "rooms/f.cpp"\nlines = [{listed}]\nreason = "{why}"\n{more}'

    def test_everything_reached_needs_no_reason(self):
        status, output = self.judge([5, 1, 4, 1, 3], "uncovered = []")
        self.assertEqual(status, 0, output)
        self.assertIn("    5/    5 100.0 %      2/    4  50.0 %  rooms/f.cpp", output)
        self.assertIn("0 lines not reached, 0 complaints", output)

    def test_an_unreached_line_without_a_reason_is_named(self):
        status, output = self.judge([5, 0, 4, 1, 3], "uncovered = []")
        self.assertEqual(status, 1)
        self.assertIn("rooms/f.cpp:4: 1 not reached, and no reason given: return -1;", output)

    def test_an_unreached_line_with_a_reason_passes(self):
        status, output = self.judge([5, 0, 4, 1, 3], self.reason("return -1;"))
        self.assertEqual(status, 0, output)
        self.assertIn("    4/    5  80.0 %", output)

    def test_one_reason_stands_for_one_of_two_equal_lines(self):
        status, output = self.judge([5, 0, 4, 0, 3], self.reason("return -1;"))
        self.assertEqual(status, 1)
        self.assertIn("rooms/f.cpp:4, 6: 1 not reached, and no reason given: return -1;", output)
        status, output = self.judge([5, 0, 4, 0, 3], self.reason("return -1;", "return -1;"))
        self.assertEqual(status, 0, output)

    def test_a_reason_for_a_reached_line_is_named(self):
        status, output = self.judge([5, 1, 4, 1, 3], self.reason("return a;"))
        self.assertEqual(status, 1)
        self.assertIn("rooms/f.cpp: a reason for a line that is reached (1 too many): return a;", output)

    def test_a_reason_for_a_line_that_is_gone_is_named(self):
        status, output = self.judge([5, 1, 4, 1, 3], self.reason("return 7;", more="sometimes = true\n"))
        self.assertEqual(status, 1)
        self.assertIn("rooms/f.cpp: a reason for a line that is gone: return 7;", output)

    def test_a_line_of_chance_may_be_reached_or_not(self):
        reasons = self.reason("return a;", more="sometimes = true\n")
        for count in (0, 3):
            status, output = self.judge([5, 1, 4, 1, count], reasons)
            self.assertEqual(status, 0, output)

    def test_an_entry_needs_a_reason(self):
        status, output = self.judge([5, 1, 4, 1, 0], self.reason("return a;", why=" "))
        self.assertEqual(status, 1)
        self.assertIn("rooms/f.cpp: an entry without a reason", output)

    def test_a_report_of_nothing_fails(self):
        (self.project / "empty.json").write_text('{"files": []}', encoding="utf-8")
        (self.project / "reasons.toml").write_text("uncovered = []", encoding="utf-8")
        command = [sys.executable, "-B", SCRIPT, self.project / "empty.json", self.project / "reasons.toml",
                   self.project]
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        self.assertNotEqual(done.returncode, 0)

    def test_the_project_s_own_reasons_can_be_read(self):
        import tomllib
        reasons = tomllib.loads((PROJECT / "tests" / "uncovered.toml").read_text(encoding="utf-8"))
        for entry in reasons["uncovered"]:
            self.assertEqual(set(entry) - {"sometimes"}, {"file", "lines", "reason"})
            texts = (PROJECT / entry["file"]).read_text(encoding="utf-8").splitlines()
            stripped = [text.strip() for text in texts]
            for text in entry["lines"]:
                self.assertIn(text, stripped, entry["file"])


if __name__ == "__main__":
    unittest.main()
