#!/usr/bin/env python3
"""Tests which sources scripts/lint looks at, in which order, and how it ends.

On a small project of its own, with tools that only write down what they are asked, and with a
clock that goes on by what clang-tidy is said to take.
"""

import os
import shutil
import subprocess
import tempfile
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parent.parent.parent
SECONDS_A_SOURCE = 100
PASSED, FINDINGS, SOME_UNCHECKED = 0, 1, 77

# In the order of the commits. Every source includes common.h, which has no source of its own.
COMMITS = [
    ["verifier/oldest.cpp", "verifier/common.h"],
    ["verifier/Part.h", "verifier/Part.cpp"],
    ["simulator/middle.cpp"],
    ["tests/newest.cpp", "tests/second.cpp"],
]


class Lint(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.root = Path(directory.name)
        self.project = self.root / "project"
        self.asked = self.root / "asked"
        self.asked.touch()
        (self.root / "clock").write_text("1000\n", encoding="utf-8")
        for tool in ("clang-format", "cppcheck"):
            self.write_tool(tool, f'echo "{tool}" >>"{self.asked}"')
        self.write_tool("nproc", "echo 1")
        self.write_tool("date", f'cat "{self.root}/clock"')
        self.set_tidy("true")
        self.write("scripts/lint", (PROJECT / "scripts" / "lint").read_text(encoding="utf-8"))
        self.write("scripts/cppcheck-suppressions.txt", "")
        self.write("build/release/compile_commands.json", "[]\n")
        self.git("init", "--quiet", "--initial-branch", "main")
        for files in COMMITS:
            for file in files:
                self.write(file, '#include "common.h"\n' if file.endswith(".cpp") else "")
            self.commit(*files)

    def write(self, file, text):
        path = self.project / file
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def write_tool(self, name, lines):
        path = self.root / "tools" / name
        path.parent.mkdir(exist_ok=True)
        path.write_text(f"#!/bin/sh\n{lines}\n", encoding="utf-8")
        path.chmod(0o755)

    def set_tidy(self, lines):
        """What clang-tidy does besides taking its time; $source is what it looks at."""
        clock = f'read now <"{self.root}/clock"; echo $((now + {SECONDS_A_SOURCE})) >"{self.root}/clock"'
        source = 'for source in "$@"; do :; done'
        self.write_tool("clang-tidy", f'{source}\necho "clang-tidy $source" >>"{self.asked}"\n{clock}\n{lines}')

    def git(self, *arguments):
        who = ["-c", "user.name=somebody", "-c", "user.email=somebody@example.invalid"]
        subprocess.run(["git", *who, *arguments], cwd=self.project, check=True, capture_output=True)

    def commit(self, *files):
        self.git("add", *files)
        self.git("commit", "--quiet", "--message", "change " + " ".join(files))

    def change(self, *files):
        for file in files:
            self.write(file, (self.project / file).read_text(encoding="utf-8") + "// changed\n")

    def lint(self, *arguments, status=PASSED):
        """Runs it, which ends with that status; what it wrote."""
        self.asked.write_text("", encoding="utf-8")
        environment = {**os.environ, "PATH": f"{self.root}/tools:{os.environ['PATH']}"}
        ended = subprocess.run(
            ["bash", "scripts/lint", *arguments],
            cwd=self.project, env=environment, capture_output=True, text=True, check=False,
        )
        self.assertEqual(ended.returncode, status, ended.stderr)
        return ended

    def tools_asked(self):
        return [line.split()[0] for line in self.asked.read_text(encoding="utf-8").splitlines()]

    def looked_at(self):
        lines = self.asked.read_text(encoding="utf-8").splitlines()
        return [line.split()[1] for line in lines if line.startswith("clang-tidy ")]

    def branch_off(self):
        """What is there counts as origin/main from now on."""
        self.git("update-ref", "refs/remotes/origin/main", "HEAD")

    def test_every_source_is_looked_at_the_newest_first(self):
        self.change("verifier/Part.cpp")
        self.lint()
        looked_at = self.looked_at()
        self.assertEqual(looked_at[0], "verifier/Part.cpp")
        self.assertEqual(set(looked_at[1:3]), {"tests/newest.cpp", "tests/second.cpp"})
        self.assertEqual(looked_at[3:], ["simulator/middle.cpp", "verifier/oldest.cpp"])

    def test_only_what_a_branch_has_changed_is_looked_at(self):
        self.branch_off()
        for file in ("verifier/oldest.cpp", "simulator/middle.cpp"):
            self.change(file)
            self.commit(file)
        self.git("rm", "--quiet", "tests/second.cpp")
        self.git("commit", "--quiet", "--message", "remove a test")
        self.lint("--changed")
        self.assertEqual(self.looked_at(), ["simulator/middle.cpp", "verifier/oldest.cpp"])

    def test_a_branch_without_changes_needs_no_look(self):
        self.branch_off()
        self.write("README", "words\n")
        self.commit("README")
        self.lint("--changed")
        self.assertEqual(self.tools_asked(), ["clang-format", "cppcheck"])

    def test_a_header_stands_for_one_source(self):
        self.branch_off()
        self.change("verifier/Part.h")
        self.commit("verifier/Part.h")
        self.lint("--changed")
        self.assertEqual(self.looked_at(), ["verifier/Part.cpp"])

        self.change("verifier/common.h")
        self.commit("verifier/common.h")
        self.lint("--changed")
        looked_at = self.looked_at()
        self.assertEqual(len(looked_at), 2, looked_at)
        self.assertEqual(looked_at[1], "verifier/Part.cpp")
        self.assertIn("common.h", (self.project / looked_at[0]).read_text(encoding="utf-8"))

    def test_a_shallow_checkout_counts_as_changed_as_a_whole(self):
        self.git("checkout", "--quiet", "--orphan", "shallow")
        self.git("commit", "--quiet", "--message", "all of it")
        ended = self.lint("--changed")
        self.assertIn("no commit to compare with", ended.stderr)
        self.assertEqual(len(self.looked_at()), sum(file.endswith(".cpp") for files in COMMITS for file in files))

    def test_what_there_is_no_time_for_is_named(self):
        ended = self.lint("--within", str(2 * SECONDS_A_SOURCE + 1), status=SOME_UNCHECKED)
        self.assertEqual(len(self.looked_at()), 3)
        announced, _, named = ended.stderr.partition("NOT CHECKED")
        self.assertIn(f"5 sources, begun within {2 * SECONDS_A_SOURCE + 1} s", announced)
        self.assertIn("2 of 5 sources", named)
        self.assertIn("\n  verifier/Part.cpp\n  verifier/oldest.cpp\n", named)
        for file in self.looked_at():
            self.assertNotIn(file, named)

    def test_time_enough_is_no_matter(self):
        ended = self.lint("--within", str(5 * SECONDS_A_SOURCE))
        self.assertNotIn("NOT CHECKED", ended.stderr)

    def test_a_finding_counts_more_than_what_was_not_checked(self):
        self.set_tidy('case "$source" in tests/*) echo "$source: finding"; exit 1;; esac')
        ended = self.lint("--within", "1", status=FINDINGS)
        self.assertIn("NOT CHECKED", ended.stderr)

    def test_a_finding_of_one_source_hides_no_other(self):
        self.set_tidy('echo "$source: finding"; exit 1')
        ended = self.lint(status=FINDINGS)
        self.assertEqual(ended.stdout.count(": finding"), 5)

    def test_each_check_is_made_behind_one_that_finds_something(self):
        everything = ["clang-format", "cppcheck", *["clang-tidy"] * 5]
        for tool in ("clang-format", "cppcheck"):
            self.write_tool(tool, f'echo "{tool}" >>"{self.asked}"; exit 1')
            self.lint(status=FINDINGS)
            self.assertEqual(self.tools_asked(), everything)
            self.write_tool(tool, f'echo "{tool}" >>"{self.asked}"')

    def test_a_wrong_option_is_told(self):
        for arguments in (["--within"], ["--within", "soon"], ["--chnaged"]):
            ended = self.lint(*arguments, status=FINDINGS)
            self.assertEqual(ended.stderr.count("\n"), 1, ended.stderr)
            self.assertEqual(self.tools_asked(), [])


if __name__ == "__main__":
    if not shutil.which("git"):
        print("git is not installed, so scripts/lint is not tried")
        raise SystemExit(77)
    unittest.main()
