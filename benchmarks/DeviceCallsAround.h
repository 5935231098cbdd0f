#pragma once

#include "platform/DeviceCalls.h"

/// Hands every call on to others, which outlive it: what a benchmark looks at, it overrides.
class DeviceCallsAround : public DeviceCalls
{
public:
    explicit DeviceCallsAround(DeviceCalls& calls) : m_calls(calls) {}

    int open(const char* path, int flags) override { return m_calls.open(path, flags); }
    int close(int fd) override { return m_calls.close(fd); }
    ssize_t read(int fd, void* buffer, std::size_t count) override { return m_calls.read(fd, buffer, count); }
    ssize_t write(int fd, const void* buffer, std::size_t count) override
    {
        return m_calls.write(fd, buffer, count);
    }
    int fcntl(int fd, int command, int argument) override { return m_calls.fcntl(fd, command, argument); }
    int ioctl(int fd, unsigned long request, unsigned long argument) override
    {
        return m_calls.ioctl(fd, request, argument);
    }
    int captureIoctl(int fd, unsigned long request, void* argument) override
    {
        return m_calls.captureIoctl(fd, request, argument);
    }
    void* mmap(std::size_t length, int protection, int flags, int fd, off_t offset) override
    {
        return m_calls.mmap(length, protection, flags, fd, offset);
    }
    int munmap(void* address, std::size_t length) override { return m_calls.munmap(address, length); }
    int waitReadable(int fd, int timeout_ms) override { return m_calls.waitReadable(fd, timeout_ms); }
    void pause(unsigned int duration_us) override { m_calls.pause(duration_us); }
    void syncFileSystems() override { m_calls.syncFileSystems(); }

private:
    DeviceCalls& m_calls;
};
