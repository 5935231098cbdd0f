#include "platform/SystemDeviceCalls.h"

#include <cerrno>
#include <chrono>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <unistd.h>

#include <libv4l2.h>

#include "platform/InstrumentPath.h"

int SystemDeviceCalls::open(const char* path, int flags)
{
    // With a mode, which no flag here asks for, a build with checked calls calls open() itself
    // and not the C library's check of it, which tools that watch a program's calls miss.
    constexpr mode_t kNoMode = 0;
    return ::open(instrumentPath(std::string(path)).c_str(), flags, kNoMode);
}

int SystemDeviceCalls::close(int fd)
{
    return ::close(fd);
}

ssize_t SystemDeviceCalls::read(int fd, void* buffer, std::size_t count)
{
    return ::read(fd, buffer, count);
}

ssize_t SystemDeviceCalls::write(int fd, const void* buffer, std::size_t count)
{
    return ::write(fd, buffer, count);
}

int SystemDeviceCalls::fcntl(int fd, int command, int argument)
{
    return ::fcntl(fd, command, argument);
}

int SystemDeviceCalls::ioctl(int fd, unsigned long request, unsigned long argument)
{
    return ::ioctl(fd, request, argument);
}

int SystemDeviceCalls::captureIoctl(int fd, unsigned long request, void* argument)
{
    return ::v4l2_ioctl(fd, request, argument);
}

void* SystemDeviceCalls::mmap(std::size_t length, int protection, int flags, int fd, off_t offset)
{
    return ::mmap(nullptr, length, protection, flags, fd, offset);
}

int SystemDeviceCalls::munmap(void* address, std::size_t length)
{
    return ::munmap(address, length);
}

int SystemDeviceCalls::waitReadable(int fd, int timeout_ms)
{
    // FD_SET beyond its fixed size would write outside the set.
    if (fd < 0 || fd >= FD_SETSIZE) {
        errno = EBADF;
        return -1;
    }
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(fd, &readable);
    timeval timeout{timeout_ms / 1000, (timeout_ms % 1000) * 1000L};
    return ::select(fd + 1, &readable, nullptr, nullptr, &timeout);
}

void SystemDeviceCalls::pause(unsigned int duration_us)
{
    using std::chrono::microseconds;
    using std::chrono::steady_clock;
    const auto end = steady_clock::now() + microseconds(duration_us);
    // A signal ends usleep(), SIGTERM say; what is paused for takes its time all the same.
    auto left = microseconds(duration_us);
    while (left.count() > 0 && ::usleep(static_cast<useconds_t>(left.count())) != 0 && errno == EINTR)
        left = std::chrono::ceil<microseconds>(end - steady_clock::now());
}

void SystemDeviceCalls::syncFileSystems()
{
    ::sync();
}
