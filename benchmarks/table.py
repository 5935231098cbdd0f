#!/usr/bin/env python3
"""Runs the benchmark programs and prints one table of what they tell.

Each figure is a ratio of two things measured one right after the other in the same run, the
median of pairs, where the table names no unit. Costs are processor time, which other work on
the machine hardly falsifies; delays, starts, saves and sweeps are time that goes by, and want
a machine with nothing else to do.
"""

import argparse
import csv
import math
import os
import resource
import shutil
import subprocess
import sys
from pathlib import Path
from typing import NamedTuple, Optional


class Row(NamedTuple):
    """One figure: its name among what the programs tell, its title, its goal and its unit."""

    name: str
    title: str
    bound: Optional[str] = None  # "<=" or ">="; none: only told
    goal: Optional[float] = None
    unit: str = ""
    # No clock is read for it: its goal counts on a busy machine, and in the short form.
    counted: bool = False
    # Of processor time, which instructions can stand for.
    work: bool = False


class Program(NamedTuple):
    """A benchmark program, in a line, and the rows that it fills."""

    name: str
    text: str
    rows: list


def at_most(name, title, goal, unit="", **how):
    return Row(name, title, "<=", goal, unit, **how)


MODES = {"vga": "640 x 480", "1280": "1280 x 960", "5m": "2592 x 1944"}
VIEWS = {"fit": "fitted", "1to1": "1:1", "panning": "panning", "console": "console open"}
COSTS = {"vga": 1.6, "1280": 1.25, "5m": 1.15}
TABS = {"stage": ("Stage", 4), "camera": ("Camera", 6), "qc": ("QC", 2)}
FRAME_WORK = {
    "conversion": "conversion to RGB",
    "picture": "picture for the window",
    "planes": "planes of a sample",
    "brenner": "Brenner gradient",
    "search": "point search",
}
# Cost per pixel; what is above 1 is caches that no longer hold the whole, and noise.
GROWTH = 1.1


def live_view_rows():
    rows = []
    for mode, size in MODES.items():
        rows.append(at_most(f"cost_{mode}", f"live view / bare calls, {size}", COSTS[mode], work=True))
        if mode == "5m":
            rows.append(at_most("gui_5m", f"GUI thread busy, {size}", 0.1, work=True))
        for view, text in VIEWS.items():
            rows.append(Row(f"painted_{mode}_{view}", f"frames painted / delivered, {size}, {text}", ">=", 0.99))
        rows.append(at_most(f"delay_{mode}", f"sensor to screen, median, {size}", 2.0, "frames"))
        rows.append(at_most(f"delay_worst_{mode}", f"sensor to screen, worst, {size}", 4.0, "frames"))
        rows.append(at_most(f"idle_{mode}", f"hand-shake without a new frame, {size}", 5.0, "% of a core", work=True))
    rows.append(at_most("cost_growth", "live view, growth with the pixels of the modes", GROWTH, work=True))
    return rows


def save_rows():
    rows = []
    for tab, (title, synchronisations) in TABS.items():
        rows.append(Row(f"save_{tab}_time", f"save, tab {title}", unit="ms"))
        rows.append(Row(f"save_{tab}_work", f"save, tab {title}, processor time", unit="ms", work=True))
        rows.append(at_most(f"save_{tab}_syncs", f"save, tab {title}", synchronisations, "file syncs", counted=True))
        rows.append(Row(f"save_{tab}_bytes", f"save, tab {title}", unit="bytes"))
    return rows


def console_rows():
    rows = []
    for state, least in (("hidden", "10"), ("shown", "a page")):
        for size, lines in (("10k", "10,000"), ("1m", "1,000,000")):
            name = f"console_{size}" if state == "hidden" else f"console_shown_{size}"
            # The short form, in which instructions are counted, goes no further than the first.
            work = size == "10k"
            rows.append(Row(name, f"line into a {state} console, of {lines} lines / of {least}", work=work))
            # The toolkit's text area finds a place among its lines the slower, the more there are.
            growth = f"its growth / a bare text area's, {state}, {lines}"
            rows.append(at_most(f"{name}_beyond", growth, 1.1, work=work))
    return rows


def frame_rows():
    return [
        Row(f"{work}_{mode}", f"{title}, {size}", unit="ms", work=True)
        for work, title in FRAME_WORK.items()
        for mode, size in MODES.items()
    ]


