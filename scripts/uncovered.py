#!/usr/bin/env python3
"""Prints what gcovr counted, and holds the lines that were not reached against their reasons.

    scripts/uncovered.py COVERAGE.json REASONS.toml PROJECT

Each [[uncovered]] of the reasons names a file, the texts of lines in it, and why no test reaches
them. A text that stands there several times stands for as many lines. With `sometimes = true`
the lines may be reached as well, as it happens with those of two threads that meet.

Status 0: every line that was not reached has a reason, and every reason such a line.
"""
import collections
import json
import pathlib
import sys
import tomllib


def counted(report):
    """file: (lines that count, those reached, branches, those taken, numbers of unreached lines)"""
    files = {}
    for file in report["files"]:
        hits = collections.defaultdict(int)
        branches = collections.defaultdict(int)
        for line in file["lines"]:
            if line.get("gcovr/noncode"):
                continue
            number = line["line_number"]
            hits[number] += line["count"]
            for way, branch in enumerate(line["branches"]):
                branches[number, way] += branch["count"]
        missed = sorted(number for number, count in hits.items() if count == 0)
        taken = sum(1 for count in branches.values() if count > 0)
        files[file["file"]] = (len(hits), len(hits) - len(missed), len(branches), taken, missed)
    return files


def percent(part, whole):
    return f"{100.0 * part / whole:5.1f} %" if whole else "      -"


def print_table(files):
    print(f"{'lines':>11} {'':7}  {'branches':>11}")
    total = [0, 0, 0, 0]
    for name, (lines, reached, branches, taken, _) in sorted(files.items()):
        total = [a + b for a, b in zip(total, (lines, reached, branches, taken))]
        print(f"{reached:5}/{lines:5} {percent(reached, lines)}  {taken:5}/{branches:5} {percent(taken, branches)}  {name}")
    lines, reached, branches, taken = total
    print(f"{reached:5}/{lines:5} {percent(reached, lines)}  {taken:5}/{branches:5} {percent(taken, branches)}  all of it")


def complaints(files, reasons, project):
    """Lines without a reason, and reasons without a line."""
    missed = collections.Counter()
    numbers = collections.defaultdict(list)
    for name, (*_, unreached) in files.items():
        texts = (project / name).read_text(encoding="utf-8").splitlines()
        for number in unreached:
            line = name, texts[number - 1].strip()
            missed[line] += 1
            numbers[line].append(number)
    excused = collections.Counter()
    at_times = set()
    for entry in reasons["uncovered"]:
        if not entry["reason"].strip():
            yield f"{entry['file']}: an entry without a reason"
        for text in entry["lines"]:
            excused[entry["file"], text] += 1
            if entry.get("sometimes"):
                at_times.add((entry["file"], text))
    for (name, text), count in sorted((missed - excused).items()):
        places = ", ".join(map(str, numbers[name, text]))
        yield f"{name}:{places}: {count} not reached, and no reason given: {text}"
    for (name, text), count in sorted((excused - missed).items()):
        file = project / name
        stands = file.is_file() and text in map(str.strip, file.read_text(encoding="utf-8").splitlines())
        if not stands:
            yield f"{name}: a reason for a line that is gone: {text}"
        elif (name, text) not in at_times:
            yield f"{name}: a reason for a line that is reached ({count} too many): {text}"


def main():
    report, reasons, project = map(pathlib.Path, sys.argv[1:])
    files = counted(json.loads(report.read_text(encoding="utf-8")))
    if not files:
        sys.exit("The report holds no file.")
    print_table(files)
    found = list(complaints(files, tomllib.loads(reasons.read_text(encoding="utf-8")), project))
    for line in found:
        print(line)
    print(f"{sum(len(file[4]) for file in files.values())} lines not reached, {len(found)} complaints")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
