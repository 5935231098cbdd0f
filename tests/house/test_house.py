#!/usr/bin/env python3
"""Tests scripts/house.py: on small houses, and on a copy of this one with planted arrows.

Usage: test_house.py TABLE, with the table of targets that the build has written.
"""

import shutil
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

PROJECT = Path(__file__).resolve().parent.parent.parent
SCRIPT = PROJECT / "scripts" / "house.py"
sys.path.insert(0, str(SCRIPT.parent))
import house  # noqa: E402

FLOORS = """
above = ["tests"]
never = [["shop", "copy"]]
[[floor]]
name = "roof"
targets = ["roof"]
[[floor]]
name = "rooms"
targets = ["left", "right"]
beside = [["left", "right"]]
[[floor]]
name = "cellar"
targets = ["cellar", "coal", "copy"]
"""

# Target, folder, links, links handed on.
TARGETS = [
    ("options", "", [], []),
    ("roof", "shop", ["options", "left"], []),
    ("left", "shop/left", ["options", "right", "cellar"], ["right", "$<LINK_ONLY:cellar>"]),
    ("right", "shop/right", ["options", "Lib::Foreign"], []),
    ("cellar", "shop/cellar", ["options"], []),
    ("coal", "shop/coal", ["options"], []),
    ("copy", "copy", ["options"], []),
    ("try_left", "tests", ["options", "left"], []),
]


