"""The installation, as docs/install.md tells it: its blocks of commands are run in the machine, in
their order, and what each leads to is looked at from outside.

Run as a program, this holds the document against the steps: no block without a step, no step
without its blocks.
"""

import re
import sys
from pathlib import Path

from instrument import CONF, FILES, REGISTERS, SECTIONS, UNIT
from steps import (
    EXAMPLES,
    MAIN_FILE,
    OPENED,
    SERIAL,
    STAGE_FILE,
    check_camera,
    check_identity,
    check_mode,
    check_not_started,
    check_parked,
    check_stage,
    check_started,
    measure,
    press_exit,
    set_camera,
    set_stage,
    start,
    type_identity,
)

DOCUMENT = Path(__file__).resolve().parents[2] / "docs" / "install.md"
BROUGHT = "/opt/machine"  # what the run brings along, our packages among it
NEWER = "/opt/newer"
REGULAR = "counter"  # the unit of the regular software, as the document calls it
REGULAR_UNIT = f"""\
[Unit]
Description=The instrument's regular software
[Service]
ExecStart=/usr/bin/python3 {BROUGHT}/regular.py /dev/video2 /dev/ttyUSB0
[Install]
WantedBy=multi-user.target
"""
SERIAL_NUMBER = f"OR3-{SERIAL[0]}-{SERIAL[1]}"
PIXEL = 0.01  # of the measured length, and more: what a turned panel may be off at both points
CONSOLE_TIMER = 20  # seconds, of the machine's kernel options
PASSWORD_SCRIPT = "/opt/ORLA3/bin/set_password.sh"
# What the password script, run by the program, has to find out about its rights.
ALLOWED = ["password", "owner", "device", "mount", "signal", "sudo"]
REFUSED = ["node", "module", "network", "namespace", "clock", "restart", "trace", "realtime"]
JOURNAL_LIMIT_MB = 32


def read_blocks(text):
    """The blocks of commands below each heading that has any, in their order."""
    found, heading, block = {}, None, None
    for line in text.splitlines():
        if block is not None:
            if line == "```":
                found.setdefault(heading, []).append("\n".join(block))
                block = None
            else:
                block.append(line)
        elif line == "```sh":
            block = []
        elif line.startswith("## "):
            heading = line[3:]
    return found


def note(machine, block):
    machine.record.say("from the document:")
    for line in block.splitlines():
        machine.record.say(line, " |  ")


def run_block(machine, block, folder="/root", expect=0, limit=120):
    note(machine, block)
    return machine.ask(f"cd {folder}\n{block}", limit=limit, expect=expect)


def is_regular(machine, state):
    machine.wait(lambda: machine.ask(f"systemctl is-active {REGULAR}", expect=None).strip() == state, 120, f"{state}")
    machine.verdict(True, f"the regular software is {state}")


def screen_power(machine):
    return machine.ask("cat /sys/class/drm/card0-*/dpms").strip()


def needs(machine, blocks):
    """A bare board that runs its regular software, and what it has."""
    machine.ask(f"cat >/etc/systemd/system/{REGULAR}.service <<'END'\n{REGULAR_UNIT}END")
    machine.ask(f"systemctl enable --now {REGULAR}")
    is_regular(machine, "active")
    # A kind of device that a board has not is told of by the status.
    told = run_block(machine, blocks[0], expect=None)
    machine.verdict(told.splitlines()[0] == "800,480", f"the panel: {told.splitlines()[0]}")
    for name in ("/dev/ttyUSB0", "video2", "i2c-5", "orla sensor", "Emulated touch panel"):
        machine.verdict(name in told, f"{name} is listed")
    names = machine.ask("ls /dev/video0 /dev/ttyS2 /dev/i2c-1", expect=None)
    machine.verdict(names.count("No such file") == 2, "the names for camera and line are free")
    machine.verdict(machine.ask("cat /sys/class/i2c-dev/i2c-1/name").strip() == "nothing", "the bus's name is another's")


def packages(machine, blocks):
    run_block(machine, blocks[0], BROUGHT, limit=600)
    status = machine.ask(f"dpkg-query -W -f '${{db:Status-Status}}' {UNIT}")
    machine.verdict(status == "installed", f"the package is {status}")
    check_not_started(machine)
    is_regular(machine, "active")
    same = machine.ask("cat /usr/share/doc/orla-verifier/install.md") == DOCUMENT.read_text(encoding="utf-8")
    machine.verdict(same, "the document that comes with the package is this one")


def device_names(machine, blocks):
    run_block(machine, blocks[0])
    for name, device in (("video0", "video2"), ("ttyS2", "ttyUSB0"), ("orla-bus", "i2c-5")):
        leads = machine.ask(f"readlink -f /dev/{name}").strip()
        machine.verdict(leads == f"/dev/{device}", f"/dev/{name} leads to {leads}")
    run_block(machine, blocks[1])
    before = machine.ask(f"systemctl show -p ExecStartPre --value {UNIT}")
    machine.verdict("mount --bind /dev/orla-bus /dev/i2c-1" in before, "the service lends the bus its name")


