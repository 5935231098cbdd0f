"""The table of the fault matrix as a document."""

from collections import defaultdict

HEAD = """# Faults

What the verifier does when a device or file call fails. Made by

    cmake --build build/release --target fault_run
    python3 tests/system/faults/fault_matrix.py build/release/tests/system/fault_run \\
        --results build/release/faults.jsonl --document docs/faults.md

and not written by hand. The program that is shipped runs through a short day on the simulated
instrument: start, live view, switches of mode, capture, autofocus, measurement, saves, password,
exit. In each day one call fails, once: its first, second or hundredth turn, with one of the errors
that are documented for it (`documented_errors.py`). Which calls there are comes from a day in
which nothing fails, so that a new call is in the matrix by itself. The command goes on where it
was stopped; `./test` runs a short cut of it, `./test long` all of it.

A day counts as survived when the program ended in order with status 0, the window took presses,
live frames came and the disk was released at the end, no descriptor, thread or mapping was left
over beside an undisturbed day, and every value in every settings file was the old or the new one.
What else a failure may cost, and what is to be told, stands in `expected_outcomes.py`. "Told" is
what a technician sees in the band over the live view, or a reader in the log. On a busy machine a
day that went wrong is lived up to three times, and counts as wrong if it is so each time.

"""


def document(verdicts, total):
    """The table, of which equal outcomes of one call share a row."""
    rows = defaultdict(list)
    for (turn, call, error), verdict in verdicts.items():
        rows[call, turn, verdict.outcome, verdict.message].append(error)
    wrong = sum(1 for verdict in verdicts.values() if verdict.wrong)
    text = HEAD + f"Cells run: {len(verdicts)} of {total}; survived: {len(verdicts) - wrong}.\n\n"
    text += "| Call | Turn | Error | Outcome | Told |\n|---|---|---|---|---|\n"
    for (call, turn, outcome, message), errors in sorted(rows.items()):
        message = message.replace("|", "\\|").replace("\n", " ") or "nothing"
        text += f"| {call} | {turn} | {', '.join(sorted(errors))} | {outcome} | {message} |\n"
    return text
