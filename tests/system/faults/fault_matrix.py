#!/usr/bin/env python3
"""Has every device and file call of the verifier fail, one at a time, and judges what comes of it.

The program that is shipped runs through a short day for each cell of the matrix: start, live
view, switches of mode, capture, autofocus, measurement, saves, password, exit. An undisturbed
day tells which calls there are (faults/FaultCalls.cpp counts them), documented_errors.py with
which errors each can end, expected_outcomes.py what the program has to do and say. A cell is
one call, its first, second or hundredth turn, and one error.

Results are kept in a file and not run again; a new build of the program needs a new file.
"""

import argparse
import concurrent.futures
import errno
import json
import os
import queue
import re
import subprocess
import sys
import threading
import time
from pathlib import Path

from documented_errors import errors
from expected_outcomes import judge
from fault_document import document

TURNS = (1, 2, 100)
ATTEMPTS = 3
SKIPPED = 77


class Worker:
    """A process that runs one day after another."""

    def __init__(self, program):
        environment = dict(os.environ, QT_QPA_PLATFORM="offscreen")
        self.process = subprocess.Popen([program], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        text=True, env=environment)

    def run(self, request):
        self.process.stdin.write(json.dumps(request) + "\n")
        self.process.stdin.flush()
        line = self.process.stdout.readline()
        if not line:
            raise RuntimeError(f"the runner ended at {request}")
        return json.loads(line)

    def close(self):
        self.process.stdin.close()
        self.process.wait()


def without_numbers(line):
    return re.sub(r"0x[0-9a-fA-F]+|\d+", "#", line)


def told(log, usual):
    """Lines of a log that an undisturbed one has not, once each."""
    lines = []
    for line in log.splitlines():
        if without_numbers(line) not in usual and line not in lines:
            lines.append(line)
    return lines


def cells(counts):
    """Every cell; the first turns of all calls come first, for they find the most."""
    rows = []
    for key, count in counts.items():
        call, target = key.split(": ")
        for turn in TURNS:
            if count >= turn:
                rows += [(rank, turn, key, name) for rank, name in enumerate(errors(call, target))]
    rows.sort(key=lambda row: (row[0], row[1]))
    return [row[1:] for row in rows]


class Matrix:
    def __init__(self, program, results):
        self.program = program
        self.results = results
        self.lock = threading.Lock()
        self.seen = {}
        if results and results.exists():
            for line in results.read_text().splitlines():
                row = json.loads(line)
                self.seen[tuple(row["cell"])] = row["seen"]

    def undisturbed(self):
        worker = Worker(self.program)
        days = [worker.run({"counts": True, "turn": max(TURNS)}) for _ in range(2)]
        worker.close()
        if "hindrance" in days[0]:
            return days[0]
        usual = {without_numbers(line) for day in days for line in day["log"].splitlines()}
        return dict(days[0], usual=usual)

    def run(self, wanted, plain, jobs, deadline):
        todo = queue.SimpleQueue()
        for cell in wanted:
            if cell not in self.seen:
                todo.put(cell)
        total = todo.qsize()

        def work(_):
            worker = Worker(self.program)
            while True:
                try:
                    if deadline and time.monotonic() > deadline:
                        raise queue.Empty
                    cell = todo.get_nowait()
                except queue.Empty:
                    worker.close()
                    return
                self.keep(cell, self.one(worker, cell, plain))
                if sys.stderr.isatty():
                    print(f"\r{total - todo.qsize()} of {total}", end="", file=sys.stderr)

        with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
            list(pool.map(work, range(jobs)))

    def one(self, worker, cell, plain):
        """What is seen of a cell; on a busy machine a day that went wrong is lived again."""
        turn, key, name = cell
        for _ in range(ATTEMPTS):
            day = worker.run({"call": key, "turn": turn, "errno": getattr(errno, name)})
            day["told"] = told(day.pop("log"), plain["usual"])
            if not judge(cell, day, plain).wrong:
                break
        return day

    def keep(self, cell, seen):
        with self.lock:
            self.seen[cell] = seen
            if self.results:
                with self.results.open("a") as file:
                    file.write(json.dumps({"cell": cell, "seen": seen}) + "\n")


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("program", help="the runner of days, fault_run")
    parser.add_argument("--results", type=Path, help="file of results, to be gone on with")
    parser.add_argument("--document", type=Path, help="where to write the table")
    parser.add_argument("--jobs", type=int, default=os.cpu_count(), help="days at the same time")
    parser.add_argument("--only", default="", help="regular expression of the cells, as 'TURN CALL: TARGET ERROR'")
    parser.add_argument("--minutes", type=float, help="begin no day after this time")
    parser.add_argument("--pick", type=Path, help="file of cells, one a line")
    return parser.parse_args()


def cell_text(cell):
    return f"{cell[0]} {cell[1]} {cell[2]}"


def main():
    options = parse_arguments()
    matrix = Matrix(options.program, options.results)
    plain = matrix.undisturbed()
    if "hindrance" in plain:
        print("skipped:", plain["hindrance"])
        return SKIPPED
    wanted = cells(plain["counts"])
    if options.pick:
        picked = options.pick.read_text().splitlines()
        missing = set(picked) - {cell_text(cell) for cell in wanted}
        if missing:
            print("no such cell:", *sorted(missing), sep="\n")
            return 1
        wanted = [cell for cell in wanted if cell_text(cell) in picked]
    wanted = [cell for cell in wanted if re.search(options.only, cell_text(cell))]
    began = time.monotonic()
    deadline = began + options.minutes * 60 if options.minutes else None
    matrix.run(wanted, plain, options.jobs, deadline)
    verdicts = {cell: judge(cell, matrix.seen[cell], plain) for cell in wanted if cell in matrix.seen}
    if options.document:
        options.document.write_text(document(verdicts, len(wanted)))
    wrong = {cell: verdict for cell, verdict in verdicts.items() if verdict.wrong}
    for cell, verdict in wrong.items():
        print(cell_text(cell), *verdict.wrong, sep="\n    ")
    print(f"{len(verdicts)} cells, {len(wrong)} wrong, {time.monotonic() - began:.0f} s")
    return 1 if wrong or not verdicts else 0


if __name__ == "__main__":
    sys.exit(main())