def settings(machine, blocks):
    run_block(machine, blocks[0])
    files = [MAIN_FILE, STAGE_FILE, *(f"{CONF}/{name}" for name in FILES.values())]
    for file in files:
        name = file.rpartition("/")[2]
        machine.verdict(machine.ask(f"cmp {file} {EXAMPLES}/{name}", expect=None) == "", f"{file} is the example")
    for staining, name in FILES.items():
        stored = machine.settings(f"{CONF}/{name}")
        for section in SECTIONS:
            machine.values[staining, section] = [int(stored[section][f"0x{a:04X}"], 16) for a in REGISTERS]


def touch_panel(machine, blocks):
    """Corners are touched while the document's command listens; what it tells are the numbers that
    the document goes on with."""
    told = "/tmp/corners"
    note(machine, blocks[0])
    machine.ask(f"cat >/tmp/listen <<'END'\n{blocks[0]}\nEND\nbash /tmp/listen >{told} 2>&1 </dev/null & :")
    listening = "ls -l /proc/$(pgrep -x evtest)/fd | grep -c /dev/input"
    machine.wait(lambda: machine.ask(listening, expect=None).strip() == "1", 60, "evtest")
    for corner in ((0, 0), (799, 0), (0, 479)):
        machine.touch(*corner, hold=0.5)
    machine.wait(lambda: machine.ask("pgrep -x evtest", expect=None) == "", 60, "evtest's end")
    text = machine.ask(f"cat {told}")
    ranges = re.findall(r"\b(Min|Max)\s+(-?\d+)", text)
    values = re.findall(r"\(ABS_([XY])\), value (\d+)", text)
    used = {name: value.strip() for name, value in re.findall(r"(\w+)='?([-\d ]+)", blocks[1])}
    limits = [used[name] for name in ("x_least", "x_most", "y_least", "y_most")]
    machine.verdict([value for _, value in ranges[:4]] == limits, f"the panel's range: {ranges[:4]}")
    corners = " ".join(used[name] for name in ("upper_left", "upper_right", "lower_left")).split()
    machine.verdict(values == list(zip("XYXYXY", corners)), f"the corners: {values}")
    run_block(machine, blocks[1])
    shown = machine.ask("udevadm info --export-db | grep -c LIBINPUT_CALIBRATION_MATRIX", expect=None).strip()
    machine.verdict(shown == "1", "one panel has a matrix; whether it is right, every press from here on shows")


def beside(machine, blocks):
    run_block(machine, blocks[0])
    for key in ("Conflicts", "After", "OnSuccess", "OnFailure"):
        units = machine.ask(f"systemctl show -p {key} --value {UNIT}").split()
        machine.verdict(f"{REGULAR}.service" in units, f"{key} names the regular software")


def light_console(machine):
    machine.machine.key("shift")
    machine.wait(lambda: any(machine.machine.picture().data), 60, "the console's text")


def console_timer(machine):
    return machine.ask("cat /sys/module/kernel/parameters/consoleblank").strip()


def screen(machine, blocks):
    """The console goes dark, and no more after the document's command."""
    light_console(machine)
    machine.wait(lambda: screen_power(machine) == "Off", 120, "the console to go dark")
    machine.verdict(True, "the console has gone dark")
    told = run_block(machine, blocks[0]).split()
    machine.verdict(told[:1] == [str(CONSOLE_TIMER)], f"its timer's seconds: {told[:1]}")
    light_console(machine)
    machine.ask(f"sleep {CONSOLE_TIMER + 5}", limit=120)
    machine.verdict(screen_power(machine) == "On", f"lit, with no key pressed for {CONSOLE_TIMER + 5} s")


def first_start(machine, blocks):
    machine.ask("setterm --term linux --blank force </dev/tty1")
    machine.verdict(screen_power(machine) == "Off", "the console is dark")
    note(machine, blocks[0])
    start(machine, blocks[0])
    is_regular(machine, "inactive")
    ended = int(machine.ask(f"systemctl show -p InactiveEnterTimestampMonotonic --value {REGULAR}"))
    begun = int(machine.ask(f"systemctl show -p ExecMainStartTimestampMonotonic --value {UNIT}"))
    machine.verdict(ended <= begun, f"it ended {(begun - ended) / 1e6:.1f} s before the program was started")
    check_mode(machine, "NTB", "1280", "First start", OPENED)
    machine.verdict(screen_power(machine) == "On", "the screen is lit")
    bound = machine.ask("findmnt -n -o SOURCE /dev/i2c-1").strip()
    machine.verdict("/i2c-5" in bound, f"the bus's name is lent: {bound}")


