"""Stands in for the instrument's regular software: holds camera and serial line, and takes its
time to end.

Usage: regular.py CAMERA LINE
"""

import fcntl
import os
import signal
import struct
import sys
import time

VIDIOC_REQBUFS = 0xC0145608
V4L2_BUF_TYPE_VIDEO_CAPTURE = 1
V4L2_MEMORY_MMAP = 1
PARTING = 3  # seconds

camera = os.open(sys.argv[1], os.O_RDWR)
# While they are held, the camera's driver changes its format for nobody.
request = struct.pack("<5I", 2, V4L2_BUF_TYPE_VIDEO_CAPTURE, V4L2_MEMORY_MMAP, 0, 0)
fcntl.ioctl(camera, VIDIOC_REQBUFS, bytearray(request))
line = os.open(sys.argv[2], os.O_RDWR | os.O_NOCTTY)
signal.pthread_sigmask(signal.SIG_BLOCK, [signal.SIGTERM])
print("regular software: devices held", flush=True)
signal.sigwait([signal.SIGTERM])
time.sleep(PARTING)
