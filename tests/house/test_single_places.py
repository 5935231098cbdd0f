#!/usr/bin/env python3
"""Holds against the sources what is to stand in one place only.

Usage: test_single_places.py [PROJECT]
"""

import re
import sys
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parent.parent.parent

COMMENT_OR_TEXT = re.compile(r'//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"', re.DOTALL)

# What it is; how code looks that has it; the folders that are read; where it may stand.
RULES = [
    (
        "a frame's size comes from the table of capture modes",
        r"(?<![\w.])(1280|1944|2592)(?![\w.])",
        ["verifier"],
        ["verifier/settings/CaptureModes.h"],
    ),
    (
        "the navigator's size comes from the table of capture modes",
        r"(?<![\w.])80\b[^;\n]*\b60(?![\w.])|Navigator\w* = \d",
        ["verifier"],
        ["verifier/settings/CaptureModes.h"],
    ),
    (
        "the number of capture modes and the bytes of a pixel come from the table of capture modes",
        r"(ModeCount|BytesPerPixel) = \d|\w \w+\[3\]|(width|height|columns)\w*(\(\))? \* [234]\b",
        ["verifier"],
        ["verifier/settings/CaptureModes.h"],
    ),
    (
        "a USB disk's mount point is kDiskMountPoint",
        r'"/mnt',
        ["verifier", "simulator"],
        ["verifier/platform/InstrumentPath.h"],
    ),
    (
        "signals are connected by member pointer",
        r"\b(SIGNAL|SLOT)\(",
        ["verifier", "simulator", "benchmarks"],
        # The listener's interface has the string form; the operator knows the window by name.
        ["verifier/Controller/Controller.cpp", "simulator/operator/Operator.cpp"],
    ),
    (
        "what is freed by hand has no owner",
        r"\bdelete\b(?!\s*;)(\[\])?\s+\w|\b(malloc|calloc|realloc|free)\(",
        ["verifier", "simulator", "benchmarks"],
        # A run that never ends makes room for the next; pages that are not touched cost nothing.
        ["verifier/ORLA_II_Plus_Verifier_Autofocus.cpp", "verifier/camera/FrameSlots.cpp", "verifier/camera/FrameSlots.h"],
    ),
    (
        "what is made without a parent has an owner",
        r"\bnew [\w:]+( [\w:]+)*(;|\[|\(\))",
        ["verifier", "simulator", "benchmarks"],
        # The process's one controller, which stays to the end; and an image that a unique_ptr
        # takes, without zeros that would be overwritten.
        ["verifier/Controller/Controller.cpp", "verifier/QC/QC_measure.cpp"],
    ),
    (
        "the program's version comes from the project",
        r'"\d+\.\d+\.\d+"|Version%20QC=\d',
        ["verifier", "simulator"],
        # What a settings file without a version counts as.
        ["verifier/settings/MainSettings.cpp", "simulator/session/StartSteps.cpp"],
    ),
    (
        "the simulated camera's bytes of a pixel come from its table of modes",
        r"BytesPerPixel = \d",
        ["simulator"],
        ["simulator/optics/PictureMode.h"],
    ),
]

# What is written by hand for each version, and where its version stands in it.
WRITTEN_FOR_A_VERSION = [
    ("verifier/ORLA_II_Plus_Verifier.ui", r'name="LABEL_VERSION".*?<string>([^<]*)<'),
    ("packaging/debian/changelog.in", r"\Aorla-verifier \(([^)]*)-\d+\)"),
    ("CHANGELOG.md", r"\n## \[([^]]*)\]"),
]


def without_comments(text):
    """Code and texts, line for line."""
    def kept(match):
        found = match.group()
        return found if found.startswith('"') else "\n" * found.count("\n")

    return COMMENT_OR_TEXT.sub(kept, text)


