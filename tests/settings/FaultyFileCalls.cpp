#include "tests/settings/FaultyFileCalls.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>

namespace {

using FaultyFileCalls::Fault;

struct State
{
    Fault fault = Fault::None;
    int number = 0;
    int errorNumber = 0;
    bool lasting = false;
    QByteArray kind; // with the blank behind it; empty for every
    int count = 0;
    QByteArrayList calls;
    QByteArrayList inMemory; // made since it was armed
};

State& state()
{
    static State instance;
    return instance;
}

// Other threads, such as the test library's watchdog, are not counted. Plain data: the
// calls below are used before the static objects exist.
thread_local bool g_armed = false;

template <class Function>
Function original(const char* name)
{
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

QByteArray pathOf(int fd)
{
    char link[64];
    char path[4096];
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", fd);
    const ssize_t size = ::readlink(link, path, sizeof path);
    return size > 0 ? QByteArray(path, static_cast<int>(size)) : QByteArray("?");
}

// Where settings are worked on. Its names are random, but all children of a test go on from the
// same random numbers: what one left behind, each after it would have to find its way around.
constexpr char kMemory[] = "/dev/shm/orla-scratch-";

void clearMemory()
{
    g_armed = false;
    for (const QByteArray& folder : state().inMemory)
        QDir(QFile::decodeName(folder)).removeRecursively();
}

[[noreturn]] void cutThePower()
{
    clearMemory();
    ::_exit(FaultyFileCalls::kCutStatus);
}

// The fault that the present call has. Does not return where the process is cut.
Fault enter(const QByteArray& description)
{
    State& now = state();
    now.calls.append(description);
    if (!description.startsWith(now.kind))
        return Fault::None;
    ++now.count;
    const bool hit = now.lasting ? now.count >= now.number : now.count == now.number;
    if (!hit)
        return Fault::None;
    if (now.fault == Fault::Cut)
        cutThePower();
    return now.fault;
}

// Runs a call that can only work or fail.
template <class Call>
int guarded(const QByteArray& description, Call call)
{
    const Fault fault = enter(description);
    if (fault == Fault::CutHalf)
        cutThePower();
    if (fault == Fault::Error) {
        errno = state().errorNumber;
        return -1;
    }
    return call();
}

using OpenFunction = int (*)(const char*, int, ...);

int guardedOpen(const char* name, const char* path, int flags, mode_t mode)
{
    const auto call = original<OpenFunction>(name);
    const bool changes = (flags & (O_CREAT | O_TRUNC | O_WRONLY | O_RDWR)) != 0;
    if (!g_armed || (!changes && state().kind != "read "))
        return call(path, flags, mode);
    return guarded(QByteArray(changes ? "open " : "read ") + path, [&] { return call(path, flags, mode); });
}

mode_t modeArgument(int flags, va_list arguments)
{
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the check overlooks the callers' va_start
    return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

} // namespace

extern "C" {

int open(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeArgument(flags, arguments);
    va_end(arguments);
    return guardedOpen("open", path, flags, mode);
}

int open64(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = modeArgument(flags, arguments);
    va_end(arguments);
    return guardedOpen("open64", path, flags, mode);
}

// By another name: the library's header may define one that looks after the size.
ssize_t readFile(int fd, void* bytes, size_t count) __asm__("read");
ssize_t readFile(int fd, void* bytes, size_t count)
{
    const auto call = original<ssize_t (*)(int, void*, size_t)>("read");
    if (!g_armed || state().kind != "take " || enter("take " + pathOf(fd)) != Fault::Error)
        return call(fd, bytes, count);
    errno = state().errorNumber;
    return -1;
}

ssize_t write(int fd, const void* bytes, size_t count)
{
    const auto call = original<ssize_t (*)(int, const void*, size_t)>("write");
    if (!g_armed || fd <= STDERR_FILENO)
        return call(fd, bytes, count);
    switch (enter("write " + pathOf(fd))) {
    case Fault::Error:
        errno = state().errorNumber;
        return -1;
    case Fault::CutHalf:
        call(fd, bytes, count / 2);
        cutThePower();
    case Fault::Half:
        return call(fd, bytes, count > 1 ? count / 2 : count);
    default:
        return call(fd, bytes, count);
    }
}

int fsync(int fd)
{
    const auto call = original<int (*)(int)>("fsync");
    return g_armed ? guarded("fsync " + pathOf(fd), [&] { return call(fd); }) : call(fd);
}

int fdatasync(int fd)
{
    const auto call = original<int (*)(int)>("fdatasync");
    return g_armed ? guarded("fdatasync " + pathOf(fd), [&] { return call(fd); }) : call(fd);
}

int close(int fd)
{
    const auto call = original<int (*)(int)>("close");
    if (!g_armed)
        return call(fd);
    // A close that fails has closed nevertheless.
    return guarded("close " + pathOf(fd), [&] { return 0; }) | call(fd);
}

int rename(const char* from, const char* to) noexcept
{
    const auto call = original<int (*)(const char*, const char*)>("rename");
    return g_armed ? guarded(QByteArray("rename ") + from + ' ' + to, [&] { return call(from, to); })
                   : call(from, to);
}

int linkat(int fromDirectory, const char* from, int toDirectory, const char* to, int flags) noexcept
{
    const auto call = original<int (*)(int, const char*, int, const char*, int)>("linkat");
    const auto run = [&] { return call(fromDirectory, from, toDirectory, to, flags); };
    return g_armed ? guarded(QByteArray("linkat ") + from + ' ' + to, run) : run();
}

int unlink(const char* path) noexcept
{
    const auto call = original<int (*)(const char*)>("unlink");
    return g_armed ? guarded(QByteArray("unlink ") + path, [&] { return call(path); }) : call(path);
}

int mkdir(const char* path, mode_t mode) noexcept
{
    const auto call = original<int (*)(const char*, mode_t)>("mkdir");
    if (!g_armed)
        return call(path, mode);
    const int result = guarded(QByteArray("mkdir ") + path, [&] { return call(path, mode); });
    if (result == 0 && QByteArray(path).startsWith(kMemory))
        state().inMemory.append(path);
    return result;
}

int rmdir(const char* path) noexcept
{
    const auto call = original<int (*)(const char*)>("rmdir");
    return g_armed ? guarded(QByteArray("rmdir ") + path, [&] { return call(path); }) : call(path);
}

int ftruncate64(int fd, off64_t length) noexcept
{
    const auto call = original<int (*)(int, off64_t)>("ftruncate64");
    return g_armed ? guarded("ftruncate " + pathOf(fd), [&] { return call(fd, length); }) : call(fd, length);
}

int fstat(int fd, struct stat* file) noexcept
{
    const auto call = original<int (*)(int, struct stat*)>("fstat");
    return g_armed ? guarded("fstat " + pathOf(fd), [&] { return call(fd, file); }) : call(fd, file);
}

int fchmod(int fd, mode_t mode) noexcept
{
    const auto call = original<int (*)(int, mode_t)>("fchmod");
    return g_armed ? guarded("fchmod " + pathOf(fd), [&] { return call(fd, mode); }) : call(fd, mode);
}

int fchown(int fd, uid_t owner, gid_t group) noexcept
{
    const auto call = original<int (*)(int, uid_t, gid_t)>("fchown");
    return g_armed ? guarded("fchown " + pathOf(fd), [&] { return call(fd, owner, group); })
                   : call(fd, owner, group);
}

int futimens(int fd, const timespec times[2]) noexcept
{
    const auto call = original<int (*)(int, const timespec*)>("futimens");
    return g_armed ? guarded("futimens " + pathOf(fd), [&] { return call(fd, times); }) : call(fd, times);
}

#ifndef __LP64__
// What fstat and futimens are called where wide times were asked for on a machine whose own are not.
int wideFstat(int fd, void* file) noexcept __asm__("__fstat64_time64");
int wideFstat(int fd, void* file) noexcept
{
    const auto call = original<int (*)(int, void*)>("__fstat64_time64");
    return g_armed ? guarded("fstat " + pathOf(fd), [&] { return call(fd, file); }) : call(fd, file);
}
int wideFutimens(int fd, const void* times) noexcept __asm__("__futimens64");
int wideFutimens(int fd, const void* times) noexcept
{
    const auto call = original<int (*)(int, const void*)>("__futimens64");
    return g_armed ? guarded("futimens " + pathOf(fd), [&] { return call(fd, times); }) : call(fd, times);
}
#endif
}

namespace FaultyFileCalls {

void arm(Fault fault, int number, int errorNumber, bool lasting, const QByteArray& kind)
{
    state() = State{fault, number, errorNumber, lasting, kind.isEmpty() ? kind : kind + ' ', 0, {}, {}};
    g_armed = true;
}

int disarm()
{
    clearMemory();
    return state().count;
}

QByteArrayList calls()
{
    return state().calls;
}

} // namespace FaultyFileCalls
