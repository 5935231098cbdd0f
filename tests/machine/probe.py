"""What whoever runs this has the right to do. A line for each: "NAME: done" or "NAME: ERROR".

Nothing is changed but root's password, which becomes the serial number.
"""

import ctypes
import errno
import os
import re
import socket
import subprocess
import time

SETTINGS = "/opt/ORLA3/conf/ORLA3.ini"
CLONE_NEWNS = 0x20000
PTRACE_SEIZE, PTRACE_DETACH = 0x4206, 17
RB_DISABLE_CAD = 0
SYS_FINIT_MODULE = 313  # of x86-64

libc = ctypes.CDLL(None, use_errno=True)


def call(function, *arguments, expected=None):
    """A call of the C library. expected: the error that tells that the right was there."""
    if function(*arguments) == -1:
        number = ctypes.get_errno()
        if number != expected:
            raise OSError(number, os.strerror(number))


def password():
    with open(SETTINGS, encoding="latin-1") as settings:
        serial = re.search(r"^Serial=(.*)$", settings.read(), re.MULTILINE).group(1)
    subprocess.run(["chpasswd"], input=f"root:{serial}\n".encode(), check=True)


def owner():
    with open("/tmp/owned", "w", encoding="ascii"):
        os.chown("/tmp/owned", 1000, 1000)
    os.unlink("/tmp/owned")


def device():
    os.close(os.open("/dev/input/event0", os.O_RDONLY | os.O_NONBLOCK))


def mount():
    os.makedirs("/tmp/place", exist_ok=True)
    call(libc.mount, b"none", b"/tmp/place", b"tmpfs", 0, None)
    call(libc.umount2, b"/tmp/place", 0)


def signal():
    os.kill(int(subprocess.check_output(["pgrep", "-x", "-o", "systemd-udevd"])), 0)


def sudo():
    subprocess.run(["sudo", "-n", "true"], check=True)


def node():
    os.mknod("/tmp/node", 0o20600, os.makedev(1, 3))
    os.unlink("/tmp/node")


def module():
    # An empty file is no module: whoever may load one is told so.
    with open("/dev/null", "rb") as file:
        call(libc.syscall, SYS_FINIT_MODULE, file.fileno(), b"", 0, expected=errno.EINVAL)


def network():
    socket.socket(socket.AF_INET, socket.SOCK_STREAM).close()


def namespace():
    child = os.fork()
    if child == 0:
        os._exit(0 if libc.unshare(CLONE_NEWNS) == 0 else ctypes.get_errno())
    status = os.waitstatus_to_exitcode(os.waitpid(child, 0)[1])
    if status:
        raise OSError(status, os.strerror(status))


def clock():
    time.clock_settime(time.CLOCK_REALTIME, time.clock_gettime(time.CLOCK_REALTIME))


def restart():
    # What Ctrl-Alt-Del does is the system manager's: it has this off already.
    call(libc.reboot, RB_DISABLE_CAD)


def trace():
    child = subprocess.Popen(["sleep", "10"])
    try:
        call(libc.ptrace, PTRACE_SEIZE, child.pid, None, None)
    finally:
        child.kill()
        child.wait()


def realtime():
    os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(1))
    os.sched_setscheduler(0, os.SCHED_OTHER, os.sched_param(0))


for attempt in (
    *(password, owner, device, mount, signal, sudo),
    *(node, module, network, namespace, clock, restart, trace, realtime),
):
    try:
        attempt()
        result = "done"
    except OSError as error:
        result = errno.errorcode.get(error.errno, str(error))
    except subprocess.CalledProcessError as error:
        result = f"status {error.returncode}"
    print(f"{attempt.__name__}: {result}", flush=True)
