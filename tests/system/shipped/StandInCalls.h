#pragma once

#include <atomic>
#include <cstdint>
#include <cstdio>

#include <dlfcn.h>
#include <sys/select.h>
#include <sys/types.h>

#include "DeviceScene.h"

/// The C library's function of a name, looked up at its first call: other libraries open
/// files before this one's constructors run.
template <typename Function>
class Real
{
public:
    constexpr explicit Real(const char* name) : m_name(name) {}

    template <typename... Arguments>
    auto operator()(Arguments... arguments)
    {
        Function* function = m_function.load(std::memory_order_relaxed);
        if (!function) {
            function = reinterpret_cast<Function*>(dlsym(RTLD_NEXT, m_name));
            m_function.store(function, std::memory_order_relaxed);
        }
        return function(arguments...);
    }

private:
    const char* m_name;
    std::atomic<Function*> m_function{nullptr};
};

extern Real<int(const char*, int, ...)> realOpen;
extern Real<int(const char*, int, ...)> realOpen64;
extern Real<FILE*(const char*, const char*)> realFopen;
extern Real<FILE*(const char*, const char*)> realFopen64;
extern Real<int(int)> realClose;
extern Real<ssize_t(int, void*, size_t)> realRead;
extern Real<ssize_t(int, const void*, size_t)> realWrite;
extern Real<int(int, unsigned long, ...)> realIoctl;
extern Real<int(int, int, ...)> realFcntl;
extern Real<void*(void*, size_t, int, int, int, off_t)> realMmap;
extern Real<int(void*, size_t)> realMunmap;
extern Real<int(int, fd_set*, fd_set*, fd_set*, timeval*)> realSelect;
extern Real<long(long, ...)> realSyscall;

/// Null in a process that is not to be stood in for.
DeviceScene* scene();
/// Writes a line with the time into $STAND_IN_LOG.
__attribute__((format(printf, 1, 2))) void record(const char* format, ...);
