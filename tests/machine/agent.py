"""What steers the machine from outside: takes orders, one JSON object a line, from a serial port
of the emulator, and answers each with one.

{"run": COMMAND, "limit": SECONDS}   by the shell; {"status", "output"}
{"touch": [[X, Y, SECONDS], ...]}    a finger that goes down at the first place, from place to
                                     place, and up; each is held for its time
{"format": DEVICE}                   of a camera: {"status", "output": [WIDTH, HEIGHT, CODE]}
"""

import fcntl
import json
import os
import struct
import subprocess
import time

PORT = "/dev/virtio-ports/machine"
SCREEN = (800, 480)

EV_SYN, EV_KEY, EV_ABS = 0, 1, 3
BTN_TOUCH = 0x14A
ABS_X, ABS_Y = 0x00, 0x01
ABS_MT_SLOT, ABS_MT_POSITION_X, ABS_MT_POSITION_Y, ABS_MT_TRACKING_ID = 0x2F, 0x35, 0x36, 0x39
UI_DEV_CREATE, UI_DEV_SETUP, UI_ABS_SETUP = 0x5501, 0x405C5503, 0x401C5504
UI_SET_EVBIT, UI_SET_KEYBIT, UI_SET_PROPBIT = 0x40045564, 0x40045565, 0x4004556E
INPUT_PROP_DIRECT = 1
BUS_USB = 3

VIDIOC_G_FMT = 0xC0D05604
V4L2_BUF_TYPE_VIDEO_CAPTURE = 1


# What a panel says where the screen's upper left, upper right and lower left corner are.
STRAIGHT = (SCREEN, (0, 0), (SCREEN[0] - 1, 0), (0, SCREEN[1] - 1))
TURNED = ((4096, 4096), (3890, 320), (3870, 3760), (230, 340))


class TouchPanel:
    """A touch panel of the kernel's; the kernel's command line chooses which."""

    def __init__(self):
        with open("/proc/cmdline", encoding="ascii") as options:
            turned = "machine.panel=turned" in options.read().split()
        size, *self.corners = TURNED if turned else STRAIGHT
        self.device = os.open("/dev/uinput", os.O_WRONLY)
        for kind in (EV_KEY, EV_ABS):
            fcntl.ioctl(self.device, UI_SET_EVBIT, kind)
        fcntl.ioctl(self.device, UI_SET_KEYBIT, BTN_TOUCH)
        fcntl.ioctl(self.device, UI_SET_PROPBIT, INPUT_PROP_DIRECT)
        for axis, highest in (
            (ABS_X, size[0] - 1),
            (ABS_Y, size[1] - 1),
            (ABS_MT_SLOT, 1),
            (ABS_MT_POSITION_X, size[0] - 1),
            (ABS_MT_POSITION_Y, size[1] - 1),
            (ABS_MT_TRACKING_ID, 65535),
        ):
            fcntl.ioctl(self.device, UI_ABS_SETUP, struct.pack("<H2x6i", axis, 0, 0, highest, 0, 0, 0))
        name = b"Emulated touch panel"
        fcntl.ioctl(self.device, UI_DEV_SETUP, struct.pack("<4H80sI", BUS_USB, 1, 1, 1, name, 0))
        fcntl.ioctl(self.device, UI_DEV_CREATE)
        self.contact = 0

    def send(self, *events):
        for kind, code, value in [*events, (EV_SYN, 0, 0)]:
            os.write(self.device, struct.pack("<qqHHi", 0, 0, kind, code, value))

    def raw(self, x, y):
        """What the panel says for a place on the screen."""
        origin, right, down = self.corners
        along, across = x / (SCREEN[0] - 1), y / (SCREEN[1] - 1)
        return tuple(round(o + along * (r - o) + across * (d - o)) for o, r, d in zip(origin, right, down))

    def touch(self, places):
        self.contact = (self.contact + 1) % 65536
        going_down = [(EV_ABS, ABS_MT_SLOT, 0), (EV_ABS, ABS_MT_TRACKING_ID, self.contact), (EV_KEY, BTN_TOUCH, 1)]
        for left, top, duration in places:
            x, y = self.raw(left, top)
            self.send(
                *going_down,
                (EV_ABS, ABS_MT_POSITION_X, x),
                (EV_ABS, ABS_MT_POSITION_Y, y),
                (EV_ABS, ABS_X, x),
                (EV_ABS, ABS_Y, y),
            )
            going_down = []
            time.sleep(duration)
        self.send((EV_ABS, ABS_MT_TRACKING_ID, -1), (EV_KEY, BTN_TOUCH, 0))


def camera_format(path):
    """What the driver delivers, asked with one call so that little stands in its log."""
    request = bytearray(struct.pack("<I204x", V4L2_BUF_TYPE_VIDEO_CAPTURE))
    try:
        device = os.open(path, os.O_RDWR | os.O_NONBLOCK)
    except OSError as error:
        return {"status": error.errno, "output": None}
    try:
        fcntl.ioctl(device, VIDIOC_G_FMT, request)
    except OSError as error:
        return {"status": error.errno, "output": None}
    finally:
        os.close(device)
    width, height, code = struct.unpack_from("<II4s", request, 8)
    return {"status": 0, "output": [width, height, code.decode(errors="replace")]}


def run(command, limit):
    try:
        done = subprocess.run(
            ["/bin/bash", "-c", command],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            timeout=limit,
        )
    except subprocess.TimeoutExpired as late:
        return {"status": 124, "output": (late.stdout or b"").decode(errors="replace")}
    return {"status": done.returncode, "output": done.stdout.decode(errors="replace")}


def say(port, value):
    rest = json.dumps(value).encode() + b"\n"
    while rest:  # the port takes as much as it has room for
        rest = rest[port.write(rest) :]


def main():
    panel = TouchPanel()
    while not os.path.exists(PORT):
        time.sleep(0.1)
    with open(PORT, "r+b", buffering=0) as port:
        say(port, {"ready": True})
        rest = b""
        while True:
            data = port.read(65536)
            if not data:  # nobody at the other end
                time.sleep(0.1)
                continue
            rest += data
            while b"\n" in rest:
                line, rest = rest.split(b"\n", 1)
                order = json.loads(line)
                if "touch" in order:
                    panel.touch(order["touch"])
                    answer = {"status": 0, "output": ""}
                elif "format" in order:
                    answer = camera_format(order["format"])
                else:
                    answer = run(order["run"], order["limit"])
                say(port, answer)


main()
