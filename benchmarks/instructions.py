#!/usr/bin/env python3
"""Counts the instructions that the work on one frame takes, on another processor.

Usage: instructions.py EMULATOR PROGRAM OUT

The emulator runs the program frame_work with a plugin that counts (instruction_counter.c), a
piece of work once and then twice; the difference is what one takes, without start and end.
Prints millions of instructions for each piece and mode, and leaves them in OUT/instructions.csv.
"""

import csv
import os
import subprocess
import sys
import tempfile
from pathlib import Path

HERE = Path(__file__).resolve().parent
MODES = ("640 x 480", "1280 x 960", "2592 x 1944")
WORK = {
    "conversion": "conversion to RGB",
    "picture": "picture for the window",
    "planes": "planes of a sample",
    "brenner": "Brenner gradient",
    "search": "point search",
}


def built_counter(folder):
    plugin = folder / "instruction_counter.so"
    command = ["gcc", "-O2", "-Wall", "-Wextra", "-Werror", "-shared", "-fPIC", "-o", plugin]
    subprocess.run([*command, HERE / "instruction_counter.c"], check=True)
    return plugin


def instructions(emulator, plugin, program, work, mode, times):
    count = plugin.with_name("count")
    count.unlink(missing_ok=True)
    command = [emulator, "-plugin", f"{plugin},out={count}", program, work, str(mode), str(times)]
    environment = {**os.environ, "QT_QPA_PLATFORM": "offscreen", "XDG_RUNTIME_DIR": str(plugin.parent)}
    subprocess.run(command, check=True, stdin=subprocess.DEVNULL, env=environment)
    return int(count.read_text(encoding="ascii"))


def main():
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    emulator, program, out = sys.argv[1], Path(sys.argv[2]), Path(sys.argv[3])
    rows = [["millions of instructions", *MODES]]
    with tempfile.TemporaryDirectory() as scratch:
        plugin = built_counter(Path(scratch))
        for work, title in WORK.items():
            counts = []
            for mode in range(len(MODES)):
                once, twice = (instructions(emulator, plugin, program, work, mode, n) for n in (1, 2))
                counts.append(f"{(twice - once) / 1e6:.1f}")
            rows.append([title, *counts])
    for title, *values in rows:
        print(title.ljust(26), *(value.rjust(12) for value in values))
    out.mkdir(parents=True, exist_ok=True)
    with open(out / "instructions.csv", "w", encoding="utf-8", newline="") as table:
        csv.writer(table).writerows(rows)


if __name__ == "__main__":
    main()
