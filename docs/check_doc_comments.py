#!/usr/bin/env python3
"""Runs Doxygen and holds the headers against the house's habit.

Usage: check_doc_comments.py DOXYGEN DOXYFILE XML_DIRECTORY

Doxygen itself fails on a comment that is wrong. Beyond that, in the headers, every class,
struct, enum and free function, and every public or protected function of a class, has a
comment. One comment may stand for a block: declarations that follow each other without an
empty line. What needs no words: constructors and destructors, assignment and comparison,
functions that override another, and constant ones without arguments, which give what
their name says.
"""

import re
import shutil
import subprocess
import sys
import xml.etree.ElementTree as xml
from functools import lru_cache
from pathlib import Path


@lru_cache(maxsize=None)
def lines_of(file):
    return Path(file).read_text(encoding="utf-8").splitlines()


def is_commented(element):
    return any(
        "".join(element.find(part).itertext()).strip()
        for part in ("briefdescription", "detaileddescription")
        if element.find(part) is not None
    )


def is_self_evident(member, class_name):
    name = member.findtext("name", "")
    arguments = member.findtext("argsstring", "")
    return (
        name.lstrip("~") == class_name
        or name in ("operator=", "operator==", "operator!=")
        or re.search(r"\boverride\b", arguments) is not None
        or arguments == "() const"
    )


def shares_comment(file, line):
    """Whether the unbroken block of lines above a declaration begins with a comment."""
    lines = lines_of(file)
    for above in range(line - 2, -1, -1):
        text = lines[above].strip()
        if text.startswith("///"):
            return True
        if not text or text.endswith(("{", ":")):
            return False
    return False


def place(element):
    location = element.find("location")
    if location is None:
        return "", 0
    file = location.get("declfile", location.get("file", ""))
    return file, int(location.get("declline", location.get("line", "0")))


def faults_of(compound, source):
    kind = compound.get("kind")
    if kind not in ("class", "struct", "namespace", "file"):
        return
    class_name = compound.findtext("compoundname", "").split("::")[-1]
    wanted = []
    if kind in ("class", "struct"):
        if compound.get("prot") == "private":
            return
        # One that is only declared has a body without an end.
        if compound.find("location").get("bodyend") != "-1":
            wanted.append((compound, class_name))
    for member in compound.iter("memberdef"):
        if member.get("kind") not in ("function", "signal", "slot", "enum") or member.get("prot") == "private":
            continue
        if kind in ("class", "struct") and is_self_evident(member, class_name):
            continue
        wanted.append((member, member.findtext("name", "")))
    for element, name in wanted:
        file, line = place(element)
        if not file.endswith(".h"):
            continue
        file = str(source / file)
        if not is_commented(element) and not shares_comment(file, line):
            yield f"{file}:{line}: {name} has no comment"


def main():
    doxygen, doxyfile, directory = sys.argv[1:]
    settings = Path(doxyfile).read_text(encoding="utf-8")
    source = Path(re.search(r'^STRIP_FROM_PATH\s*=\s*"(.*)"', settings, re.MULTILINE).group(1))
    # What an earlier run has left of headers that are gone.
    shutil.rmtree(directory, ignore_errors=True)
    if subprocess.run([doxygen, doxyfile], check=False).returncode != 0:
        return 1
    faults = set()
    documents = sorted(Path(directory).glob("*.xml"))
    for document in documents:
        for compound in xml.parse(document).getroot().iter("compounddef"):
            faults.update(faults_of(compound, source))
    print(*sorted(faults), sep="\n")
    print(f"{len(faults)} declarations without a comment, {len(documents)} documents")
    return 1 if faults or not documents else 0


sys.exit(main())
