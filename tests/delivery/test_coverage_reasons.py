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
        return self.judge_report(report, reasons)

    def judge_report(self, report, reasons):
        (self.project / "reasons.toml").write_text(reasons, encoding="utf-8")
        command = [sys.executable, "-B", SCRIPT, report, self.project / "reasons.toml", self.project]
        done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
        return done.returncode, done.stdout

    @staticmethod
    def reason(*texts, more="", why="no such number"):
        listed = ", ".join(json.dumps(text) for text in texts)
        return f'[[uncovered]]\nfile = "rooms/f.cpp"\nlines = [{listed}]\nreason = "{why}"\n{more}'

    def assert_judged(self, expected, rows):
        for name, counts, reasons, *told in rows:
            with self.subTest(name):
                status, output = self.judge(counts, reasons)
                self.assertEqual(status, expected, output)
                for line in told:
                    self.assertIn(line, output)

    def test_what_is_reached_or_has_a_reason_passes(self):
        of_chance = self.reason("return a;", more="sometimes = true\n")
        self.assert_judged(0, [
            ("everything reached", [5, 1, 4, 1, 3], "uncovered = []",
             "    5/    5 100.0 %      2/    4  50.0 %  rooms/f.cpp", "0 lines not reached, 0 complaints"),
            ("a line with a reason", [5, 0, 4, 1, 3], self.reason("return -1;"), "    4/    5  80.0 %"),
            ("two equal lines", [5, 0, 4, 0, 3], self.reason("return -1;", "return -1;")),
            ("a line of chance that was not reached", [5, 1, 4, 1, 0], of_chance),
            ("a line of chance that was", [5, 1, 4, 1, 3], of_chance),
        ])

    def test_each_complaint_names_its_line(self):
        self.assert_judged(1, [
            ("no reason", [5, 0, 4, 1, 3], "uncovered = []",
             "rooms/f.cpp:4: 1 not reached, and no reason given: return -1;"),
            ("one reason for two equal lines", [5, 0, 4, 0, 3], self.reason("return -1;"),
             "rooms/f.cpp:4, 6: 1 not reached, and no reason given: return -1;"),
            ("reached all the same", [5, 1, 4, 1, 3], self.reason("return a;"),
             "rooms/f.cpp: a reason for a line that is reached (1 too many): return a;"),
            ("gone", [5, 1, 4, 1, 3], self.reason("return 7;", more="sometimes = true\n"),
             "rooms/f.cpp: a reason for a line that is gone: return 7;"),
            ("an empty reason", [5, 1, 4, 1, 0], self.reason("return a;", why=" "),
             "rooms/f.cpp: an entry without a reason"),
        ])

    def test_a_report_of_nothing_fails(self):
        (self.project / "empty.json").write_text('{"files": []}', encoding="utf-8")
        status, output = self.judge_report(self.project / "empty.json", "uncovered = []")
        self.assertNotEqual(status, 0, output)

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
