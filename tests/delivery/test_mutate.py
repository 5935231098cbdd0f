#!/usr/bin/env python3
"""Tests which faults scripts/mutate plants, and that its judgements add up over several calls."""

import importlib.machinery
import importlib.util
import sys
import tempfile
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parent.parent.parent
sys.dont_write_bytecode = True
_loader = importlib.machinery.SourceFileLoader("mutate", str(PROJECT / "scripts" / "mutate"))
mutate = importlib.util.module_from_spec(importlib.util.spec_from_loader("mutate", _loader))
sys.modules["mutate"] = mutate
_loader.exec_module(mutate)


def faults(line):
    return list(mutate.faults_of_line(line))


def fault(line="    return 1;", nth=0, number=10):
    kind, after = faults(line)[0]
    return mutate.Fault("verifier/f.cpp", number, kind, line, after, nth)


class Known:
    """A test whose time is known."""

    def __init__(self, name, seconds, labels=()):
        self.name, self.seconds, self.labels, self.folder = name, seconds, labels, "tests/x"


class Faults(unittest.TestCase):
    def test_each_kind_of_fault(self):
        rows = [
            ("    if (a <= b)", ("comparison", "    if (a < b)")),
            ("    if (a < b)", ("comparison", "    if (a <= b)")),
            ("    return a && b;", ("comparison", "    return a || b;")),
            ("    return false;", ("constant", "    return true;")),
            ("    return 41;", ("constant", "    return 42;")),
            ("    {0x3A14, b},", ("constant", "    {0x3A15, b},")),
            ('    log("abcde");', ("text", '    log("abxde");')),
            ("    move(from, to);", ("arguments", "    move(to, from);")),
            ("    ++m_count;", ("dropped", "    ;")),
            ("    static_assert(kA == 3);", ("constant", "    static_assert(kA == 4);")),
        ]
        for line, expected in rows:
            self.assertIn(expected, faults(line), line)

    def test_nothing_is_planted_where_no_code_is(self):
        for line in ("", "#include <a.h>", "// if (a == 1)", " * of 3 steps", "    }", "    /// 3 < 4"):
            self.assertEqual(faults(line), [], line)

    def test_a_comment_behind_code_stays_out_of_it(self):
        self.assertEqual(faults('    int a{};  // 3 of "these"'), [])
        self.assertEqual(faults('    log("//");')[0], ("dropped", "    ;"))

    def test_the_same_seed_chooses_the_same_faults_and_another_seed_others(self):
        def chosen(seed):
            return mutate.chosen_faults("verifier/QC", mutate.random.Random(seed))[:20]

        self.assertEqual(chosen(7), chosen(7))
        self.assertNotEqual(chosen(7), chosen(8))
        places = [(one.path, one.line) for one in mutate.chosen_faults("verifier/QC", mutate.random.Random(7))]
        self.assertEqual(len(places), len(set(places)))


class AddingUp(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.file = Path(directory.name) / "results.jsonl"

    def test_a_later_call_knows_what_an_earlier_one_judged(self):
        mutate.Results(self.file).add(fault(), {"verdict": mutate.FOUND, "by": "t", "ran": ["t"]}, 3)
        again = mutate.Results(self.file)
        self.assertIn(fault(number=99).key(), again.by_key)
        self.assertNotIn(fault(nth=1).key(), again.by_key)
        self.assertEqual(len(again.of("verifier", mutate.FOUND)), 1)
        self.assertEqual(again.of("verifier/camera", mutate.FOUND), [])
        self.assertEqual(again.of("veri", mutate.FOUND), [])

    def test_the_last_judgement_of_a_fault_holds(self):
        results = mutate.Results(self.file)
        results.add(fault(), {"verdict": mutate.SURVIVED, "ran": ["t"]}, 3)
        results.add(fault(), {"verdict": mutate.FOUND, "by": "u", "ran": ["u"]}, 3)
        again = mutate.Results(self.file)
        self.assertEqual(len(again.of("verifier", mutate.FOUND, mutate.SURVIVED)), 1)
        self.assertEqual(len(again.of("verifier", mutate.FOUND)), 1)

    def test_what_found_faults_of_the_file_before_comes_first_and_whole_programs_last(self):
        slow, quick = Known("slow", 20), Known("quick", 1)
        program, near = Known("program", 0.1, ["system"]), Known("test_f", 4)
        results = mutate.Results(self.file)
        tests = [program, slow, quick, near]
        self.assertEqual(results.order("verifier/f.cpp", tests), [near, quick, slow, program])
        for _ in range(3):
            results.keep(vars(fault(nth=_)) | {"verdict": mutate.FOUND, "by": "slow", "ran": ["near", "quick", "slow"]})
        self.assertEqual(results.order("verifier/f.cpp", tests)[1:], [slow, quick, program])

    def test_the_order_is_learnt_from_another_seed_and_the_score_is_not(self):
        slow, quick = Known("slow", 20), Known("quick", 1)
        self.assertEqual(mutate.Results(None).order("verifier/f.cpp", [slow, quick]), [quick, slow])
        earlier = mutate.Results(self.file)
        for nth in range(3):
            earlier.add(fault(nth=nth), {"verdict": mutate.FOUND, "by": "slow", "ran": ["quick", "slow"]}, 3)
        learnt = mutate.Results(None, self.file)
        self.assertEqual(learnt.order("verifier/f.cpp", [slow, quick]), [slow, quick])
        self.assertEqual(learnt.of("verifier", mutate.FOUND), [])


class Equivalents(unittest.TestCase):
    def test_each_stands_for_a_fault_of_a_line_that_is_there(self):
        mutate.judged_equivalents()

    def assertRefused(self, entries, complaint):
        with tempfile.TemporaryDirectory() as directory:
            listed = Path(directory) / "equivalents.toml"
            listed.write_text(entries, encoding="utf-8")
            before, mutate.EQUIVALENTS = mutate.EQUIVALENTS, listed
            try:
                with self.assertRaisesRegex(SystemExit, complaint):
                    mutate.judged_equivalents()
            finally:
                mutate.EQUIVALENTS = before

    def test_one_that_stands_for_nothing_is_refused(self):
        self.assertRefused('[[fault]]\nfile = "verifier/main.cpp"\nline = "gone();"\nfault = ";"\nreason = "r"\n',
                           "stands for nothing")

    def test_one_that_stands_there_twice_is_refused(self):
        entry = mutate.EQUIVALENTS.read_text(encoding="utf-8").split("[[fault]]")[1]
        self.assertRefused(f"[[fault]]{entry}[[fault]]{entry}", "named twice")


if __name__ == "__main__":
    unittest.main()
