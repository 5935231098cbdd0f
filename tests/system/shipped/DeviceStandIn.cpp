// Preloaded into the shipped program: takes the kernel's place for the capture device and
// the sensor's bus, and writes a line for every call on them into $STAND_IN_LOG. Every other
// call, and every other descriptor, goes on to the C library.

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "CaptureNode.h"
#include "StandInCalls.h"

namespace {

constexpr unsigned long kI2cSlave = 0x0706;
constexpr int kSensorAddress = 0x3C;

struct Bus
{
    bool open = false;
    bool addressed = false;
    unsigned int reg = 0;
};

std::mutex deviceLock;
CaptureNode capture;
int captureFd = -1;
std::array<Bus, 1024> buses; // by descriptor

int openBus()
{
    if (scene()->noBus) {
        record("i2c open fails");
        return failed(ENOENT);
    }
    const int fd = realOpen("/dev/null", O_RDWR);
    if (Bus* const bus = fd >= 0 && std::size_t(fd) < buses.size() ? &buses[fd] : nullptr)
        *bus = Bus{true, false, 0};
    record("i2c open");
    return fd;
}

/// A line for a file of the instrument, to see the order of the start.
void recordFile(const char* path, int flags)
{
    static constexpr const char* kWatched[] = {"/opt/ORLA3/", "/root/Orla2/", "/mnt/",
                                               "/etc/mtab",   "/dev/ttyS2",   "/sys/module/disp/"};
    for (const char* start : kWatched)
        if (scene() && std::strncmp(path, start, std::strlen(start)) == 0)
            record("file %s %s", (flags & O_ACCMODE) == O_RDONLY ? "read" : "written", path);
}

/// A descriptor of the stand-in for one of its nodes; -2 for any other path.
int openNode(const char* path, int flags)
{
    const bool node = std::strcmp(path, "/dev/video0") == 0;
    const bool bus = std::strcmp(path, "/dev/i2c-1") == 0;
    if ((!node && !bus) || !scene()) {
        recordFile(path, flags);
        return -2;
    }
    const std::lock_guard<std::mutex> hold(deviceLock);
    if (bus) {
        if ((flags & O_ACCMODE) != O_RDWR)
            record("i2c flags %#x", flags);
        return openBus();
    }
    record("video open%s%s", (flags & O_ACCMODE) == O_RDWR ? " read-write" : "",
           flags & O_NONBLOCK ? " non-blocking" : "");
    if (scene()->noCaptureDevice)
        return failed(ENODEV);
    captureFd = realOpen("/dev/null", flags);
    return captureFd;
}

bool isCapture(int fd)
{
    return fd >= 0 && fd == captureFd;
}

Bus* busOf(int fd)
{
    return fd >= 0 && std::size_t(fd) < buses.size() && buses[fd].open ? &buses[fd] : nullptr;
}

int busControl(Bus& bus, unsigned long request, long argument)
{
    record("i2c ioctl %#lx %#lx", request, static_cast<unsigned long>(argument));
    if (request != kI2cSlave)
        return failed(ENOTTY);
    bus.addressed = argument == kSensorAddress;
    return 0;
}

ssize_t busWrite(Bus& bus, const unsigned char* bytes, std::size_t count)
{
    if (scene()->busNack || !bus.addressed) {
        record("i2c write %zu not acknowledged", count);
        return failed(EREMOTEIO);
    }
    if (count == 3)
        record("i2c write %02X %02X %02X", bytes[0], bytes[1], bytes[2]);
    else if (count == 2)
        record("i2c write %02X %02X", bytes[0], bytes[1]);
    else
        record("i2c write of %zu bytes", count);
    if (count >= 2)
        bus.reg = bytes[0] * 256U + bytes[1];
    for (std::size_t i = 2; i < count; ++i)
        scene()->registers[(bus.reg + i - 2) & 0xFFFF] = bytes[i];
    return ssize_t(count);
}

ssize_t busRead(Bus& bus, unsigned char* bytes, std::size_t count)
{
    if (scene()->busNack || !bus.addressed) {
        record("i2c read %zu not acknowledged", count);
        return failed(EREMOTEIO);
    }
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = scene()->registers[(bus.reg + i) & 0xFFFF];
    record("i2c read %zu: %02X", count, count ? bytes[0] : 0);
    return ssize_t(count);
}

} // namespace