class SmallHouse(unittest.TestCase):
    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.root = Path(directory.name)
        self.floors = FLOORS
        self.links = {name: list(links) for name, _, links, _ in TARGETS}
        self.handed_on = {name: list(links) for name, _, _, links in TARGETS}
        self.extra_sources = {}
        for name, folder, _, _ in TARGETS[1:]:
            self.write(f"{folder}/{name}.h", "#pragma once\n#include <vector>\n")
            self.write(f"{folder}/{name}.cpp", f'#include "{name}.h"\n')

    def write(self, file, text):
        path = self.root / file
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")

    def house(self):
        self.write("docs/house.toml", self.floors)
        lines = []
        for name, folder, _, _ in TARGETS:
            lines.append(f"target {name} {folder}")
            if folder:
                sources = [f"{folder}/{name}.cpp", f"{folder}/{name}.h", *self.extra_sources.get(name, [])]
                lines += [f"source {source}" for source in sources]
            else:
                lines += ["interface-include shop", "interface-include ."]
            lines += [f"link {link}" for link in self.links[name]]
            lines += [f"interface-link {link}" for link in self.handed_on[name]]
        self.write("targets.txt", "\n".join(lines) + "\n")
        return house.House(self.root / "targets.txt", self.root)

    def assert_objections(self, *expected):
        self.assertEqual(self.house().check(), list(expected))

    def test_a_house_in_order_passes(self):
        self.write("shop/roof.cpp", '#include "roof.h"\n#include "left/left.h"\n#include "shop/right/right.h"\n')
        self.write("shop/left/left.cpp", '#include <vector>\n  #  include "cellar/cellar.h"\n')
        self.write("tests/try_left.cpp", '#include "left/left.h"\n#include "ui_generated.h"\n')
        self.assert_objections()

    def test_an_upward_include_is_told_with_its_line(self):
        self.write("shop/cellar/cellar.cpp", '#include "cellar.h"\n\n#include "left/left.h"\n')
        self.assert_objections(
            'shop/cellar/cellar.cpp:3: includes shop/left/left.h: left ("rooms") stands above cellar ("cellar")'
        )

    def test_a_downward_include_that_is_not_linked_is_told(self):
        self.write("shop/right/right.cpp", '#include "cellar/cellar.h"\n')
        self.assert_objections("shop/right/right.cpp:1: includes shop/cellar/cellar.h: right does not link cellar")

    def test_what_a_link_keeps_for_itself_is_not_seen_through_it(self):
        self.write("shop/roof.cpp", '#include "cellar/cellar.h"\n')
        self.assert_objections("shop/roof.cpp:1: includes shop/cellar/cellar.h: roof does not link cellar")

    def test_a_header_that_needs_more_than_is_handed_on_is_told(self):
        self.write("shop/left/left.h", '#include "cellar/cellar.h"\n')
        self.write("shop/roof.cpp", '#include "left/left.h"\n')
        self.assert_objections("shop/left/left.h:1: includes shop/cellar/cellar.h: roof does not link cellar")

    def test_a_target_beside_is_seen_only_where_it_is_drawn(self):
        self.write("shop/coal/coal.cpp", '#include "cellar/cellar.h"\n')
        self.write("shop/left/left.cpp", '#include "right/right.h"\n')
        self.assert_objections(
            'shop/coal/coal.cpp:1: includes shop/cellar/cellar.h: cellar ("cellar") stands beside coal ("cellar")'
        )

    def test_a_folder_that_must_not_be_used_is_told_though_it_is_below_and_linked(self):
        self.links["roof"].append("copy")
        self.assert_objections("roof links copy: shop/ uses nothing of copy/")

    def test_an_upward_link_is_told(self):
        self.links["coal"].append("right")
        self.assert_objections('coal links right: right ("rooms") stands above coal ("cellar")')

    def test_tests_stand_above_and_link_what_they_use(self):
        self.links["roof"].append("try_left")
        self.write("tests/try_left.cpp", '#include "coal/coal.h"\n')
        self.assert_objections(
            "roof links try_left: try_left stands above all floors",
            "tests/try_left.cpp:1: includes shop/coal/coal.h: try_left does not link coal",
        )

    def test_a_file_of_two_targets_must_suit_both(self):
        self.extra_sources["right"] = ["shop/left/left.cpp", "shop/left/left.h"]
        self.write("shop/left/left.cpp", '#include "left.h"\n#include "cellar/cellar.h"\n')
        self.assert_objections("shop/left/left.cpp:2: includes shop/cellar/cellar.h: right does not link cellar")

    def test_a_file_that_no_target_names_is_told(self):
        self.write("shop/left/forgotten.h", "")
        self.assert_objections("shop/left/forgotten.h: no target names this file")

    def test_a_widget_named_by_a_form_is_an_include(self):
        self.extra_sources["right"] = ["shop/right/form.ui"]
        self.write("shop/right/form.ui", "<customwidget>\n <header>left/left.h</header>\n</customwidget>\n")
        self.assert_objections(
            'shop/right/form.ui:2: includes shop/left/left.h: left ("rooms") stands beside right ("rooms")'
        )

    def test_floors_and_targets_must_agree(self):
        self.floors = FLOORS.replace('"coal", ', '"ghost", ')
        self.links["left"].remove("right")
        self.assert_objections(
            "docs/house.toml: there is no target ghost",
            "docs/house.toml: coal of shop/coal/ stands on no floor",
            "docs/house.toml: left does not link right beside it",
        )

    def test_only_the_longest_ways_are_drawn(self):
        self.links["roof"].append("cellar")
        self.assertEqual(self.house().arrows(), [("left", "cellar"), ("left", "right"), ("roof", "left")])

    @unittest.skipUnless(shutil.which("dot"), "Graphviz is not installed")
    def test_a_drawing_is_fresh_until_a_link_changes(self):
        self.write("docs/pictures/house.svg", "<svg/>")
        self.assertIn("roof is missing", self.house().check_drawing()[0])
        self.house().draw()
        self.assertEqual(self.house().check_drawing(), [])
        self.links["right"].append("coal")
        (objection,) = self.house().check_drawing()
        self.assertIn("(right->coal is missing)", objection)


