"""What the program has to do and to say when a call fails, and whether it did.

For every cell: it ends in order, nobody hangs, the window takes presses at the end (or the tabs
are locked because the board does not answer, and nothing else), live frames come, the disk is
released, no descriptor, thread or mapping is left over, and every settings file holds, line for
line, what it held before or what the undisturbed day has saved. Beyond that each rule below
says what is told, and what else a failure may cost.
"""

import re
from collections import Counter
from dataclasses import dataclass, field

BOARD = "Controller board does not answer"
NOT_SAVED = r"\[Error\] not saved: "


@dataclass
class Rule:
    """Of calls that match: what is told in the log, a notice or a box; "" for nothing."""

    calls: str
    told: str = ""
    # Whether it may be told or not, as the turn and the error decide.
    maybe: bool = False
    # What it may cost: "board", "disk", "measure", "scratch", "mappings", "descriptors".
    costs: tuple = ()


RULES = [
    # The camera tells the request that failed; pressing a resolution opens it again.
    Rule(r"ioctl VIDIOC_S_FMT: .* EBUSY", r"VIDIOC_S_FMT: busy|still busy", maybe=True),
    Rule(r"ioctl VIDIOC_DQBUF", r"/dev/video0: No such device", maybe=True),
    Rule(r"100 ioctl VIDIOC_QBUF", r"VIDIOC_QBUF|/dev/video0: No such device", maybe=True),
    Rule(r"2 ioctl VIDIOC_REQBUFS", r"still busy, the device is opened anew|VIDIOC_REQBUFS", maybe=True),
    Rule(r"ioctl VIDIOC_STREAMOFF", r"\[Error\] VIDIOC_STREAMOFF"),
    Rule(r"ioctl VIDIOC_(S_FMT|REQBUFS|QUERYBUF|QBUF|STREAMON)", r"\[Error\] VIDIOC_\w+ !"),
    Rule(r"mmap: capture device", r"\[Error\] mmap !"),
    # Memory that cannot be given back stays, and holds the format until the device is opened anew.
    # The stand-in for the driver, in the same process, keeps the file below it as long.
    Rule(r"munmap: capture device", r"still busy, the device is opened anew", maybe=True,
         costs=("mappings", "descriptors")),
    Rule(r"(select|fcntl|close): capture device"),
    Rule(r"open: capture device", r"/dev/video0|VIDIOC_S_FMT", maybe=True),
    # The sensor: the last known value is shown; a table that cannot be written is told.
    Rule(r"open: sensor bus", r"\[Error\] /dev/i2c-1: "),
    Rule(r"write: sensor bus", r"\[Error\] I2C failed: \w+|Image sensor does not answer", maybe=True),
    # The descriptor of a bus that cannot be addressed is kept, as it always was.
    Rule(r"ioctl I2C_SLAVE_FORCE", r"Image sensor does not answer", maybe=True, costs=("descriptors",)),
    Rule(r"read: sensor bus", r"Image sensor does not answer", maybe=True),
    Rule(r"close: sensor bus"),
    # The line: an exchange that fails is a time-out, a port that fails is closed. A write that is
    # refused once, by a line that is still there, goes out at the next try.
    Rule(r"write: serial line (EAGAIN|EINTR|EIO)", "errorDataWritingTimeout", maybe=True),
    Rule(r": serial line", f"{BOARD}|errorData(Reading|Writing)Timeout|QSerialPort", maybe=True,
         costs=("board", "measure")),
    Rule(r": serial lock", f"{BOARD}|[Ll]ock|setNativeLocks", maybe=True, costs=("board", "measure")),
    # Saves: the old file stays, and the log says why.
    Rule(r"(open|fopen|read|statx|access|stat64|close|readlink): (the main file|another settings file)",
         NOT_SAVED + r"|\[Error\] not read: ", maybe=True),
    Rule(r": (the main file|another settings file)", NOT_SAVED, maybe=True),
    Rule(r": settings folder", NOT_SAVED, maybe=True),
    Rule(r": scratch ", NOT_SAVED + r"|[Ll]ock|QFile::at: Cannot set file position", maybe=True,
         costs=("scratch",)),
    # The disk of the technician.
    Rule(r": captured frame", r"TIFF|/mnt/cells", maybe=True),
    Rule(r": autofocus (frame|folder|table)",
         r"TIFF|\[Error\] (create directory|write image|write file) failed", maybe=True),
    Rule(r": (disk links?|watch of the disk links|mount table)", r"INSERT|[Uu]sb|USB|inotify", maybe=True,
         costs=("disk",)),
    Rule(r": (mount|umount)$|: (mount|umount) ", costs=("disk",), told=r"USB|INSERT|[Uu]sb", maybe=True),
    Rule(r": disk", r"inotify|file dialog", maybe=True),
    # Where signals cannot be watched, the next one ends the program and leaves the LED on.
    Rule(r"1 pipe2: pipe", r"\[Error\] signals are not watched"),
    Rule(r"(clone|fork|waitid|wait4|waitpid): process|: pipe|: password script",
         r"USB|INSERT|QProcess|pipe|forkfd", maybe=True, costs=("disk", "descriptors")),
    Rule(r"display parameter"),
    # The live view's thread: the camera's, which comes first, is told with the camera's opening.
    Rule(r"2 pthread_create: thread EAGAIN", r"\[Error\] the grab thread could not be started"),
    Rule(r"pthread_create: thread", r"pthread_create failed|QThread::start", maybe=True),
    Rule(r"eventfd: thread", r"eventfd|event", maybe=True, costs=("descriptors",)),
    Rule(r"(poll|ppoll): event loop", r"poll", maybe=True),
]


