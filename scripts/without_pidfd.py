#!/usr/bin/env python3
"""Runs a command on a kernel that knows no process descriptors: without_pidfd.py COMMAND...

QEMU 7.2 refuses to make a process together with its descriptor. Qt asks the kernel whether it can
wait for one, is told that it can, and then starts no process at all: so waiting says no as well,
and Qt does as it does on an older kernel. scripts/in_root runs everything in this way.
"""

import ctypes
import os
import struct
import sys

PR_SET_SECCOMP, SECCOMP_MODE_FILTER = 22, 2
LOAD_WORD, JUMP_IF_EQUAL, RETURN = 0x20, 0x15, 0x06
ALLOW, REFUSE_WITH_EINVAL = 0x7FFF0000, 0x00050000 | 22
AUDIT_ARCH_X86_64, WAITID, P_PIDFD = 0xC000003E, 247, 3
NUMBER_AT, ARCHITECTURE_AT, FIRST_ARGUMENT_AT = 0, 4, 16

# Operation, where to go on if it holds and if not (instructions further), value.
FILTER = [
    (LOAD_WORD, 0, 0, ARCHITECTURE_AT),
    (JUMP_IF_EQUAL, 0, 5, AUDIT_ARCH_X86_64),
    (LOAD_WORD, 0, 0, NUMBER_AT),
    (JUMP_IF_EQUAL, 0, 3, WAITID),
    (LOAD_WORD, 0, 0, FIRST_ARGUMENT_AT),
    (JUMP_IF_EQUAL, 0, 1, P_PIDFD),
    (RETURN, 0, 0, REFUSE_WITH_EINVAL),
    (RETURN, 0, 0, ALLOW),
]


class Program(ctypes.Structure):
    _fields_ = [("length", ctypes.c_ushort), ("instructions", ctypes.c_char_p)]


def main():
    if len(sys.argv) < 2:
        sys.exit(__doc__)
    instructions = b"".join(struct.pack("HBBI", *instruction) for instruction in FILTER)
    program = Program(len(FILTER), instructions)
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, ctypes.byref(program)) != 0:
        sys.exit("no filter of system calls can be set: " + os.strerror(ctypes.get_errno()))
    os.execvp(sys.argv[1], sys.argv[1:])


if __name__ == "__main__":
    main()
