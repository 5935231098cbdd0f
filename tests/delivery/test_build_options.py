#!/usr/bin/env python3
"""Holds the build against what whoever packages the program expects of it.

Usage: test_build_options.py CMAKE GENERATOR PROJECT BUILD

Configures the project anew with options of its own, without building; what is installed
is taken from BUILD, which must be complete.
"""

import json
import os
import re
import shlex
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

CMAKE = GENERATOR = ""
PROJECT = BUILD = Path()


def run(*command, **environment):
    return subprocess.run(
        [str(word) for word in command],
        capture_output=True,
        text=True,
        check=True,
        env={**os.environ, **environment},
    ).stdout


class Configured(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.directory = Path(directory.name)

    def text(self, file):
        return (self.directory / file).read_text(encoding="utf-8")

    def configure(self, *options, **environment):
        """Configures, and returns the flags of the program's own first source."""
        arguments = ["-DORLA_TESTS=OFF", "-DORLA_BENCHMARKS=OFF", *options]
        run(CMAKE, "-S", PROJECT, "-B", self.directory, "-G", GENERATOR, *arguments, **environment)
        commands = json.loads(self.text("compile_commands.json"))
        source = str(PROJECT / "verifier" / "main.cpp")
        return next(shlex.split(entry["command"]) for entry in commands if entry["file"] == source)

    def test_without_a_wish_the_build_is_optimised_and_tolerates_warnings(self):
        flags = self.configure(CXXFLAGS="")
        self.assertIn("-O2", flags)
        self.assertIn("-DNDEBUG", flags)
        self.assertNotIn("-O3", flags)
        self.assertNotIn("-Werror", flags)
        self.assertIn("-D_FORTIFY_SOURCE=2", flags)

    def test_flags_of_a_packager_stay(self):
        flags = self.configure("-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_CXX_FLAGS_RELEASE=-O1 -g1", CXXFLAGS="-O2 -D_FORTIFY_SOURCE=3")
        self.assertEqual([flag for flag in flags if flag.startswith("-O")], ["-O2", "-O1"])
        self.assertIn("-g1", flags)
        self.assertNotIn("-DNDEBUG", flags)
        self.assertEqual([flag for flag in flags if "_FORTIFY_SOURCE" in flag], ["-D_FORTIFY_SOURCE=3"])

    def test_no_multiplication_is_fused_with_an_addition(self):
        self.configure()
        commands = json.loads(self.text("compile_commands.json"))
        own = [c for c in commands if c["file"].startswith(str(PROJECT)) and "autogen" not in c["file"]]
        self.assertTrue(own)
        for entry in own:
            self.assertIn("-ffp-contract=off", shlex.split(entry["command"]), entry["file"])

    def test_only_tests_and_documents_need_python(self):
        self.configure("-DCMAKE_DISABLE_FIND_PACKAGE_Python3=ON")
        if GENERATOR != "Ninja":
            self.skipTest("only Ninja tells the commands of a build beforehand")
        commands = run(CMAKE, "--build", self.directory, "--", "-t", "commands").splitlines()
        self.assertTrue(any(" -o verifier/orla-verifier " in line for line in commands))
        self.assertEqual([line for line in commands if re.search(r"python|\.py\b", line)], [])

    def test_the_service_starts_the_program_from_the_prefix(self):
        self.configure("-DCMAKE_INSTALL_PREFIX=/opt/orla", "-DCMAKE_INSTALL_BINDIR=sbin")
        unit = self.text("packaging/orla-verifier.service")
        self.assertIn("\nExecStart=/opt/orla/sbin/orla-verifier\n", unit)
        self.assertIn(" file:///opt/orla/share/doc/orla-verifier/manual.md\n", unit)

    def test_a_preset_leaves_the_prefix_to_whoever_names_one(self):
        options = ["-DCMAKE_INSTALL_PREFIX=/opt/orla", "-DORLA_TESTS=OFF", "-DORLA_BENCHMARKS=OFF"]
        run(CMAKE, "-S", PROJECT, "--preset", "release", "-B", self.directory, *options)
        cache = self.text("CMakeCache.txt")
        self.assertIn("\nCMAKE_INSTALL_PREFIX:PATH=/opt/orla\n", cache)
        unit = self.text("packaging/orla-verifier.service")
        self.assertIn("\nExecStart=/opt/orla/bin/orla-verifier\n", unit)

    def test_a_package_holds_what_is_below_its_prefix(self):
        self.configure("-DCMAKE_INSTALL_PREFIX=/usr")
        settings = self.text("CPackConfig.cmake")
        self.assertIn('set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")', settings)
        unit = self.text("packaging/orla-verifier.service")
        self.assertIn("\nExecStart=/usr/bin/orla-verifier\n", unit)


class OwnPresets(unittest.TestCase):
    def test_every_preset_takes_warnings_for_errors(self):
        presets = json.loads((PROJECT / "CMakePresets.json").read_text(encoding="utf-8"))["configurePresets"]
        by_name = {preset["name"]: preset for preset in presets}
        visible = [preset for preset in presets if not preset.get("hidden")]
        self.assertTrue(visible)
        for preset in visible:
            # Its compiler is another one, whose false alarms nobody waits for.
            if preset["name"] == "fuzz":
                continue
            variables = {}
            while preset:
                variables = {**preset.get("cacheVariables", {}), **variables}
                preset = by_name.get(preset.get("inherits"))
            self.assertEqual(variables.get("CMAKE_COMPILE_WARNING_AS_ERROR"), "ON")


class Installed(unittest.TestCase):
    def test_everything_goes_below_the_prefix(self):
        with tempfile.TemporaryDirectory() as directory:
            for component in ("verifier", "simulator"):
                run(CMAKE, "--install", BUILD, "--prefix", f"{directory}/prefix", "--component", component, DESTDIR="")
            files = {
                path.relative_to(directory).as_posix() for path in Path(directory).rglob("*") if path.is_file()
            }
        expected = {
            "prefix/bin/orla-verifier",
            "prefix/bin/orla-verifier-simulator",
            "prefix/lib/systemd/system/orla-verifier.service",
            "prefix/share/man/man1/orla-verifier.1.gz",
            "prefix/share/man/man1/orla-verifier-simulator.1.gz",
        }
        self.assertEqual(expected - files, set())


if __name__ == "__main__":
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    CMAKE, GENERATOR = sys.argv[1:3]
    PROJECT, BUILD = Path(sys.argv[3]), Path(sys.argv[4])
    unittest.main(argv=sys.argv[:1])
