#include "StandInCalls.h"

#include <cstdarg>
#include <cstdlib>
#include <ctime>

#include <fcntl.h>
#include <sys/mman.h>

Real<int(const char*, int, ...)> realOpen("open");
Real<int(const char*, int, ...)> realOpen64("open64");
Real<FILE*(const char*, const char*)> realFopen("fopen");
Real<FILE*(const char*, const char*)> realFopen64("fopen64");
Real<int(int)> realClose("close");
Real<ssize_t(int, void*, size_t)> realRead("read");
Real<ssize_t(int, const void*, size_t)> realWrite("write");
Real<int(int, unsigned long, ...)> realIoctl("ioctl");
Real<int(int, int, ...)> realFcntl("fcntl");
Real<void*(void*, size_t, int, int, int, off_t)> realMmap("mmap");
Real<int(void*, size_t)> realMunmap("munmap");
Real<int(int, fd_set*, fd_set*, fd_set*, timeval*)> realSelect("select");
Real<long(long, ...)> realSyscall("syscall");

DeviceScene* scene()
{
    static DeviceScene* const mapped = [] {
        const char* const path = getenv("STAND_IN_SCENE");
        const int fd = path ? realOpen(path, O_RDWR | O_CLOEXEC) : -1;
        void* const memory =
            fd < 0 ? MAP_FAILED
                   : realMmap(nullptr, sizeof(DeviceScene), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        if (fd >= 0)
            realClose(fd);
        return memory == MAP_FAILED ? nullptr : static_cast<DeviceScene*>(memory);
    }();
    return mapped;
}

void record(const char* format, ...)
{
    char text[480];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the check overlooks the va_start above
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    static const int log = [] {
        const char* const path = getenv("STAND_IN_LOG");
        return path ? realOpen(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600) : -1;
    }();
    if (log < 0)
        return;
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC, &time);
    char line[512];
    const int length = snprintf(line, sizeof line, "%lld.%06ld %s\n", static_cast<long long>(time.tv_sec),
                                time.tv_nsec / 1000, text);
    [[maybe_unused]] const ssize_t written = realWrite(log, line, std::size_t(length));
}
