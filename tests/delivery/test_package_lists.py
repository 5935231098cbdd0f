#!/usr/bin/env python3
"""Holds the lists of packages against the tools that scripts and tests ask for."""

import re
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parent.parent.parent
FOLDERS = ("scripts", "tests", "docs", "packaging", "cmake", "benchmarks")
FILES = ("CMakeLists.txt", "run", "test", ".ci/run")

# How a script asks whether a tool is there.
QUESTIONS = [
    re.compile(r'shutil\.which\("([^"]+)"\)'),
    re.compile(r'findExecutable\("([^"]+)"\)'),
    re.compile(r"find_program\(\w+ ([\w.-]+)"),
    re.compile(r"command -v ([\w.-]+)"),
    re.compile(r"for tool in ([^;$]+); do\n\s+command -v"),
]

# The package that brings a tool; None: there on every Debian, or done without.
PACKAGE_OF = {
    "apt-get": None,
    "ccache": None,
    "chromium": "chromium",
    "clang-format": "clang-format",
    "clang-tidy": "clang-tidy",
    "cpack": "cmake",
    "cppcheck": "cppcheck",
    "dot": "graphviz",
    "doxygen": "doxygen",
    "dpkg-deb": None,
    "dpkg-query": None,
    "dpkg-shlibdeps": "dpkg-dev",
    "git": "git",
    "gnuplot": "gnuplot-nox",
    "gzip": None,
    "lintian": "lintian",
    "mkfs.ext2": None,
    "mmdebstrap": "mmdebstrap",
    "pngquant": "pngquant",
    "readelf": "g++",
    "sudo": None,
    "systemd-analyze": "systemd",
}


def lists():
    """Each list's packages, by the list's name."""
    found = {}
    for path in sorted((PROJECT / "scripts").glob("*packages.txt")):
        lines = path.read_text(encoding="utf-8").splitlines()
        found[path.name] = [line for line in lines if not line.startswith("#")]
    return found


def tools_asked_for():
    """(tool, file) of every question."""
    files = [PROJECT / name for name in FILES]
    for folder in FOLDERS:
        files += [path for path in (PROJECT / folder).rglob("*") if path.is_file()]
    asked = set()
    for path in files:
        if path == Path(__file__).resolve() or path.suffix in (".png", ".svg", ".pyc"):
            continue
        text = path.read_text(encoding="utf-8", errors="replace")
        for question in QUESTIONS:
            for match in question.finditer(text):
                asked |= {(tool, path.relative_to(PROJECT).as_posix()) for tool in match.group(1).split()}
    return sorted(asked)


class PackageLists(unittest.TestCase):
    def test_a_list_is_sorted_and_says_what_it_is_for(self):
        self.assertGreaterEqual(len(lists()), 3)
        for name, packages in lists().items():
            text = (PROJECT / "scripts" / name).read_text(encoding="utf-8")
            self.assertTrue(text.startswith("# Debian packages that "), name)
            self.assertTrue(packages, name)
            self.assertEqual(packages, sorted(packages), name)
            for package in packages:
                self.assertRegex(package, r"^[a-z0-9][a-z0-9+.-]+$", name)

    def test_a_package_stands_in_one_list(self):
        everything = [package for packages in lists().values() for package in packages]
        self.assertEqual(sorted(set(everything)), sorted(everything))

    def test_every_tool_that_is_asked_for_comes_from_a_list(self):
        listed = {package for packages in lists().values() for package in packages}
        asked = tools_asked_for()
        self.assertIn(("pngquant", "scripts/refresh-pictures"), asked)
        self.assertIn(("cppcheck", "scripts/lint"), asked)
        for tool, file in asked:
            self.assertIn(tool, PACKAGE_OF, f"{file} asks for it; say here which package brings it")
            if PACKAGE_OF[tool] is not None:
                self.assertIn(PACKAGE_OF[tool], listed, f"{file} asks for {tool}")

    def test_a_message_names_a_package_that_is_listed(self):
        listed = {package for packages in lists().values() for package in packages}
        named = set()
        for path in [*(PROJECT / "scripts").iterdir(), *(PROJECT / "packaging").glob("*.cmake")]:
            if path.is_file():
                named |= set(re.findall(r"nstall the package ([a-z0-9.+-]*[a-z0-9+])", path.read_text(encoding="utf-8")))
        self.assertTrue(named)
        self.assertEqual(named - listed, set())


if __name__ == "__main__":
    unittest.main()
