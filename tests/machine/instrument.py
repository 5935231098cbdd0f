"""The instrument as the steps see it: the machine with its board, sensor, camera, disk and
screen, each looked at from outside of the program."""

import configparser
import re
import subprocess
import threading
import time

from emulator import Machine, MachineError, Stick, make_stick, wait_for
from screen import LIVE_VIEW, TABS, Form

UNIT = "orla-verifier"
BLUE = (0, 170, 255)  # of what is chosen
NOTICE = (255, 216, 74)  # the band over the live view
EXIT_COLOUR = (255, 85, 0)

# Exposure, gain, red, green, blue: high byte and low byte each, in the order of the camera tab.
REGISTERS = [0x3501, 0x3502, 0x350A, 0x350B, 0x3400, 0x3401, 0x3402, 0x3403, 0x3404, 0x3405]
SIZES = {"VGA": (640, 480), "1280": (1280, 960), "5M": (2592, 1944)}
SECTIONS = list(SIZES)
CONF = "/opt/ORLA3/conf"
FILES = {"NTB": "Calibration_BFN.ini", "TB": "Calibration_CUS.ini"}

# The camera's test picture: eight bars, from the left.
BARS = [(1, 1, 1), (1, 1, 0), (0, 1, 1), (0, 1, 0), (1, 0, 1), (1, 0, 0), (0, 0, 1), (0, 0, 0)]


def register_values(staining, section):
    """The ten values of a mode in the settings that the machine starts with: no two modes alike."""
    base = 16 * (SECTIONS.index(section) + 4 * list(FILES).index(staining))
    return [base + i if i % 2 else 1 for i in range(len(REGISTERS))]


def calibration_file(staining):
    text = ""
    for section in SECTIONS:
        text += f"[{section}]\n"
        for address, value in zip(REGISTERS, register_values(staining, section)):
            text += f"0x{address:04X}=0x{value:02X}\n"
    return text


class Board:
    """The controller board at the far end of the serial line, and what it received."""

    def __init__(self, program, folder):
        self.process = subprocess.Popen(
            [str(program), str(folder)], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, bufsize=1
        )
        first = self.process.stdout.readline().split()
        if len(first) != 2 or first[0] != "terminal":
            raise MachineError("the board has no terminal")
        self.terminal = first[1]
        self.lines = []
        self.states = []
        threading.Thread(target=self._listen, daemon=True).start()

    def _listen(self):
        for line in self.process.stdout:
            word, _, rest = line.rstrip("\n").partition(" ")
            (self.lines if word == "line" else self.states).append(rest)

    def order(self, text):
        """(position, LED, level) after an order to the board."""
        told = len(self.states)
        self.process.stdin.write(text + "\n")
        wait_for(lambda: len(self.states) > told, 30, "the board", 0.02)
        return tuple(int(word) for word in self.states[-1].split())

    def state(self):
        return self.order("state")

    def end(self):
        self.process.stdin.close()
        self.process.wait()


