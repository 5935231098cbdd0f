#!/usr/bin/env python3
"""Holds the sources against the house's floors, and draws the house.

Usage: scripts/house.py check TABLE [ROOT]   every include and link, against links and floors
       scripts/house.py drawn TABLE [ROOT]   whether the drawing in docs/pictures is up to date
       scripts/house.py draw TABLE [ROOT]    makes it anew; needs Graphviz

TABLE is what the build writes of its targets: build/release/targets.txt. ROOT is the
project's root, by default that of this script. The floors stand in docs/house.toml. Status
0: nothing to object to; 1: what is said, a line each.
"""

import os
import re
import subprocess
import sys
import tomllib
import xml.etree.ElementTree as xml
from collections import defaultdict
from pathlib import Path

FLOORS = "docs/house.toml"
DRAWING = "docs/pictures/house.svg"
SOURCE_ENDINGS = (".cpp", ".h")
INCLUDE = re.compile(r'^\s*#\s*include\s*[<"]([^>"]+)[>"]')
# A form's custom widgets: the build turns these into includes.
FORM_INCLUDE = re.compile(r"<header[^>]*>([^<]+)</header>")
FILLS = {"verifier": "#d9ecfb", "simulator": "#fdf1d3"}
OTHER_FILL = "#e3f1dd"


class Target:
    """A library or program as CMake knows it."""

    def __init__(self, name, folder):
        self.name = name
        self.folder = folder
        self.sources = []
        self.links = []
        self.folders = []  # in which its includes are looked for
        # What whoever links this one gets, too.
        self.handed_on_links = []
        self.handed_on_folders = []

    def has_code(self):
        return bool(self.sources)  # others carry options only


def read_table(path):
    """The targets by name, in the build's order."""
    targets = {}
    for line in Path(path).read_text(encoding="utf-8").splitlines():
        word, _, value = line.partition(" ")
        if word == "target":
            name, _, folder = value.partition(" ")
            target = targets[name] = Target(name, folder)
        else:
            lists = {
                "source": target.sources,
                "link": target.links,
                "interface-link": target.handed_on_links,
                "include": target.folders,
                "interface-include": target.handed_on_folders,
            }
            lists[word].append(value)
    return targets