PROGRAMS = [
    Program("bench_frame", "what is done with a frame, piece by piece", frame_rows()),
    Program(
        "bench_liveview",
        "which frames are painted and when, what a second of live view costs, and the hand-shake",
        live_view_rows(),
    ),
    Program(
        "bench_focus",
        "a focus score against reading the plane and against matrix calls; a sample",
        [
            at_most("brenner_read", "Brenner / plain read of the plane", 1.5, work=True),
            at_most("brenner_matrix", "Brenner / matrix expression", 0.05, work=True),
            at_most("brenner_growth", "Brenner, growth from half to twice the pixels", GROWTH, work=True),
            at_most("sample", "autofocus sample / conversion and split", 1.1, work=True),
            at_most("sample_growth", "sample, growth with the pixels of the modes", GROWTH, work=True),
        ],
    ),
    Program(
        "bench_qc",
        "the search for a point against the library calls; the repaint of a drag",
        [
            at_most("search", "point search / bare library calls", 1.1, work=True),
            at_most("search_growth", "point search, growth from half to twice the pixels", GROWTH, work=True),
            at_most("drag_zoomed", "drag of the frozen frame, zoomed", 10.0, "ms", work=True),
            at_most("drag_window", "drag of the frozen frame, whole window", 10.0, "ms", work=True),
        ],
    ),
    Program(
        "bench_sweep",
        "an autofocus sweep against its motions and samples",
        [
            at_most(f"sweep_{mode}", f"sweep / stage and samples, {MODES[mode]}", 1.05) for mode in ("1280", "5m")
        ],
    ),
    Program(
        "bench_start",
        "process start to first painted frame, and resident memory, against an empty window",
        [
            at_most("start", "start / empty window and the sensor's pauses", 1.1),
            # An emulator's own memory is in it.
            at_most("memory", "resident memory / empty window and buffers", 1.1,
                    counted="ORLA_TEST_EMULATOR" not in os.environ),
        ],
    ),
    Program("bench_save", "a save on each tab: time, file synchronisations, bytes", save_rows()),
    Program(
        "bench_console",
        "a line into a console, by the lines that it holds",
        console_rows(),
    ),
]

PLOT = """
set terminal svg size 1000,{height} font "DejaVu Sans,11" background "white"
set output "{picture}"
set title "Share of the goal that is used: up to 1 it holds"
set datafile separator "\\t"
set style fill solid
set yrange [{rows}:-1]
set xrange [0:{most}]
set grid xtics
set lmargin 56
unset key
set arrow from 1,graph 0 to 1,graph 1 nohead lc rgb "#404040" lw 2 front
plot "{data}" using (0):0:(0):($2 > {most} ? {most} : $2):($0-0.35):($0+0.35):($2 > 1 ? 0xd0662a : 0x3a86c8):ytic(1) \\
     with boxxyerror lc rgb variable
"""


class Failure(Exception):
    """Why there is no table, in a sentence."""


def run_program(program, folder, short, emulator=()):
    """What a program tells: by name the value and what it is made of."""
    path = Path(folder) / program.name
    if not path.is_file():
        raise Failure(f"{path} is missing: benchmarks/run builds it.")
    environment = {"QT_QPA_PLATFORM": "offscreen", **os.environ}
    try:
        done = subprocess.run(
            [*emulator, path] + (["--short"] if short else []),
            env=environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False,
            timeout=600 * int(os.environ.get("ORLA_TEST_PATIENCE", 1)),
        )
    except subprocess.TimeoutExpired:
        raise Failure(f"{program.name} does not end.") from None
    if done.returncode != 0:
        raise Failure(f"{program.name} ended with status {done.returncode}:\n{done.stderr[-2000:]}")
    told = {}
    for line in done.stdout.splitlines():
        name, _, rest = line.partition("\t")
        value, _, parts = rest.partition("\t")
        told[name] = (float(value), parts)
    names = {row.name for row in program.rows}
    for name in sorted(names ^ told.keys()):
        raise Failure(f"{program.name} {'does not tell' if name in names else 'tells of itself'} {name}.")
    for name, (value, _) in told.items():
        if not math.isfinite(value) or value < 0.0:
            raise Failure(f"{program.name} has no figure for {name}: {value}.")
    return told


def holds(row, value):
    if row.bound is None:
        return None
    return value <= row.goal if row.bound == "<=" else value >= row.goal


def verdict(row, value):
    return {None: "told", True: "holds", False: "MISSED"}[holds(row, value)]


def shown(value):
    return f"{value:.0f}" if value >= 1000 else f"{value:.3g}"


def print_row(row, value, parts):
    goal = f"{row.bound} {shown(row.goal)}" if row.bound else ""
    figure = f"{shown(value)} {row.unit}".strip()
    print(f"{row.title:<58} {figure:>18}  {goal:<8} {verdict(row, value):<6}  {parts}".rstrip(), flush=True)


def write_csv(path, results):
    with open(path, "w", encoding="utf-8", newline="") as file:
        writer = csv.writer(file)
        writer.writerow(["name", "title", "value", "unit", "bound", "goal", "verdict", "parts"])
        for row, value, parts in results:
            writer.writerow(
                [row.name, row.title, value, row.unit, row.bound or "", "" if row.goal is None else row.goal,
                 verdict(row, value), parts]
            )


