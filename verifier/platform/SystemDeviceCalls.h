#pragma once

#include "platform/DeviceCalls.h"

/// The real machine: a thin shell over the system calls and libv4l2.
class SystemDeviceCalls : public DeviceCalls
{
public:
    int open(const char* path, int flags) override;
    int close(int fd) override;
    ssize_t read(int fd, void* buffer, std::size_t count) override;
    ssize_t write(int fd, const void* buffer, std::size_t count) override;
    int fcntl(int fd, int command, int argument) override;
    int ioctl(int fd, unsigned long request, unsigned long argument) override;
    int captureIoctl(int fd, unsigned long request, void* argument) override;
    void* mmap(std::size_t length, int protection, int flags, int fd, off_t offset) override;
    int munmap(void* address, std::size_t length) override;
    int waitReadable(int fd, int timeout_ms) override;
    void pause(unsigned int duration_us) override;
    void syncFileSystems() override;
};
