#!/usr/bin/env python3
"""Reads back from the built programs what they were to be hardened with.

Usage: test_hardening.py READELF plain|optimised PROGRAM...

Status 77, skipped, without readelf.
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

READELF = ""
OPTIMISED = True
PROGRAMS = []


def readelf(*arguments):
    environment = {**os.environ, "LC_ALL": "C"}
    return subprocess.run(
        [READELF, "--wide", *arguments], capture_output=True, text=True, check=True, env=environment
    ).stdout


def weaknesses(program):
    """What a program lacks."""
    header = readelf("--file-header", program)
    segments = readelf("--program-headers", program)
    dynamic = readelf("--dynamic", program)
    symbols = readelf("--dyn-syms", program)
    lacks = []
    if not re.search(r"Type:\s+DYN", header) or not re.search(r"\(FLAGS_1\).*\bPIE\b", dynamic):
        lacks.append("is not position-independent")
    if "GNU_RELRO" not in segments:
        lacks.append("has no tables that become read-only")
    if not re.search(r"\((FLAGS\).*\bBIND_NOW|FLAGS_1\).*\bNOW)\b", dynamic):
        lacks.append("binds late, so its table of functions stays writable")
    if not re.search(r"GNU_STACK.*\bRW\s", segments):
        lacks.append("has a stack that can be executed")
    if "__stack_chk_fail" not in symbols:
        lacks.append("has no canaries on the stack")
    if OPTIMISED and not re.search(r"\b__(?!stack_)\w+_chk\b", symbols):
        lacks.append("has no checked copies")
    return lacks


class Hardening(unittest.TestCase):
    def test_the_programs_lack_nothing(self):
        self.assertTrue(PROGRAMS)
        for program in PROGRAMS:
            self.assertEqual(weaknesses(program), [], program)

    def test_devices_are_opened_by_the_call_that_tools_watch(self):
        for program in PROGRAMS:
            symbols = readelf("--dyn-syms", program)
            self.assertRegex(symbols, r"\bopen@", program)
            self.assertNotRegex(symbols, r"\b__open(64)?_2\b", program)

    def test_a_program_without_any_of_it_is_told(self):
        with tempfile.TemporaryDirectory() as directory:
            source, program = Path(directory, "bare.c"), Path(directory, "bare")
            source.write_text("int main(void) { return 0; }\n", encoding="utf-8")
            flags = ["-no-pie", "-fno-pie", "-fno-stack-protector", "-U_FORTIFY_SOURCE", "-Wl,-z,norelro,-z,lazy"]
            flags.append("-Wl,-z,execstack")
            subprocess.run(["cc", *flags, source, "-o", program], check=True, capture_output=True)
            self.assertEqual(len(weaknesses(program)), 6 if OPTIMISED else 5)


if __name__ == "__main__":
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    READELF, PROGRAMS = sys.argv[1], sys.argv[3:]
    OPTIMISED = sys.argv[2] == "optimised"
    if not Path(READELF).is_file():
        print("readelf is not installed (package binutils), so the programs are not read")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1])