def places(pattern, folders, root):
    """{file: [line number, ...]} of what matches in the folders' code."""
    found = {}
    for folder in folders:
        for path in sorted((root / folder).rglob("*")):
            if path.suffix not in (".cpp", ".h"):
                continue
            lines = without_comments(path.read_text(encoding="utf-8")).splitlines()
            numbers = [number for number, line in enumerate(lines, 1) if re.search(pattern, line)]
            if numbers:
                found[path.relative_to(root).as_posix()] = numbers
    return found


class SinglePlaces(unittest.TestCase):
    def test_each_thing_stands_where_it_belongs_and_nowhere_else(self):
        for rule, pattern, folders, allowed in RULES:
            with self.subTest(rule):
                found = places(pattern, folders, PROJECT)
                elsewhere = {file: lines for file, lines in found.items() if file not in allowed}
                self.assertEqual(elsewhere, {})
                self.assertEqual(sorted(set(allowed) - set(found)), [], "allowed, but not there any more")


class Version(unittest.TestCase):
    def test_what_is_written_by_hand_names_the_projects_version(self):
        text = (PROJECT / "CMakeLists.txt").read_text(encoding="utf-8")
        version = re.search(r"project\(orla-verifier VERSION ([\d.]+)", text).group(1)
        for file, pattern in WRITTEN_FOR_A_VERSION:
            with self.subTest(file):
                text = (PROJECT / file).read_text(encoding="utf-8")
                self.assertEqual(re.search(pattern, text, re.DOTALL).group(1), version)


class Patterns(unittest.TestCase):
    """What the rules find, and what they leave alone."""

    FOUND = [
        (0, ["QSize(2592, 1944)", "if (width == 1280)"]),
        (1, ["QRect frame(0, 0, 80, 60);", "constexpr int kNavigatorWidth_px = 80;"]),
        (2, ["int table[3];", "constexpr int kModeCount = 3;", "size.width() * 3", "kBytesPerPixel = 2;"]),
        (3, ['QString path = "/mnt/file";']),
        (4, ["connect(a, SIGNAL(clicked()), b, SLOT(go()));"]),
        (5, ["delete m_run;", "delete[] bytes;", "std::free(memory);", "malloc(20)"]),
        (6, ["auto* timer = new QTimer;", "new unsigned char[size]", "new QObject()"]),
        (7, ['QString version = "0.0.2";', "Version%20QC=0.0.2"]),
        (8, ["constexpr unsigned kBytesPerPixel = 2;"]),
    ]
    LEFT_ALONE = [
        (0, ["on_BUTTON_RESOLUTION_1280_clicked()", "// 2592 x 1944", "0.1280", "/* 1280\n */"]),
        (1, ["// 80 x 60", "QRect(0, 0, kNavigatorWidth_px, 60)"]),
        (2, ["kFineCount * 3", "pieces[2]", "// width * 3"]),
        (3, ['// "/mnt"', 'QString("/media")', '"http://mnt"']),
        (4, ["connect(a, &A::clicked, b, &B::go);"]),
        (5, ["A(const A&) = delete;", "// delete it", "m_free(1)"]),
        (6, ["new QTimer(this)", "std::make_unique<QTimer>()", "a new frame"]),
        (7, ['"1.02"', "Version%20QC=)\" ORLA_VERSION", '// "0.0.2"']),
        (8, ["kBytesPerPixel = PictureMode::kBytesPerPixel;"]),
    ]

    def finds(self, index, line):
        return any(re.search(RULES[index][1], each) for each in without_comments(line).splitlines())

    def test_what_does_not_belong_is_found(self):
        for index, lines in self.FOUND:
            for line in lines:
                self.assertTrue(self.finds(index, line), line)

    def test_what_only_looks_like_it_is_left_alone(self):
        for index, lines in self.LEFT_ALONE:
            for line in lines:
                self.assertFalse(self.finds(index, line), line)


if __name__ == "__main__":
    if len(sys.argv) == 2:
        PROJECT = Path(sys.argv.pop())
    unittest.main()