extern "C" {

FILE* fopen(const char* path, const char* mode)
{
    recordFile(path, mode[0] == 'r' && !std::strchr(mode, '+') ? O_RDONLY : O_WRONLY);
    return realFopen(path, mode);
}

FILE* fopen64(const char* path, const char* mode)
{
    recordFile(path, mode[0] == 'r' && !std::strchr(mode, '+') ? O_RDONLY : O_WRONLY);
    return realFopen64(path, mode);
}

int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int); // there or not: as the kernel, which ignores it
    va_end(arguments);
    const int fd = openNode(path, flags);
    return fd == -2 ? realOpen(path, flags, mode) : fd;
}

int open64(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int); // there or not: as the kernel, which ignores it
    va_end(arguments);
    const int fd = openNode(path, flags);
    return fd == -2 ? realOpen64(path, flags, mode) : fd;
}

int close(int fd)
{
    {
        const std::lock_guard<std::mutex> hold(deviceLock);
        if (isCapture(fd)) {
            record("video close");
            captureFd = -1;
            capture.closed();
        } else if (Bus* const bus = busOf(fd)) {
            record("i2c close");
            *bus = Bus();
        }
    }
    return realClose(fd);
}

ssize_t read(int fd, void* buffer, size_t count)
{
    {
        const std::lock_guard<std::mutex> hold(deviceLock);
        if (Bus* const bus = busOf(fd))
            return busRead(*bus, static_cast<unsigned char*>(buffer), count);
    }
    return realRead(fd, buffer, count);
}

ssize_t write(int fd, const void* buffer, size_t count)
{
    {
        const std::lock_guard<std::mutex> hold(deviceLock);
        if (Bus* const bus = busOf(fd))
            return busWrite(*bus, static_cast<const unsigned char*>(buffer), count);
    }
    return realWrite(fd, buffer, count);
}

int ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    {
        const std::lock_guard<std::mutex> hold(deviceLock);
        if (Bus* const bus = busOf(fd))
            return busControl(*bus, request, argument);
        if (isCapture(fd)) {
            record("video plain ioctl");
            return capture.control(request, reinterpret_cast<void*>(argument));
        }
    }
    return realIoctl(fd, request, argument);
}

// libv4l2 asks the kernel in this way, around ioctl().
long syscall(long number, ...)
{
    va_list list;
    va_start(list, number);
    long arguments[6];
    for (long& argument : arguments)
        argument = va_arg(list, long);
    va_end(list);
    if (number == SYS_ioctl) {
        const std::lock_guard<std::mutex> hold(deviceLock);
        if (isCapture(int(arguments[0])))
            return capture.control(arguments[1], reinterpret_cast<void*>(arguments[2]));
    }
    return realSyscall(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4],
                       arguments[5]);
}

int fcntl(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    if (isCapture(fd) && command == F_SETFD)
        record("video F_SETFD%s", argument & FD_CLOEXEC ? " FD_CLOEXEC" : "");
    return realFcntl(fd, command, argument);
}

void* mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset)
{
    if (isCapture(fd)) {
        const std::lock_guard<std::mutex> hold(deviceLock);
        if (protection != (PROT_READ | PROT_WRITE) || flags != MAP_SHARED)
            record("video mmap with protection %#x flags %#x", protection, flags);
        return capture.map(length, offset);
    }
    return realMmap(address, length, protection, flags, fd, offset);
}

int munmap(void* address, size_t length)
{
    if (captureFd >= 0) {
        const std::lock_guard<std::mutex> hold(deviceLock);
        capture.unmap(address, length);
    }
    return realMunmap(address, length);
}

void sync()
{
    record("sync"); // and no more: the machine's own disks have no part in it
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* special, timeval* timeout)
{
    if (captureFd < 0 || !readable || captureFd >= count || !FD_ISSET(captureFd, readable))
        return realSelect(count, readable, writable, special, timeout);
    const std::int64_t end = now_ns() + timeout->tv_sec * kSecond_ns + timeout->tv_usec * 1000LL;
    for (;;) {
        const std::int64_t now = now_ns();
        std::int64_t due = -1;
        {
            const std::lock_guard<std::mutex> hold(deviceLock);
            due = capture.nextFrame_ns();
        }
        if (due >= 0 && now >= due)
            return 1;
        if (now >= end) {
            FD_ZERO(readable);
            return 0;
        }
        const std::int64_t rest = std::min<std::int64_t>({end - now, due < 0 ? 5000000 : due - now, 5000000});
        const timespec pause{0, rest};
        nanosleep(&pause, nullptr);
    }
}

} // extern "C"