class ThisHouse(unittest.TestCase):
    """A copy of this project's sources, so that arrows can be planted."""

    table = ""

    def setUp(self):
        directory = tempfile.TemporaryDirectory()
        self.addCleanup(directory.cleanup)
        self.root = Path(directory.name)
        self.original = house.House(self.table, PROJECT)
        tops = {target.folder.split("/")[0] for target in self.original.targets.values() if target.has_code()}
        for folder in tops | {"docs"}:
            shutil.copytree(PROJECT / folder, self.root / folder, ignore=shutil.ignore_patterns("*.png"))
        self.run_table = self.root / "targets.txt"
        shutil.copy(self.table, self.run_table)

    def run_script(self, command):
        arguments = [sys.executable, "-B", SCRIPT, command, self.run_table, self.root]
        done = subprocess.run(arguments, capture_output=True, text=True, check=False)
        return done.returncode, done.stdout.splitlines(), done.stderr

    def source_of(self, name, ending):
        sources = self.original.targets[name].sources
        return next((s for s in sources if s.endswith(ending) and (self.root / s).is_file()), None)

    def plant(self, user, used):
        """Lets a source of one target include a header of another."""
        file, header = self.source_of(user, ".cpp"), self.source_of(used, ".h")
        path = self.root / file
        lines = path.read_text(encoding="utf-8").splitlines(keepends=True)
        path.write_text(f'#include "{header}"\n' + "".join(lines), encoding="utf-8")
        return f"{file}:1: includes {header}: "

    def pair(self, suits):
        """The first target on a floor and the first other with a header that suit; suits(user, used, up)."""
        floors = self.original.floor_of
        return next(
            (user, used)
            for user in floors
            for used in floors
            if user != used and self.source_of(user, ".cpp") and self.source_of(used, ".h")
            and suits(user, used, floors[user] - floors[used])
        )

    def assert_told(self, planted, reason):
        status, lines, error = self.run_script("check")
        self.assertEqual((status, error), (1, ""))
        self.assertTrue([line for line in lines if line.startswith(planted) and reason in line], lines)

    def test_as_it_is_nothing_is_told(self):
        self.assertEqual(self.run_script("check"), (0, [], ""))
        self.assertEqual(self.run_script("drawn"), (0, [], ""))

    def test_a_planted_upward_arrow_is_told(self):
        user, used = self.pair(
            lambda user, used, up: up > 0 and "stands above" in self.original.objection(user, used)
        )
        self.assert_told(self.plant(user, used), "stands above")

    def test_a_planted_arrow_into_the_simulator_is_told(self):
        folder, other = self.original.never[0]
        user, used = self.pair(
            lambda user, used, up: up < 0 and self.original.is_in(user, folder) and self.original.is_in(used, other)
        )
        self.assert_told(self.plant(user, used), f"{folder}/ uses nothing of {other}/")

    def test_a_planted_undeclared_arrow_is_told(self):
        user, used = self.pair(
            lambda user, used, up: up < 0
            and not self.original.objection(user, used)
            and used not in self.original.seen_by(user)
        )
        self.assert_told(self.plant(user, used), f"{user} does not link {used}")

    def test_a_test_that_does_not_link_what_it_uses_is_told(self):
        targets = self.original.targets
        user = next(name for name in targets if self.original.stands_above(name) and self.source_of(name, ".cpp"))
        used = next(
            used
            for used in self.original.floor_of
            if self.source_of(used, ".h") and used not in self.original.seen_by(user)
        )
        self.assert_told(self.plant(user, used), f"{user} does not link {used}")

    def test_a_link_that_is_not_drawn_yet_is_told(self):
        user, used = self.pair(lambda user, used, up: up < 0 and used not in self.original.reach(user))
        text = self.run_table.read_text(encoding="utf-8")
        folder = self.original.targets[user].folder
        line = f"target {user} {folder}\n"
        self.assertIn(line, text)
        self.run_table.write_text(text.replace(line, line + f"link {used}\n"), encoding="utf-8")
        status, lines, error = self.run_script("drawn")
        self.assertEqual((status, len(lines), error), (1, 1, ""))
        self.assertIn(f"{user}->{used} is missing", lines[0])


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    ThisHouse.table = sys.argv.pop(1)
    unittest.main()
