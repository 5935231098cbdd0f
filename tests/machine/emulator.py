"""The emulated machine: QEMU without hardware acceleration, and the ways into it."""

import json
import os
import socket
import subprocess
import tarfile
import time
from dataclasses import dataclass

from screen import Picture

MEMORY_MB = 1536
KERNEL_OPTIONS = (
    "root=/dev/vda rw console=ttyS0,115200 loglevel=4 systemd.show_status=false net.ifnames=0"
    " mitigations=off panic=30"
)


@dataclass(frozen=True)
class Wiring:
    """How a machine's devices are connected, and the names that they get by it."""

    camera: str
    line: tuple  # the emulator's options for what leads to the board's
    kernel_options: str = ""


# The names that the program knows.
INSTRUMENT = Wiring("/dev/video0", ("-device", "isa-serial,index=2,iobase=0x3e8,irq=10,chardev=board"))

# A board on which they are other devices' names, or nobody's; its touch panel is turned and has a
# range of its own, and its console goes dark soon.
BARE_BOARD = Wiring(
    "/dev/video2",
    ("-device", "usb-serial,bus=usb.0,chardev=board"),
    "vivid.vid_cap_nr=2 orla_sensor.bus=5 orla_sensor.empty_bus=1 8250.nr_uarts=1 consoleblank=20 machine.panel=turned",
)


class MachineError(Exception):
    """The machine does not do what it should, or not in time."""


def wait_for(condition, limit, what, pause=0.5, watch=None):
    """The first true value of condition(); MachineError when the time is up. watch(), if given,
    is called in between and may raise."""
    end = time.monotonic() + limit
    while True:
        value = condition()
        if value:
            return value
        if watch:
            watch()
        if time.monotonic() > end:
            raise MachineError(f"waited {limit:.0f} s for {what}, in vain")
        time.sleep(pause)


class Lines:
    """A stream socket that speaks one JSON object a line."""

    def __init__(self, path, limit):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(limit)
        self.socket.connect(str(path))
        self.rest = b""

    def send(self, value):
        self.socket.sendall(json.dumps(value).encode() + b"\n")

    def receive(self, limit):
        self.socket.settimeout(limit)
        while b"\n" not in self.rest:
            try:
                data = self.socket.recv(65536)
            except socket.timeout as late:
                raise MachineError(f"no answer within {limit:.0f} s") from late
            if not data:
                raise MachineError("the connection has ended")
            self.rest += data
        line, self.rest = self.rest.split(b"\n", 1)
        return json.loads(line)

    def close(self):
        self.socket.close()


