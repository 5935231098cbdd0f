"""Which errors a call can end with, by the pages of the kernel and the C library that document
it: of these, all that circumstances bring about. A wrong argument (EFAULT, ENAMETOOLONG, a bad
descriptor) is the caller's own, and stands here only where nothing else is documented."""

FULL_DISK = ["EDQUOT", "ENOSPC"]
NO_ROOM_FOR_DESCRIPTORS = ["EMFILE", "ENFILE"]

OPEN = ["EACCES", "EINTR", "ELOOP", *NO_ROOM_FOR_DESCRIPTORS, "ENOENT", "ENOMEM"]
OPEN_DEVICE = ["EACCES", "EBUSY", "EINTR", *NO_ROOM_FOR_DESCRIPTORS, "ENODEV", "ENOENT", "ENOMEM", "ENXIO"]
LOOK = ["EACCES", "ELOOP", "ENOENT", "ENOMEM", "ENOTDIR"]
CHANGE_ENTRY = ["EACCES", "ENOENT", "ENOMEM", "EPERM", "EROFS"]
BUS = ["EAGAIN", "EBUSY", "EIO", "ENODEV", "ENOMEM", "ENXIO", "EOPNOTSUPP", "EPROTO", "ESHUTDOWN", "ETIMEDOUT"]
TERMINAL = ["EINTR", "EIO", "ENOTTY"]

DEVICES = {"capture device", "sensor bus", "serial line"}
WRITTEN = ("scratch", "autofocus", "captured", "display", "serial lock")