def draw(folder, results):
    """Leaves the picture; the sentence that is said instead where that is impossible."""
    if shutil.which("gnuplot") is None:
        return "There is no picture: the package gnuplot-nox is missing."
    data = folder / "table.tsv"
    used = [(row, value) for row, value, _ in results if row.bound]
    with open(data, "w", encoding="utf-8") as file:
        for row, value in used:
            share = value / row.goal if row.bound == "<=" else row.goal / max(value, 1e-9)
            unit = f" ({row.unit})" if row.unit else ""
            file.write(f"{row.title}{unit}\t{share:.4f}\n")
    script = PLOT.format(height=60 + 19 * len(used), picture=folder / "table.svg", rows=len(used), most=2, data=data)
    done = subprocess.run(["gnuplot"], input=script, capture_output=True, text=True, check=False)
    data.unlink()
    return f"gnuplot draws no picture:\n{done.stderr}" if done.returncode != 0 else ""


class Disturbance:
    """What has kept the processors from the benchmarks since it was made: /proc/stat against their own time."""

    # Above it, what goes by the clock says more of the machine's hour than of the program.
    LIMIT_PERCENT = 2.0

    def __init__(self):
        self.before = self.read()

    @staticmethod
    def read():
        """In seconds of all processors: all time, what ran here, what the machine below withheld, what is our own."""
        with open("/proc/stat", encoding="ascii") as file:
            ticks = [int(word) for word in file.readline().split()[1:9]]
        user, nice, system, _idle, _iowait, irq, softirq, stolen = (
            count / os.sysconf("SC_CLK_TCK") for count in ticks)
        total = sum(ticks) / os.sysconf("SC_CLK_TCK")
        own = sum(usage.ru_utime + usage.ru_stime
                  for usage in map(resource.getrusage, (resource.RUSAGE_SELF, resource.RUSAGE_CHILDREN)))
        return total, user + nice + system + irq + softirq, stolen, own

    def sentence(self):
        total, busy, stolen, own = (now - then for now, then in zip(self.read(), self.before))
        others_percent = max(0.0, busy - own) / max(total, 1e-9) * 100.0
        stolen_percent = stolen / max(total, 1e-9) * 100.0
        sentence = (f"of the processors' time other work took {others_percent:.1f} %, "
                    f"and the host of a virtual machine {stolen_percent:.1f} %")
        if others_percent + stolen_percent > self.LIMIT_PERCENT:
            sentence += ": what goes by the clock is not to be relied upon"
        return sentence


def options():
    programs = "\n".join(f"  {program.name:<15} {program.text}" for program in PROGRAMS)
    parser = argparse.ArgumentParser(
        prog="benchmarks/run",
        formatter_class=argparse.RawDescriptionHelpFormatter,
        description="Builds the benchmark programs and runs them, which takes five minutes; no display is needed.\n"
        "Prints a table: each figure with its goal, whether it holds, and what it is made of.\n\n"
        + __doc__.split("\n\n", 1)[1] + "\nPrograms:\n" + programs,
        epilog="Leaves table.csv and table.svg in out/benchmarks. Status 0: every goal holds; 1: one does not,\n"
        "or a program failed; 2: the command line is wrong.\n\n"
        "benchmarks/run --instructions armhf|arm64 [--sources FILE] [PROGRAM...] counts instructions of a board's\n"
        "processor instead, emulated: benchmarks/instructions.md has the table.",
    )
    parser.add_argument("programs", nargs="*", metavar="PROGRAM", default=[], help="only these; by default all")
    parser.add_argument("--short", action="store_true",
                        help="shows that every figure is there: the least of everything; only the goals of file syncs "
                        "and memory count")
    parser.add_argument("--build", dest="folder", default="build/release/benchmarks", metavar="DIR",
                        help="where the programs are (default: %(default)s)")
    parser.add_argument("--out", default="out/benchmarks", metavar="DIR",
                        help="where table.csv and table.svg are left (default: %(default)s)")
    arguments = parser.parse_args()
    known = [program.name for program in PROGRAMS]
    for name in arguments.programs:
        if name not in known:
            parser.error(f"there is no program {name}; there are {', '.join(known)}")
    return arguments


def main():
    arguments = options()
    folder = Path(arguments.out)
    folder.mkdir(parents=True, exist_ok=True)
    print(f"{os.cpu_count()} cores, load {os.getloadavg()[0]:.1f} at the start", flush=True)
    disturbance = Disturbance()
    results = []
    try:
        for program in PROGRAMS:
            if arguments.programs and program.name not in arguments.programs:
                continue
            told = run_program(program, arguments.folder, arguments.short)
            for row in program.rows:
                results.append((row, *told[row.name]))
                print_row(*results[-1])
    except Failure as failure:
        print(failure, file=sys.stderr)
        return 1
    write_csv(folder / "table.csv", results)
    word = draw(folder, results)
    if word:
        print(word, file=sys.stderr)
    print(disturbance.sentence())
    missed = [row for row, value, _ in results if holds(row, value) is False]
    print(f"{len(results)} figures, {len(missed)} miss their goal; also in {folder / 'table.csv'} and table.svg")
    return 1 if any(row.counted or not arguments.short for row in missed) else 0


if __name__ == "__main__":
    sys.exit(main())