class Machine:
    """One run of the emulator from power-on to power-off."""

    def __init__(self, wiring, system, disk, payload, terminal, folder, patience):
        """system: folder with kernel and initial file system; disk: the image that the machine
        lives on; payload: an archive that it unpacks at its start; terminal: the board's;
        folder: for sockets and logs; patience: factor on all limits of time."""
        self.folder = folder
        self.patience = patience
        self.sockets = {name: folder / f"{name}.socket" for name in ("qmp", "agent")}
        for path in self.sockets.values():
            path.unlink(missing_ok=True)
        command = [
            "qemu-system-x86_64",
            *("-name", "instrument", "-machine", "pc,usb=off", "-accel", "tcg,thread=multi"),
            *("-cpu", "max", "-smp", "2", "-m", str(MEMORY_MB), "-nodefaults", "-no-user-config", "-display", "none"),
            *("-kernel", str(system / "vmlinuz"), "-initrd", str(system / "initrd.img")),
            *("-append", f"{KERNEL_OPTIONS} {wiring.kernel_options}"),
            *("-drive", f"file={disk},format=raw,if=virtio,cache=writeback"),
            *("-drive", f"file={payload},format=raw,if=virtio,readonly=on"),
            *("-device", "VGA,edid=on,xres=800,yres=480"),
            *("-device", "qemu-xhci,id=usb"),
            *("-chardev", f"file,id=console,path={folder}/console.log,append=on"),
            *("-device", "isa-serial,index=0,chardev=console"),
            *("-chardev", f"serial,id=board,path={terminal}"),
            *wiring.line,
            *("-device", "virtio-serial"),
            *("-chardev", f"socket,id=agent,path={self.sockets['agent']},server=on,wait=off"),
            *("-device", "virtserialport,chardev=agent,name=machine"),
            *("-qmp", f"unix:{self.sockets['qmp']},server=on,wait=off"),
        ]
        with open(folder / "qemu.log", "ab") as log:
            self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.qmp = self.agent = None

    def limit(self, seconds):
        return seconds * self.patience

    def watch(self):
        if self.process.poll() is not None:
            raise MachineError(f"the emulator has ended with status {self.process.returncode}, see qemu.log")

    def start(self):
        """Waits until the machine has come up far enough to be steered."""
        is_there = lambda: all(path.exists() for path in self.sockets.values())
        wait_for(is_there, self.limit(30), "the emulator", 0.1, self.watch)
        self.qmp = Lines(self.sockets["qmp"], self.limit(30))
        self.qmp.receive(self.limit(30))
        self.order("qmp_capabilities")
        self.order("object-add", **{"qom-type": "throttle-group", "id": "stick-speed"})
        self.agent = Lines(self.sockets["agent"], self.limit(30))
        self.agent.receive(self.limit(420))

    def restart(self, command):
        """Runs a command that restarts the system, and waits until it has come up again."""
        self.agent.send({"run": command, "limit": self.limit(60)})
        # The command's answer may get lost.
        while "ready" not in self.agent.receive(self.limit(420)):
            pass

    def order(self, command, **arguments):
        """An order to the emulator; its answer."""
        self.qmp.send({"execute": command, "arguments": arguments})
        while True:
            answer = self.qmp.receive(self.limit(60))
            if "error" in answer:
                raise MachineError(f"{command}: {answer['error'].get('desc')}")
            if "return" in answer:
                return answer["return"]

    def ask(self, command, limit=60, expect=0):
        """What a command in the machine prints; MachineError when it ends with another status
        than the one expected (None: any)."""
        limit = self.limit(limit)
        self.agent.send({"run": command, "limit": limit})
        answer = self.agent.receive(limit + self.limit(30))
        if expect is not None and answer["status"] != expect:
            raise MachineError(f"{command!r} ends with status {answer['status']}: {answer['output'].strip()}")
        return answer["output"]

    def touch(self, *places):
        """A finger on the panel: (x, y, seconds) each."""
        self.agent.send({"touch": [list(place) for place in places]})
        self.agent.receive(self.limit(60) + sum(place[2] for place in places))

    def camera_format(self, device):
        """(width, height, pixel format) of a camera, or None."""
        self.agent.send({"format": device})
        found = self.agent.receive(self.limit(60))["output"]
        return tuple(found) if found else None

    def key(self, *names):
        """Presses keys together, by the emulator's names for them."""
        self.order("send-key", keys=[{"type": "qcode", "data": name} for name in names])

    def type(self, text):
        for character in text:
            self.key({"-": "minus", ".": "dot", " ": "spc"}.get(character, character))
            time.sleep(0.1)

    def picture(self):
        """What the screen shows."""
        path = self.folder / "screen.ppm"
        self.order("screendump", filename=str(path))
        return Picture(path)

    def plug(self, image):
        file = {"driver": "throttle", "throttle-group": "stick-speed"}
        file["file"] = {"driver": "file", "filename": str(image)}
        self.order("blockdev-add", **{"driver": "raw", "node-name": "stick", "file": file})
        self.order("device_add", driver="usb-storage", id="stick-device", drive="stick", bus="usb.0", removable=True)

    def limit_stick(self, bytes_per_second):
        """How much a stick takes; 0: as much as it can."""
        self.order("qom-set", path="/objects/stick-speed", property="limits", value={"bps-write": bytes_per_second})

    def pull(self):
        """Takes the stick out at once, whatever is being written to it."""
        self.order("device_del", id="stick-device")

        def released():
            try:
                self.order("blockdev-del", **{"node-name": "stick"})
            except MachineError:
                return False
            return True

        wait_for(released, self.limit(30), "the stick's release", 0.1, self.watch)

    def cut(self):
        """Cuts the power."""
        if self.process.poll() is None:
            self.process.kill()
        self.process.wait()
        for lines in (self.qmp, self.agent):
            if lines:
                lines.close()


def make_payload(path, files):
    """An archive of files, by the name in the machine, that serves as a disk."""
    with tarfile.open(path, "w") as archive:
        for name, source in files.items():
            archive.add(source, name)
    size = os.path.getsize(path)
    os.truncate(path, (size + 511) // 512 * 512)


STICK_START = 2048  # sectors
STICK_SECTORS = 128 * 2048


def make_stick(path):
    """A USB stick with one partition and a FAT file system."""
    path.unlink(missing_ok=True)
    with open(path, "wb") as image:
        image.truncate((STICK_START + STICK_SECTORS) * 512)
    entry = bytes([0, 0, 0, 0, 0x0C, 0, 0, 0]) + STICK_START.to_bytes(4, "little") + STICK_SECTORS.to_bytes(4, "little")
    with open(path, "r+b") as image:
        image.seek(446)
        image.write(entry)
        image.seek(510)
        image.write(b"\x55\xaa")
    command = ["/usr/sbin/mkfs.vfat", f"--offset={STICK_START}", "-F", "32", "-n", "STICK"]
    subprocess.run([*command, str(path), str(STICK_SECTORS // 2)], check=True, stdout=subprocess.DEVNULL)


class Stick:
    """What is on a stick, read from outside with the tools for DOS disks."""

    def __init__(self, path):
        self.image = f"{path}@@{STICK_START * 512}"

    def _tool(self, *command):
        return subprocess.run(
            command, check=True, capture_output=True, env=dict(os.environ, MTOOLS_SKIP_CHECK="1")
        ).stdout

    def names(self, folder="/"):
        """Paths of all files below a folder."""
        text = self._tool("mdir", "-/", "-b", "-a", "-i", self.image, f"::{folder}").decode()
        return sorted(line[3:] for line in text.splitlines() if not line.endswith("/"))

    def read(self, name):
        return self._tool("mtype", "-i", self.image, f"::/{name}")
