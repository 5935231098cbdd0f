#pragma once

#include <cstddef>

#include <sys/types.h>

/// Everything that the program asks of a character device, call by call.
///
/// The shipped program uses the system's own calls (SystemDeviceCalls). Another
/// implementation can stand in for the machine as long as it behaves like the
/// kernel: same return values, same errno, same blocking, same buffer ownership.
/// Any thread: the GUI thread (I2C, mode changes) and the capture thread (waitReadable,
/// captureIoctl) call at the same time.
class DeviceCalls
{
public:
    virtual ~DeviceCalls() = default;

    /// open(2) of a fixed instrument path such as "/dev/video0"; -1 and errno on failure.
    virtual int open(const char* path, int flags) = 0;
    /// close(2).
    virtual int close(int fd) = 0;
    /// read(2): bytes read, or -1 and errno.
    virtual ssize_t read(int fd, void* buffer, std::size_t count) = 0;
    /// write(2): bytes written, or -1 and errno.
    virtual ssize_t write(int fd, const void* buffer, std::size_t count) = 0;
    /// fcntl(2) with an integer argument.
    virtual int fcntl(int fd, int command, int argument) = 0;
    /// ioctl(2) with an integer argument, as the I2C bus takes it.
    virtual int ioctl(int fd, unsigned long request, unsigned long argument) = 0;
    /// The capture device's ioctl; argument is the request's record.
    virtual int captureIoctl(int fd, unsigned long request, void* argument) = 0;
    /// mmap(2) at an address of the system's choice; MAP_FAILED and errno on failure.
    virtual void* mmap(std::size_t length, int protection, int flags, int fd, off_t offset) = 0;
    /// munmap(2).
    virtual int munmap(void* address, std::size_t length) = 0;
    /// Waits until fd is readable: above 0 when it is, 0 after timeout_ms, -1 and errno on error.
    virtual int waitReadable(int fd, int timeout_ms) = 0;
    /// Suspends the caller for the pause that a device needs, in microseconds.
    virtual void pause(unsigned int duration_us) = 0;
    /// sync(2): flushes the file systems, so that a disk can be pulled.
    virtual void syncFileSystems() = 0;
};

/// The calls in force: the system's own unless others were installed. Any thread.
DeviceCalls& deviceCalls();

/// Puts other calls in force (nullptr: the system's own again) and returns those that
/// were installed before, nullptr for the system's. The caller keeps ownership and must
/// keep them alive while a device is open. GUI thread, before any device is opened.
DeviceCalls* installDeviceCalls(DeviceCalls* calls);