@dataclass
class Verdict:
    """What came of a cell, what was told, and what of it is wrong."""

    outcome: str = "survived"
    message: str = ""
    wrong: list = field(default_factory=list)


def rule_for(text):
    for rule in RULES:
        if re.search(rule.calls, text):
            return rule
    return None


def values(content):
    """The keys of a settings file with their sections, however their blanks are written, and what
    they hold."""
    section, found = "", {}
    for line in content.splitlines():
        if line.startswith("["):
            section = line
        elif "=" in line:
            key, value = line.split("=", 1)
            found[(section + key).replace("%20", " ")] = value
    return found


def judge_files(seen, plain, costs, wrong):
    for name, content in seen["files"].items():
        old, new, found = (values(text) for text in (plain["files before"][name], plain["files"][name], content))
        for key in old:
            if key not in found:
                wrong.append(f"{name}: {key} is lost")
        for key, value in found.items():
            if value not in (old.get(key), new.get(key)):
                wrong.append(f"{name}: {key}={value}, was {old.get(key)}, would be {new.get(key)}")
    strays = Counter(seen["folders"]) - Counter(plain["folders"])
    if strays and "scratch" not in costs:
        wrong.append(f"left beside the settings: {', '.join(strays)}")


def descriptors(seen):
    """What is held open; the serial line's terminal has another number each day."""
    return Counter("terminal" if name.isdigit() else name for name in seen["descriptors"])


def judge_holdings(seen, plain, costs, wrong):
    more = descriptors(seen) - descriptors(plain)
    if more and "descriptors" not in costs:
        wrong.append(f"descriptors left: {dict(more)}")
    if seen["threads"] > plain["threads"]:
        wrong.append(f"threads: {seen['threads']}, {plain['threads']} otherwise")
    if seen["mappings"] > plain["mappings"] and "mappings" not in costs:
        wrong.append(f"mappings: {seen['mappings']}, {plain['mappings']} otherwise")


def judge_window(seen, verdict, costs):
    board_lost = "board" in costs and any(BOARD in notice for notice in seen["notices"])
    locked = not seen["tabs enabled"]
    if not seen["window enabled"]:
        verdict.wrong.append("the window is locked")
    if locked and not board_lost:
        verdict.wrong.append("the tabs are locked")
    if locked and board_lost:
        verdict.outcome = "the board is lost: the autofocus does not end, the tabs are locked, Exit works"
    elif board_lost:
        verdict.outcome = "the board is lost"
    if not locked and not seen["frames at the end"]:
        verdict.wrong.append("no live frames at the end")
    if not locked and not seen["disk released"]:
        if "disk" in costs:
            verdict.outcome += "; the disk is not unmounted"
        else:
            verdict.wrong.append("the disk is not unmounted")
    if not locked and seen["magnification"] != "1.400" and "measure" not in costs:
        verdict.wrong.append(f"magnification: {seen['magnification'] or 'none'}")
    if seen["problems"] and not locked:
        verdict.wrong += seen["problems"]


# What is another one each day.
DAILY = [
    (r"\d{8}_\d{6}|\d\d:\d\d:\d\d\.\d+", "TIME"),
    (r"orla-scratch-\w{6}", "orla-scratch-NAME"),
    (r"0x[0-9a-f]{8,}", "ADDRESS"),
    (r"process:\d+", "process"),
]


def said(seen):
    """What a technician or a reader of the log is told, shortest first."""
    lines = [notice.split(": ", 1)[1] for notice in seen["notices"]]
    for line in seen["told"]:
        line = re.sub(r"^\w[\w ]*\b[\w:~]+\([^)]*\) ", "", line)
        if re.search(r"QStandardPaths|bZig_mode|slot_|^\w+_\w+$", line):
            continue
        for pattern, name in DAILY:
            line = re.sub(pattern, name, line)
        lines.append(line)
    return list(dict.fromkeys(lines))


def judge(cell, seen, plain):
    """The verdict on what was seen of a day, beside the undisturbed one."""
    turn, call, error = cell
    text = f"{turn} {call} {error}"
    rule = rule_for(text) or Rule(".*")
    verdict = Verdict()
    wrong = verdict.wrong
    told = said(seen)
    verdict.message = "; ".join(told[:2])
    if seen["signals to all"]:
        wrong.append("a signal to every process of the machine")
    if seen["struck"] == 0:
        verdict.outcome = "not reached"
        wrong.append("the call did not come")
        return verdict
    if seen["hangs"]:
        verdict.outcome = "hangs"
        wrong.append("hangs")
        return verdict
    if seen["exit"] != 0 or not seen.get("started"):
        verdict.outcome = f"ends with {seen['exit']}"
        wrong.append(verdict.outcome)
        return verdict
    judge_window(seen, verdict, rule.costs)
    judge_holdings(seen, plain, rule.costs, wrong)
    judge_files(seen, plain, rule.costs, wrong)
    if rule.told and not rule.maybe and not any(re.search(rule.told, line) for line in told):
        wrong.append(f"not told: {rule.told}")
    # A file that is not the new one is told, whatever failed.
    unsaved = [name for name, content in seen["files"].items() if content != plain["files"][name]]
    if unsaved and not any(re.search(r"\[Error\] not (saved|read)", line) for line in told):
        if verdict.outcome == "survived":
            wrong.append(f"not saved, and not told: {', '.join(unsaved)}")
    elif unsaved:
        verdict.outcome += "; " + ", ".join(unsaved) + " not saved"
    if wrong:
        verdict.outcome = "; ".join(wrong)
    return verdict