class Instrument:
    def __init__(self, wiring, system, disk, payload, board_program, folder, record, patience):
        self.wiring = wiring
        self.system, self.disk, self.payload, self.folder = system, disk, payload, folder
        self.record, self.patience = record, patience
        self.form = Form()
        self.board = Board(board_program, folder)
        # What the sensor is to hold in each mode: the settings, and what was changed since.
        modes = [(staining, section) for staining in FILES for section in SECTIONS]
        self.values = {mode: register_values(*mode) for mode in modes}
        # Stage position and light level of the example settings.
        self.reference, self.led = 32000, 225
        self.stick_path = folder / "stick.img"
        make_stick(self.stick_path)
        self.stick = Stick(self.stick_path)
        self.tab = None
        self.machine = None

    # Power

    def power_on(self):
        self.machine = Machine(
            self.wiring, self.system, self.disk, self.payload, self.board.terminal, self.folder, self.patience
        )
        self.machine.start()
        self.watch()

    def power_cut(self):
        if self.machine:
            self.machine.cut()
            self.machine = None

    def is_up(self):
        """Whether the machine has come up, and has not ended."""
        return bool(self.machine and self.machine.agent and self.machine.process.poll() is None)

    def end(self):
        self.power_cut()
        self.board.end()

    def watch(self):
        """From here on the kernel's log has every call to the camera's driver but the stream's."""
        # What made the system has left word that packages stop no service.
        self.ask("rm -f /usr/sbin/policy-rc.d")
        self.watch_camera()
        self.ask("dmesg --console-off; dmesg -n 1")

    def watch_camera(self):
        """The kernel's log gets the calls to the camera's driver."""
        name = self.wiring.camera.rpartition("/")[2]
        self.ask(f"udevadm settle; echo 3 >/sys/class/video4linux/{name}/dev_debug")

    # Ways in

    def ask(self, command, limit=60, expect=0):
        return self.machine.ask(command, limit, expect)

    def wait(self, condition, limit, what, pause=0.5):
        return wait_for(condition, limit * self.patience, what, pause, self.machine.watch)

    def touch(self, x, y, hold=0.12):
        self.machine.touch((x, y, hold))

    def press(self, name):
        """Presses a widget, after the tab that it lies on."""
        page = self.form.page_of.get(name)
        if page and page != self.tab:
            self.open_tab(page)
        self.touch(*self.form.middle(name))

    def write(self, name, text):
        """Types a text into an edit in place of another one that is there."""
        x, y, width, height = self.form.rectangles[name]
        view = lambda: self.machine.picture().part(x + 5, y + 5, width - 10, height - 10)
        self.press(name)
        before = self.settled(view)
        self.machine.key("ctrl", "a")
        self.machine.type(text)
        # Keys and the panel are two devices: what is pressed next would overtake the last key.
        self.wait(lambda: view() != before, 60, f"{text} in {name}")
        self.settled(view)

    def settled(self, view):
        """What a view shows once it stays the same for a second."""
        seen = []

        def is_same():
            seen.append(view())
            return len(seen) > 1 and seen[-1] == seen[-2]

        self.wait(is_same, 120, "what does not change any more", 1)
        return seen[-1]

    def open_tab(self, page):
        x, y = TABS[page]
        self.touch(x, y)
        self.wait(lambda: self.machine.picture().is_like(x, 25, BLUE, 12), 60, f"the tab {page}")
        self.tab = page

    def drag(self, start, end, steps=8):
        places = [
            (start[0] + (end[0] - start[0]) * i // steps, start[1] + (end[1] - start[1]) * i // steps, 0.06)
            for i in range(steps + 1)
        ]
        self.machine.touch(*places)

    def wait_for_box(self, caption, limit=120):
        """Waits for a message box, shows it in the log, and returns its frame."""
        self.wait(lambda: self.machine.picture().box(), limit, f"the box {caption!r}")
        # It is painted at once, but its frame may be on the screen a moment earlier.
        picture = self.wait(self._still_picture, 60, "a picture at rest")
        self.record.show(picture, caption)
        return picture.box()

    def _still_picture(self):
        first = self.machine.picture()
        time.sleep(0.3)
        second = self.machine.picture()
        box = second.box()
        return second if box and first.part(*box) == second.part(*box) else None

    def answer_box(self, box, button=0, of=1):
        """Presses one of a box's buttons, counted from the left, and waits until it has gone."""
        buttons = self.machine.picture().box_buttons(box)
        if len(buttons) != of:
            raise MachineError(f"the box has buttons at {buttons}, not {of} of them")
        self.touch(*buttons[button])
        self.wait(lambda: self.machine.picture().box() != box, 120, "the box to go")

    def save(self, caption):
        """Presses the button that saves a tab, and answers what it says."""
        self.press("BUTTON_SAVE_INI")
        self.answer_box(self.wait_for_box(caption))

    def show(self, caption):
        picture = self.machine.picture()
        self.record.show(picture, caption)
        return picture

    # Views from outside

    def verdict(self, holds, text):
        return self.record.verdict(holds, text)

    def unit_state(self):
        return self.ask(f"systemctl is-active {UNIT}", expect=None).strip()

    def pid(self):
        return int(self.ask(f"systemctl show -p MainPID --value {UNIT}"))

    def camera_format(self):
        return self.machine.camera_format(self.wiring.camera)

    def mapped_buffers(self):
        return int(self.ask(f"grep -c /dev/video /proc/{self.pid()}/maps", expect=None) or 0)

    def driver_calls(self):
        """The names of the calls to the camera's driver since the last time, in their order, each
        with its error or an empty text. The steps' own look at the driver is left out."""
        text = self.ask("dmesg -c", expect=None)
        calls = re.findall(r"video\d+: VIDIOC_(\w+)(: error -?\d+)?", text)
        return [call for call in calls if call[0] != "G_FMT"]

    def forget_sensor_log(self):
        self.ask("echo >/sys/kernel/debug/orla_sensor/log")

    def sensor_log(self):
        """("R" or "W", address, value) of each access since the log was forgotten."""
        lines = self.ask("cat /sys/kernel/debug/orla_sensor/log").splitlines()
        return [(kind, int(address, 16), int(value, 16)) for kind, address, value in map(str.split, lines)]

    def sensor_register(self, address):
        return int(self.ask(f"od -An -tu1 -j{address} -N1 /sys/kernel/debug/orla_sensor/registers"))

    def settings(self, path):
        parser = configparser.RawConfigParser(delimiters=("=",))
        parser.optionxform = lambda name: name.replace("%20", " ")
        parser.read_string(self.ask(f"cat {path}"))
        return {section.replace("%20", " "): dict(parser[section]) for section in parser.sections()}

    def is_mounted(self):
        return self.ask("findmnt -n -o SOURCE,FSTYPE /mnt", expect=None).split()

    def keep_journal(self, name):
        """What the system has said so far, as a file beside the log."""
        (self.folder / name).write_text(self.ask("journalctl --no-pager", limit=120, expect=None), encoding="utf-8")

    def has_notice(self, picture=None):
        return (picture or self.machine.picture()).is_like(630, 4, NOTICE, 12)

    def shows_bars(self, picture):
        """Whether the live view has the camera's test picture, whole."""
        for i, bar in enumerate(BARS):
            red, green, blue = picture.at(40 + 80 * i, 400)
            for value, lit in zip((red, green, blue), bar):
                if (value > 110) != bool(lit):
                    return False
        return True

    def is_live(self, limit=60):
        """Whether the picture changes: the test picture has a clock in it."""
        first = self.machine.picture().part(*LIVE_VIEW)
        try:
            self.wait(lambda: self.machine.picture().part(*LIVE_VIEW) != first, limit, "the picture to change")
        except MachineError:
            return False
        return True