BY_CALL = {
    "access": [*LOOK, "EIO", "EROFS"],
    "chmod": [*CHANGE_ENTRY, "EIO"],
    "clone": ["EAGAIN", "ENOMEM"],
    "close": ["EINTR", "EIO", *FULL_DISK],
    "closedir": ["EBADF"],
    "dup2": ["EBUSY", "EINTR", "EMFILE"],
    "eventfd": [*NO_ROOM_FOR_DESCRIPTORS, "ENODEV", "ENOMEM"],
    "execve": ["EACCES", "EAGAIN", "EIO", "ELOOP", *NO_ROOM_FOR_DESCRIPTORS, "ENOENT", "ENOEXEC", "ENOMEM",
               "EPERM", "ETXTBSY"],
    "fchmod": ["EIO", "ENOMEM", "EPERM", "EROFS"],
    "fchown": ["EIO", "ENOMEM", "EPERM", "EROFS"],
    "fclose": ["EINTR", "EIO", *FULL_DISK],
    "fcntl": ["EBADF"],
    "fdatasync": ["EINTR", "EIO", "EROFS", *FULL_DISK],
    "flock": ["EINTR", "ENOLCK", "EWOULDBLOCK"],
    "fork": ["EAGAIN", "ENOMEM"],
    "fstat": ["ENOMEM", "EOVERFLOW"],
    "fstat64": ["ENOMEM", "EOVERFLOW"],
    "fsync": ["EINTR", "EIO", "EROFS", *FULL_DISK],
    "fstatat": ["EACCES", "EIO", "ELOOP", "ENOMEM", "ENOTDIR"],
    "ftruncate": ["EFBIG", "EINTR", "EIO", "EPERM", "EROFS"],
    "ftruncate64": ["EFBIG", "EINTR", "EIO", "EPERM", "EROFS"],
    "futimens": ["EACCES", "EPERM", "EROFS"],
    "inotify_add_watch": ["EACCES", "ENOENT", "ENOMEM", "ENOSPC"],
    "inotify_init1": [*NO_ROOM_FOR_DESCRIPTORS, "ENOMEM"],
    "linkat": [*CHANGE_ENTRY, *FULL_DISK, "EEXIST", "EIO", "EMLINK", "EXDEV"],
    "lseek": ["EINVAL", "ESPIPE"],
    "lseek64": ["EINVAL", "ESPIPE"],
    "mkdir": [*CHANGE_ENTRY, *FULL_DISK, "EEXIST", "EMLINK"],
    "mmap": ["EACCES", "EINVAL", "ENODEV", "ENOMEM"],
    "mkdirat": [*CHANGE_ENTRY, *FULL_DISK, "EEXIST", "EMLINK"],
    "munmap": ["EINVAL", "ENOMEM"],
    "opendir": ["EACCES", *NO_ROOM_FOR_DESCRIPTORS, "ENOENT", "ENOMEM", "ENOTDIR"],
    "pipe2": NO_ROOM_FOR_DESCRIPTORS,
    "poll": ["EINTR", "EINVAL", "ENOMEM"],
    "ppoll": ["EINTR", "EINVAL", "ENOMEM"],
    "pthread_create": ["EAGAIN", "EPERM"],
    "read": ["EINTR", "EIO"],
    "readdir64": ["EBADF"],
    "readlink": [*LOOK, "EINVAL", "EIO"],
    "realpath": [*LOOK, "EIO"],
    "rename": [*CHANGE_ENTRY, *FULL_DISK, "EBUSY", "EMLINK", "EXDEV"],
    "renameat2": [*CHANGE_ENTRY, *FULL_DISK, "EBUSY", "EINVAL", "EMLINK", "EXDEV"],
    "rmdir": [*CHANGE_ENTRY, "EBUSY", "ENOTEMPTY"],
    "select": ["EBUSY", "EINTR", "ENOMEM"],
    "stat": LOOK,
    "stat64": LOOK,
    "lstat64": LOOK,
    "statx": LOOK,
    "tcflush": TERMINAL,
    "tcgetattr": TERMINAL,
    "tcsetattr": TERMINAL,
    "unlink": [*CHANGE_ENTRY, "EBUSY", "EIO"],
    "waitid": ["ECHILD", "EINTR"],
    "wait4": ["ECHILD", "EINTR"],
    "waitpid": ["ECHILD", "EINTR"],
    "write": ["EFBIG", "EINTR", "EIO", "EPERM", *FULL_DISK],
    "ioctl VIDIOC_S_FMT": ["EBUSY", "EINVAL", "EIO", "ENODEV"],
    "ioctl VIDIOC_REQBUFS": ["EBUSY", "EINVAL", "ENODEV", "ENOMEM"],
    "ioctl VIDIOC_QUERYBUF": ["EINVAL", "ENODEV"],
    "ioctl VIDIOC_QBUF": ["EINVAL", "EIO", "ENODEV", "ENOMEM"],
    "ioctl VIDIOC_DQBUF": ["EAGAIN", "EINTR", "EINVAL", "EIO", "ENODEV", "EPIPE"],
    "ioctl VIDIOC_STREAMON": ["EBUSY", "EINVAL", "EIO", "ENODEV", "ENOLINK", "ENOSPC", "EPIPE"],
    "ioctl VIDIOC_STREAMOFF": ["EINVAL", "ENODEV"],
    "ioctl I2C_SLAVE_FORCE": ["EBUSY", "EINVAL"],
    "ioctl FIONREAD": ["ENOTTY"],
}
ON_TARGET = {
    ("read", "sensor bus"): BUS,
    ("write", "sensor bus"): BUS,
    ("read", "serial line"): ["EAGAIN", "EINTR", "EIO"],
    ("write", "serial line"): ["EAGAIN", "EINTR", "EIO"],
    ("read", "pipe"): ["EAGAIN", "EINTR", "EIO"],
    ("read", "watch of the disk links"): ["EAGAIN", "EINTR", "EIO"],
}


def errors(call: str, target: str) -> list[str]:
    """The names of the errors that a call on a target can end with."""
    if call in ("open", "fopen"):
        if target in DEVICES:
            return OPEN_DEVICE
        return [*OPEN, *FULL_DISK, "EROFS"] if target.startswith(WRITTEN) else OPEN
    if call in ("close", "fclose") and not target.startswith(WRITTEN):
        return ["EINTR", "EIO"]
    if (call, target) in ON_TARGET:
        return ON_TARGET[call, target]
    if call.startswith("ioctl") and target == "serial line":
        return TERMINAL
    return BY_CALL[call]