def first_calibration(machine, blocks):
    place = set_stage(machine)
    machine.save("Stage calibrated")
    check_stage(machine, place)
    machine.reference = place
    machine.open_tab("TAB_CAMERA")
    machine.led, exposure = set_camera(machine)
    machine.save("Camera calibrated")
    check_camera(machine, "1280", machine.led, exposure)
    machine.values["NTB", "1280"][:2] = exposure
    type_identity(machine)
    measure(machine)
    machine.press("BUTTON_QC_CAPTURE")
    machine.wait(lambda: machine.mapped_buffers() == 4, 120, "the camera to go on")
    machine.save("QC calibrated")
    check_identity(machine, PIXEL)
    magnification = machine.settings(MAIN_FILE)["ORLA-III"]["Magnification"]
    told = run_block(machine, blocks[0]).split()
    expected = {f"Z%20reference={place}", f"LED={machine.led}"}
    expected |= {f"Magnification={magnification}", f"Serial={SERIAL_NUMBER}"}
    machine.verdict(expected <= set(told), f"the document's command shows it: {told}")


def log(machine, blocks):
    run_block(machine, blocks[0])
    kept = machine.ask("find /var/log/journal -name '*.journal'").split()
    machine.verdict(bool(kept), f"{len(kept)} files below /var/log/journal")
    told = run_block(machine, blocks[1])
    machine.verdict("orla-verifier 0." in told, "the log has the line of name and version")
    machine.verdict("archived and active journals take up" in told.lower(), told.splitlines()[-1])
    # More than the limit, in lines of 40 kilobytes that cannot be packed; the log until then is kept.
    machine.keep_journal("journal-until-filled.txt")
    filler = f"head -c {JOURNAL_LIMIT_MB}M /dev/urandom | base64 -w 40000 | systemd-cat -t filler"
    machine.ask(f"{filler}; echo the newest line | systemd-cat -t newest; journalctl --sync", limit=300)
    taken = int(machine.ask("du -sm /var/log/journal").split()[0])
    machine.verdict(JOURNAL_LIMIT_MB // 2 < taken <= JOURNAL_LIMIT_MB, f"filled with more it takes {taken} MB")
    newest = machine.ask("journalctl -t newest -n 1 -o cat").strip()
    machine.verdict(newest == "the newest line", "what came last is there")
    machine.verdict(machine.unit_state() == "active", "the program goes on")


def rights(machine, blocks):
    """The password script, run by the program, tries what the table says."""
    machine.ask(f"mkdir -p $(dirname {PASSWORD_SCRIPT})")
    machine.ask(f"printf '#!/bin/sh\\nexec python3 {BROUGHT}/probe.py >/tmp/probe 2>&1\\n' >{PASSWORD_SCRIPT}")
    machine.ask(f"chmod 755 {PASSWORD_SCRIPT}")
    free = probe(machine.ask(f"python3 {BROUGHT}/probe.py"))
    machine.verdict(all(free.get(name) == "done" for name in ALLOWED + REFUSED), f"without the unit: {free}")
    machine.ask("usermod -p '*' root")
    machine.press("BUTTON_PASSWORD")
    machine.answer_box(machine.wait_for_box("Password"))
    found = probe(machine.ask("cat /tmp/probe"))
    hashed = f"import crypt, spwd; h = spwd.getspnam('root').sp_pwdp; print(crypt.crypt('{SERIAL_NUMBER}', h) == h)"
    is_serial = machine.ask(f'python3 -W ignore -c "{hashed}"').strip()
    machine.verdict(is_serial == "True", "root's password is the serial number")
    for name in ALLOWED:
        machine.verdict(found.get(name) == "done", f"{name}: {found.get(name)}")
    for name in REFUSED:
        machine.verdict(found.get(name, "done") != "done", f"{name}: {found.get(name)}")
    told = run_block(machine, blocks[0])
    shown = set(re.search(r"CapabilityBoundingSet=(.*)", told).group(1).split())
    mask = int(re.search(r"CapBnd:\s*(\w+)", machine.ask(f"cat /proc/{machine.pid()}/status")).group(1), 16)
    machine.verdict(0 < len(shown) == bin(mask).count("1") < 20, f"{len(shown)} capabilities: {sorted(shown)}")
    level = re.search(r"exposure level for \S+: ([\d.]+)", told)
    machine.verdict(level is not None and float(level.group(1)) < 6, f"exposure {level and level.group(1)}")


def probe(text):
    return dict(line.split(": ", 1) for line in text.splitlines() if ": " in line)


def way_back(machine, blocks):
    press_exit(machine)
    is_regular(machine, "active")
    machine.verdict(machine.ask("findmnt /dev/i2c-1", expect=None) == "", "the bus's name is given back")
    machine.verdict(console_timer(machine) == "0", f"the console's timer is as before: {console_timer(machine)}")
    start(machine)
    said = len(machine.board.lines)
    run_block(machine, blocks[0])
    check_parked(machine, said)
    is_regular(machine, "active")


def instead(machine, blocks):
    said = len(machine.board.lines)
    started = machine.ask("cat /proc/sys/kernel/random/boot_id")
    note(machine, blocks[0])
    machine.machine.restart(blocks[0])
    machine.watch()
    machine.verdict(machine.ask("cat /proc/sys/kernel/random/boot_id") != started, "the board has restarted")
    check_started(machine, said)
    is_regular(machine, "inactive")
    # Nobody listened to the driver until now.
    check_mode(machine, "NTB", "1280", "Started at boot", None)
    said = len(machine.board.lines)
    run_block(machine, blocks[1])
    check_parked(machine, said)
    is_regular(machine, "active")
    states = machine.ask(f"systemctl is-enabled {UNIT} {REGULAR}", expect=None).split()
    machine.verdict(states == ["disabled", "enabled"], f"{UNIT} and {REGULAR} are {states}")


# In the machine: the package once more, with the next revision's number.
MAKE_NEWER = rf"""
mkdir -p {NEWER} && cd {NEWER}
dpkg-deb -R {BROUGHT}/{UNIT}_*.deb tree
sed -i 's/^\(Version: .*\)-1$/\1-2/' tree/DEBIAN/control
dpkg-deb -Znone -b tree .
"""


def update(machine, blocks):
    machine.ask(MAKE_NEWER, limit=120)
    start(machine)
    pid, said = machine.pid(), len(machine.board.lines)
    run_block(machine, blocks[0], NEWER, limit=600)
    version = machine.ask(f"dpkg-query -W -f '${{Version}}' {UNIT}")
    machine.verdict(version.endswith("-2"), f"installed is {version}")
    machine.verdict(machine.unit_state() == "active" and machine.pid() == pid, "the program goes on")
    machine.verdict(machine.board.lines[said:] == [], "nothing was said to the board")
    machine.verdict(machine.is_live(), "the picture goes on")


def removal(machine, blocks):
    files = f"sha256sum {MAIN_FILE} {STAGE_FILE} {CONF}/*.ini"
    before, said = machine.ask(files), len(machine.board.lines)
    run_block(machine, blocks[0], limit=600)
    machine.wait(lambda: len(machine.board.lines) >= said + 2, 60, "the board to be parked")
    lines = machine.board.lines[said:]
    machine.verdict(lines == ["$,LED4,OFF,,", "$,STM1,ORIGIN,,"], f"light off and stage home: {lines}")
    machine.verdict(machine.ask("pgrep -x orla-verifier", expect=None) == "", "the program has ended")
    is_regular(machine, "active")
    machine.verdict(machine.ask(files) == before, "the settings files are those of before")
    run_block(machine, blocks[1])
    left = machine.ask("find /etc /lib/systemd /usr/bin -iname '*orla*' ! -path '*/conf/*'", expect=None).split()
    ours = [name for name in left if "orla_sensor" not in name]
    machine.verdict(ours == [], f"nothing of it is left: {ours}")


STEPS = {
    "What is needed": (1, needs),
    "Packages": (1, packages),
    "Device names": (2, device_names),
    "Settings": (1, settings),
    "Touch panel": (2, touch_panel),
    "Beside the regular software": (1, beside),
    "Screen": (1, screen),
    "First start": (1, first_start),
    "First calibration": (1, first_calibration),
    "Log": (2, log),
    "What it may do as root": (1, rights),
    "Way back to the regular software": (1, way_back),
    "Instead of the regular software": (2, instead),
    "Update": (1, update),
    "Removal": (2, removal),
}


def faults(text):
    """What does not fit between the document and the steps."""
    found = {heading: len(blocks) for heading, blocks in read_blocks(text).items()}
    expected = {heading: count for heading, (count, _) in STEPS.items()}
    said = [
        f'"{heading}": {found.get(heading, 0)} blocks in the document, {expected.get(heading, 0)} in the steps'
        for heading in {**expected, **found}
        if found.get(heading) != expected.get(heading)
    ]
    if not said and list(found) != list(expected):
        said.append(f"the document's order is {list(found)}")
    return said


def installation_steps():
    blocks = read_blocks(DOCUMENT.read_text(encoding="utf-8"))
    bind = lambda step, own: lambda machine: step(machine, own)
    return [(f"Installation: {heading}", bind(step, blocks[heading])) for heading, (_, step) in STEPS.items()]


if __name__ == "__main__":
    wrong = faults(DOCUMENT.read_text(encoding="utf-8"))
    print("\n".join(wrong) or "each block has its step")
    sys.exit(1 if wrong else 0)
