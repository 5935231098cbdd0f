#!/usr/bin/env python3
"""Counts the instructions of another processor that stand for the processor time of the table.

Usage: instructions.py EMULATOR FOLDER OUT [PROGRAM...]

The emulator runs the programs of the table below FOLDER, or only those that are named, with a
plugin that counts (instruction_counter.c); each reads there what it would else read of the clock.
Prints the figures that are made of nothing else, and leaves them in OUT/instructions.csv.
"""

import os
import subprocess
import sys
import tempfile
from pathlib import Path

import table


def built_counter(folder):
    plugin = folder / "instruction_counter.so"
    command = ["gcc", "-O2", "-Wall", "-Wextra", "-Werror", "-shared", "-fPIC", "-o", plugin]
    subprocess.run([*command, Path(__file__).resolve().parent / "instruction_counter.c"], check=True)
    return plugin


def only_told(row):
    return row._replace(bound=None, goal=None)


def main():
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    emulator, folder, out, *names = sys.argv[1:]
    programs = [program for program in table.PROGRAMS if any(row.work for row in program.rows)]
    if not {program.name for program in programs}.issuperset(names):
        print("Instructions are counted of", ", ".join(program.name for program in programs), file=sys.stderr)
        return 2
    print("ms: a million instructions, as if the processor carried out a billion in a second", flush=True)
    results = []
    with tempfile.TemporaryDirectory() as scratch:
        # Ten times as slow as a processor of this machine, and more.
        os.environ.update(ORLA_INSTRUCTIONS=scratch, ORLA_TEST_PATIENCE="20", XDG_RUNTIME_DIR=scratch,
                          QEMU_PLUGIN=f"file={built_counter(Path(scratch))},out={scratch}")
        for program in programs:
            if names and program.name not in names:
                continue
            told = table.run_program(program, folder, True, [emulator])
            for row in program.rows:
                if row.work:
                    results.append((only_told(row), *told[row.name]))
                    table.print_row(*results[-1])
    Path(out).mkdir(parents=True, exist_ok=True)
    table.write_csv(Path(out) / "instructions.csv", results)
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except table.Failure as failure:
        sys.exit(str(failure))