class House:
    """Targets, the floors that they stand on, and who owns which file."""

    def __init__(self, table, root):
        self.root = Path(root).resolve()
        self.targets = read_table(table)
        data = tomllib.loads((self.root / FLOORS).read_text(encoding="utf-8"))
        self.above = data["above"]
        self.never = data["never"]
        self.apart = data.get("apart", [])
        self.floors = data["floor"]
        self.floor_of = {name: i for i, floor in enumerate(self.floors) for name in floor["targets"]}
        self.beside = {tuple(pair) for floor in self.floors for pair in floor.get("beside", [])}
        self.owners = defaultdict(list)
        for target in self.targets.values():
            for source in target.sources:
                self.owners[source].append(target.name)
        self.include_cache = {}

    def is_in(self, name, folder):
        return (self.targets[name].folder + "/").startswith(folder + "/")

    def stands_above(self, name):
        return any(self.is_in(name, folder) for folder in self.above)

    def project_links(self, name):
        links = self.targets[name].links
        return [link for link in links if link in self.targets and self.targets[link].has_code()]

    def seen_by(self, name):
        """The targets whose headers a target may include, itself first: what it links, and what
        that hands on."""
        seen = [name]
        for user in seen:
            target = self.targets[user]
            links = target.links if user == name else target.handed_on_links
            seen += [link for link in links if link in self.targets and link not in seen]
        return seen

    def include_folders(self, name):
        """Where the compiler looks for a target's includes, within the project."""
        folders = list(self.targets[name].folders)
        for used in self.seen_by(name)[1:]:
            folders += self.targets[used].handed_on_folders
        return tuple(dict.fromkeys(folders))

    def objection(self, user, used):
        """Why the floors forbid that one target uses another; None if they do not."""
        if user == used or self.stands_above(user):
            return None
        if self.stands_above(used):
            return f"{used} stands above all floors"
        for folder, other in self.never:
            if self.is_in(user, folder) and self.is_in(used, other):
                return f"{folder}/ uses nothing of {other}/"
        if user not in self.floor_of or used not in self.floor_of:
            return None  # said once, by the check of the floors
        own, other = self.floor_of[user], self.floor_of[used]
        if own < other or (user, used) in self.beside:
            return None
        where = "above" if other < own else "beside"
        return f'{used} ("{self.floors[other]["name"]}") stands {where} {user} ("{self.floors[own]["name"]}")'

    def resolve(self, file, included, folders):
        """The project's file that an include means; None for the system's and for generated ones."""
        for folder in [(self.root / file).parent] + [self.root / folder for folder in folders]:
            path = Path(os.path.normpath(folder / included))
            if path.is_file() and path.is_relative_to(self.root):
                return path.relative_to(self.root).as_posix()
        return None

    def includes(self, file, folders):
        """(line number, the project's file) of every include in a file."""
        key = (file, folders)
        if key not in self.include_cache:
            pattern = FORM_INCLUDE.search if file.endswith(".ui") else INCLUDE.match
            found = []
            lines = (self.root / file).read_text(encoding="utf-8").splitlines()
            for number, line in enumerate(lines, 1):
                match = pattern(line)
                path = match and self.resolve(file, match.group(1).strip(), folders)
                if path:
                    found.append((number, path))
            self.include_cache[key] = found
        return self.include_cache[key]

    # ---- the check ----

    def check(self):
        """Everything that there is to object to."""
        return self.check_floors() + self.check_files() + self.check_links() + self.check_includes()

    def check_floors(self):
        found = [f"{FLOORS}: there is no target {name}" for name in self.floor_of if name not in self.targets]
        found += [
            f"{FLOORS}: {name} of {target.folder}/ stands on no floor"
            for name, target in self.targets.items()
            if target.has_code() and name not in self.floor_of and not self.stands_above(name)
        ]
        found += [
            f"{FLOORS}: {user} does not link {used} beside it"
            for user, used in sorted(self.beside)
            if user in self.targets and used not in self.targets[user].links
        ]
        return found

    def check_files(self):
        return [f"{file}: no target names this file" for file in self.files() if file not in self.owners]

    def is_apart(self, path):
        """Whether a file belongs to a project of its own within the tree, which a test builds."""
        return any(path.relative_to(self.root).is_relative_to(folder) for folder in self.apart)

    def files(self):
        tops = {target.folder.split("/")[0] for target in self.targets.values() if target.has_code()}
        return sorted(
            path.relative_to(self.root).as_posix()
            for top in tops
            for path in (self.root / top).rglob("*")
            if path.suffix in SOURCE_ENDINGS and not self.is_apart(path)
        )

    def check_links(self):
        found = []
        for name in self.targets:
            for link in self.project_links(name):
                objection = self.objection(name, link)
                if objection:
                    found.append(f"{name} links {link}: {objection}")
        return found

    def check_includes(self):
        """What a target's sources include, and what the headers included there include in turn."""
        found = set()
        for name, target in self.targets.items():
            seen = set(self.seen_by(name))
            folders = self.include_folders(name)
            waiting = [source for source in target.sources if (self.root / source).is_file()]
            read = set(waiting)
            while waiting:
                file = waiting.pop()
                if not file.endswith(SOURCE_ENDINGS + (".ui",)):
                    continue
                for number, header in self.includes(file, folders):
                    owners = self.owners.get(header, [])
                    if owners and not seen.intersection(owners):
                        objections = [self.objection(name, owner) for owner in owners]
                        what = next(filter(None, objections), f"{name} does not link {' or '.join(owners)}")
                        found.add(f"{file}:{number}: includes {header}: {what}")
                    elif header not in read:
                        read.add(header)
                        waiting.append(header)
        return sorted(found)

    # ---- the drawing ----

    def reach(self, name):
        reached = set()
        waiting = [name]
        while waiting:
            for link in self.project_links(waiting.pop()):
                if link not in reached:
                    reached.add(link)
                    waiting.append(link)
        return reached

    def arrows(self):
        """The links between targets on floors, but those that a longer way stands for."""
        drawn = []
        for name in self.floor_of:
            links = [link for link in self.project_links(name) if link in self.floor_of]
            longer = set().union(*(self.reach(link) for link in links))
            drawn += [(name, link) for link in links if link not in longer]
        return sorted(drawn)

    def dot(self):
        """The drawing in Graphviz's language."""
        lines = [
            "digraph house {",
            '  graph [rankdir=TB, nodesep=0.25, ranksep=0.45, bgcolor=white, fontname="DejaVu Sans"]',
            '  node [shape=box, style="rounded,filled", color="#37474f", fontname="DejaVu Sans", fontsize=11]',
            '  edge [color="#37474f", arrowsize=0.7]',
        ]
        for i, floor in enumerate(self.floors):
            lines.append(f'  floor{i} [shape=plaintext, style="", label="{floor["name"]}"]')
            for name in floor["targets"]:
                folder = self.targets[name].folder
                fill = FILLS.get(folder.split("/")[0], OTHER_FILL)
                lines.append(f'  "{name}" [label="{name}\\n{folder}/", fillcolor="{fill}"]')
            row = "; ".join([f"floor{i}"] + [f'"{name}"' for name in floor["targets"]])
            lines.append(f"  {{ rank=same; {row} }}")
            if i:
                lines.append(f"  floor{i - 1} -> floor{i} [style=invis]")
        lines += [f'  "{user}" -> "{used}"' for user, used in self.arrows()]
        lines.append("}")
        return "\n".join(lines) + "\n"

    def draw(self):
        dot = subprocess.run(["dot", "-Tsvg"], input=self.dot(), capture_output=True, text=True, check=True)
        head, root, rest = dot.stdout.partition("<svg")
        (self.root / DRAWING).write_text(head + self.origin() + root + rest, encoding="utf-8")

    def origin(self):
        """The comment that tells what a drawing was made from."""
        # A double hyphen would end it.
        return "<!-- Made by scripts/house.py draw from:\n" + self.dot().replace("--", "- -") + "-->\n"

    def check_drawing(self):
        """Whether the drawing was made from what holds today, and shows it."""
        text = (self.root / DRAWING).read_text(encoding="utf-8")
        expected = set(self.floor_of) | {f"{user}->{used}" for user, used in self.arrows()}
        titles = {
            group.findtext("{*}title")
            for group in xml.fromstring(text).iter("{http://www.w3.org/2000/svg}g")
            if group.get("class") in ("node", "edge")
        }
        shown = {title for title in titles if not title.startswith("floor")}
        if shown == expected and self.origin() in text:
            return []
        parts = [f"{part} is missing" for part in sorted(expected - shown)]
        parts += [f"{part} is no longer there" for part in sorted(shown - expected)]
        what = ", ".join(parts) or "its source differs"
        return [f"{DRAWING} is out of date ({what}): scripts/house.py draw TABLE makes it anew"]


def main():
    if len(sys.argv) not in (3, 4) or sys.argv[1] not in ("check", "drawn", "draw"):
        sys.exit(__doc__)
    root = Path(sys.argv[3]) if len(sys.argv) == 4 else Path(__file__).resolve().parent.parent
    house = House(sys.argv[2], root)
    if sys.argv[1] == "draw":
        house.draw()
        return
    found = house.check() if sys.argv[1] == "check" else house.check_drawing()
    for objection in found:
        print(objection)
    sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
