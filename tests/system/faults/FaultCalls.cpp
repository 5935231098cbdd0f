// Preloaded into the shipped program, before the stand-in for its devices: counts every call
// that the program, and the libraries that it uses, make on a device or file of the instrument,
// has one of them fail as the plan says, and lets time pass faster. Every other call goes on.

// The C library's checked calls would be defined in its headers, under the names defined here.
#undef _FORTIFY_SOURCE

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "FaultPlan.h"
#include "simulator/camera/CameraFaults.h"

namespace {

constexpr const char* kProgram = "orla-verifier";

/// Null in every other process: what the program starts inherits this library.
FaultPlan* plan()
{
    static FaultPlan* const mapped = []() -> FaultPlan* {
        const char* const path = std::getenv("FAULT_PLAN");
        if (!path || std::strcmp(program_invocation_short_name, kProgram) != 0)
            return nullptr;
        // Not by these names: the functions below ask for the plan.
        const auto open = reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_NEXT, "open"));
        const auto mmap =
            reinterpret_cast<void* (*)(void*, size_t, int, int, int, off_t)>(dlsym(RTLD_NEXT, "mmap"));
        const int fd = open(path, O_RDWR | O_CLOEXEC);
        void* const memory =
            fd < 0 ? MAP_FAILED : mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        return memory == MAP_FAILED ? nullptr : static_cast<FaultPlan*>(memory);
    }();
    return mapped;
}

// ---- what a call is made on ----

struct Place
{
    const char* start;
    const char* name;
};

constexpr Place kPlaces[] = {
    {"/dev/video0", "capture device"},
    {"/dev/i2c-1", "sensor bus"},
    {"/dev/ttyS2", "serial line"},
    {"/var/lock/LCK", "serial lock"},
    {"/run/lock/LCK", "serial lock"},
    {"/dev/disk/by-uuid/", "disk link"},
    {"/dev/disk/by-uuid", "disk links"},
    {"/etc/mtab", "mount table"},
    {"/sys/module/disp/", "display parameter"},
    {"/opt/ORLA3/bin/", "password script"},
    {"/mnt", "disk"},
};
constexpr const char* kScratchInMemory = "/dev/shm/orla-scratch-";
constexpr const char* kSettingsFolders[] = {"/opt/ORLA3/conf", "/root/Orla2"};
constexpr const char* kCommands[] = {"mount", "umount"};

bool endsWith(const std::string& text, const char* end)
{
    const std::size_t length = std::strlen(end);
    return text.size() >= length && text.compare(text.size() - length, length, end) == 0;
}

std::string settingsTarget(const std::string& name)
{
    constexpr const char* kScratchEnd = ".saving";
    if (name.empty())
        return "settings folder";
    const std::size_t scratch = name.find(kScratchEnd);
    // The three files that are written key by key go the same ways.
    const bool isMain = name.find("ORLA3.ini") != std::string::npos;
    std::string file = isMain ? "the main file" : "another settings file";
    if (scratch == std::string::npos)
        return file;
    const std::string inside = name.substr(scratch + std::strlen(kScratchEnd));
    if (inside.empty() || inside == "/")
        return "scratch folder of " + file;
    return (endsWith(inside, ".lock") ? "scratch lock of " : "scratch file of ") + file;
}

std::string diskTarget(const std::string& path, const std::string& name)
{
    if (endsWith(path, ".tiff"))
        return "autofocus frame";
    if (endsWith(path, ".csv"))
        return "autofocus table";
    if (endsWith(path, ".tif"))
        return "captured frame";
    return path.find("/ORLA-II") == std::string::npos ? name : "autofocus folder";
}

/// The folder in which the stand-ins for mount and umount lie: the first of the search path.
const std::string& commandFolder()
{
    static const std::string folder = [] {
        const char* const path = std::getenv("PATH");
        const std::string folders(path ? path : "");
        return folders.substr(0, folders.find(':')) + '/';
    }();
    return folder;
}

/// What a path of the instrument is called; empty for any other path.
std::string target(const char* path)
{
    const std::string text(path ? path : "");
    for (const char* folder : kSettingsFolders)
        if (text.rfind(folder, 0) == 0) {
            const std::string rest = text.substr(std::strlen(folder));
            return settingsTarget(rest.empty() ? rest : rest.substr(1));
        }
    // The same copy in memory, for whichever file.
    if (text.rfind(kScratchInMemory, 0) == 0) {
        if (text.find('/', std::strlen(kScratchInMemory)) == std::string::npos)
            return "scratch folder in memory";
        return endsWith(text, ".lock") ? "scratch lock in memory" : "scratch file in memory";
    }
    for (const Place& place : kPlaces)
        if (text.rfind(place.start, 0) == 0)
            return std::strcmp(place.name, "disk") == 0 ? diskTarget(text, place.name) : place.name;
    for (const char* command : kCommands)
        if (text == commandFolder() + command)
            return command;
    return {};
}

// What the program's descriptors and mappings lead to, empty where nobody cares.
using TargetName = std::array<char, 64>;
std::array<TargetName, 1024> descriptors;

struct Mapping
{
    std::atomic<void*> address;
    TargetName name;
};
std::array<Mapping, 256> mappings;

std::string target(int fd)
{
    return fd >= 0 && std::size_t(fd) < descriptors.size() ? descriptors[std::size_t(fd)].data() : "";
}

void setName(TargetName& name, const std::string& text)
{
    name.fill('\0');
    text.copy(name.data(), name.size() - 1);
}

int named(int fd, const std::string& text)
{
    if (fd >= 0 && std::size_t(fd) < descriptors.size())
        setName(descriptors[std::size_t(fd)], text);
    return fd;
}

std::string target(const pollfd* list, nfds_t count)
{
    const std::string first = count > 0 ? target(list[0].fd) : std::string();
    const bool alike =
        std::all_of(list, list + count, [&first](const pollfd& entry) { return target(entry.fd) == first; });
    return alike && !first.empty() ? first : "event loop";
}

// ---- counting and failing ----

/// One call under way. What it calls in its turn, as the stand-in for the devices does, is not
/// the program's.
class Call
{
public:
    Call(const std::string& name, const std::string& target)
    {
        if (s_depth++ == 0 && !target.empty() && plan())
            m_error = strike(name + ": " + target);
        if (m_error != 0)
            errno = m_error;
    }
    ~Call() { --s_depth; }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    bool fails() const { return m_error != 0; }
    int error() const { return m_error; }

    /// What runs while this lives is not the program's. For the calling thread.
    struct Uncounted
    {
        Uncounted() { ++s_depth; }
        ~Uncounted() { --s_depth; }
        Uncounted(const Uncounted&) = delete;
        Uncounted& operator=(const Uncounted&) = delete;
    };

private:
    static int strike(const std::string& call)
    {
        FaultPlan& shared = *plan();
        const int turn = count(shared, call);
        if (call != shared.call.data() || turn != shared.turn)
            return 0;
        ++shared.struck;
        return shared.error;
    }

    static int count(FaultPlan& shared, const std::string& call)
    {
        while (shared.locked.exchange(1) != 0)
            sched_yield();
        const auto end = shared.counts.begin() + shared.callCount;
        const auto found = std::find_if(shared.counts.begin(), end, [&call](const FaultPlan::Count& entry) {
            return call == entry.call.data();
        });
        int turn = 0;
        if (found != shared.counts.end()) {
            if (found == end) {
                call.copy(found->call.data(), found->call.size() - 1);
                ++shared.callCount;
            }
            turn = ++found->calls;
        }
        shared.locked = 0;
        return turn;
    }

    static thread_local int s_depth;
    int m_error = 0;
};

thread_local int Call::s_depth = 0;

// ---- time ----

/// Pauses up to this long are a thread's round, which costs the same at any speed.
constexpr long kShortPause_ns = 20000000;
constexpr long kSecond_ns = 1000000000;

long long nanoseconds(const timespec& time)
{
    return static_cast<long long>(time.tv_sec) * kSecond_ns + time.tv_nsec;
}

timespec fromNanoseconds(long long time_ns)
{
    return {static_cast<time_t>(time_ns / kSecond_ns), static_cast<long>(time_ns % kSecond_ns)};
}

int speed()
{
    return plan() && plan()->speed > 1 ? plan()->speed : 1;
}

timespec realNow()
{
    static const auto real =
        reinterpret_cast<int (*)(clockid_t, timespec*)>(dlsym(RTLD_NEXT, "clock_gettime"));
    timespec now{};
    real(CLOCK_MONOTONIC, &now);
    return now;
}

long long clockStart_ns()
{
    static const long long start_ns = nanoseconds(realNow());
    return start_ns;
}

timespec shortened(const timespec& duration)
{
    const long long duration_ns = nanoseconds(duration);
    return duration_ns <= kShortPause_ns ? duration : fromNanoseconds(duration_ns / speed());
}

int shortened_ms(int timeout_ms)
{
    return timeout_ms <= 0 ? timeout_ms : (timeout_ms + speed() - 1) / speed();
}

/// The real moment of one of the program's own monotonic clock; another clock's as it is.
timespec realMoment(const timespec& moment)
{
    const long long start_ns = clockStart_ns();
    const long long since_ns = nanoseconds(moment) - start_ns;
    constexpr long long kLongestUptime_ns = 1000000000LL * kSecond_ns;
    if (since_ns <= 0 || nanoseconds(moment) > kLongestUptime_ns)
        return moment;
    return fromNanoseconds(start_ns + since_ns / speed());
}

template <class Function>
Function next(const char* name)
{
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

using OpenFunction = int (*)(const char*, int, ...);

int openNamed(const OpenFunction real, const char* path, int flags, int mode)
{
    const std::string name = target(path);
    const Call call("open", name);
    return call.fails() ? -1 : named(real(path, flags, mode), name);
}

// A name in a folder that is open, as a whole path.
std::string pathBelow(int folder, const char* name)
{
    if (folder == AT_FDCWD || name == nullptr || name[0] == '/')
        return name == nullptr ? "" : name;
    char path[512];
    const std::string link = "/proc/self/fd/" + std::to_string(folder);
    const long length = syscall(SYS_readlinkat, AT_FDCWD, link.c_str(), path, sizeof path);
    return std::string(path, length > 0 ? static_cast<std::size_t>(length) : 0) + '/' + name;
}

using OpenBelowFunction = int (*)(int, const char*, int, ...);

int openNamedBelow(const OpenBelowFunction real, int folder, const char* path, int flags, int mode)
{
    const std::string name = target(pathBelow(folder, path).c_str());
    const Call call("open", name);
    return call.fails() ? -1 : named(real(folder, path, flags, mode), name);
}

using ControlFunction = int (*)(int, int, ...);

int controlNamed(const ControlFunction real, int fd, int command, void* argument)
{
    const Call call("fcntl", target(fd));
    return call.fails() ? -1 : real(fd, command, argument);
}

std::FILE* openStream(std::FILE* (*real)(const char*, const char*), const char* path, const char* mode)
{
    const std::string name = target(path);
    const Call call("fopen", name);
    std::FILE* const file = call.fails() ? nullptr : real(path, mode);
    if (file)
        named(fileno(file), name);
    return file;
}

/// Closes what a descriptor belongs to. A close that fails has closed nevertheless.
template <class Open>
int closed(int (*real)(Open), const char* name, Open open, int fd, int failed)
{
    const Call call(name, target(fd));
    named(fd, {});
    const int result = real(open);
    if (!call.fails())
        return result;
    errno = call.error();
    return failed;
}

const char* controlName(unsigned long request)
{
    switch (request) {
    case TIOCEXCL:
        return "ioctl TIOCEXCL";
    case TIOCNXCL:
        return "ioctl TIOCNXCL";
    case TIOCMGET:
        return "ioctl TIOCMGET";
    case FIONREAD:
        return "ioctl FIONREAD";
    default:
        return nullptr;
    }
}

std::string ioctlName(unsigned long request)
{
    const char* const known = controlName(request);
    return known ? known : "ioctl " + requestName(request & 0xFFFFFFFFUL);
}

} // namespace

// A result type and a list of parameters do not stand in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)

/// Defines a call of the C library, counted under a name, that fails where it is told to, and goes
/// on otherwise. THROWS: noexcept where the headers declare it to throw nothing, else empty.
#define FAILING_AS(CALL, RESULT, NAME, PARAMETERS, THROWS, ARGUMENTS, TARGET, FAILED)                        \
    RESULT NAME PARAMETERS THROWS                                                                            \
    {                                                                                                        \
        static const auto real = next<RESULT(*) PARAMETERS>(#NAME);                                          \
        const Call call(CALL, TARGET);                                                                       \
        return call.fails() ? FAILED : real ARGUMENTS;                                                       \
    }
#define FAILING(RESULT, NAME, PARAMETERS, ARGUMENTS, TARGET, FAILED)                                         \
    FAILING_AS(#NAME, RESULT, NAME, PARAMETERS, , ARGUMENTS, TARGET, FAILED)
#define FAILING_QUIETLY(RESULT, NAME, PARAMETERS, ARGUMENTS, TARGET, FAILED)                                 \
    FAILING_AS(#NAME, RESULT, NAME, PARAMETERS, noexcept, ARGUMENTS, TARGET, FAILED)
/// The same of one that opens a file, with the mode behind its named parameters.
#define OPENING(NAME, OPEN, PARAMETERS, ...)                                                                 \
    int NAME PARAMETERS                                                                                      \
    {                                                                                                        \
        va_list arguments;                                                                                   \
        va_start(arguments, flags);                                                                          \
        const int mode = va_arg(arguments, int); /* there or not: as the kernel, which ignores it */         \
        va_end(arguments);                                                                                   \
        static const auto real = next<decltype(&NAME)>(#NAME);                                               \
        return OPEN(real, __VA_ARGS__, mode);                                                                \
    }

// NOLINTEND(bugprone-macro-parentheses)

extern "C" {

// ---- names ----

OPENING(open, openNamed, (const char* path, int flags, ...), path, flags)
OPENING(open64, openNamed, (const char* path, int flags, ...), path, flags)
OPENING(openat, openNamedBelow, (int folder, const char* path, int flags, ...), folder, path, flags)
OPENING(openat64, openNamedBelow, (int folder, const char* path, int flags, ...), folder, path, flags)

FILE* fopen(const char* path, const char* mode)
{
    static const auto real = next<FILE* (*)(const char*, const char*)>("fopen");
    return openStream(real, path, mode);
}

FILE* fopen64(const char* path, const char* mode)
{
    static const auto real = next<FILE* (*)(const char*, const char*)>("fopen64");
    return openStream(real, path, mode);
}

DIR* opendir(const char* path)
{
    static const auto real = next<DIR* (*)(const char*)>("opendir");
    const std::string name = target(path);
    const Call call("opendir", name);
    DIR* const folder = call.fails() ? nullptr : real(path);
    if (folder)
        named(dirfd(folder), name);
    return folder;
}

int statx(int folder, const char* path, int flags, unsigned mask, struct statx* result) noexcept
{
    static const auto real = next<int (*)(int, const char*, int, unsigned, struct statx*)>("statx");
    const Call call("statx", *path ? target(path) : target(folder));
    return call.fails() ? -1 : real(folder, path, flags, mask, result);
}

FAILING_QUIETLY(int, stat, (const char* path, struct stat* result), (path, result), target(path), -1)
FAILING_QUIETLY(int, fstatat, (int folder, const char* path, struct stat* result, int flags),
                (folder, path, result, flags), target(pathBelow(folder, path).c_str()), -1)
FAILING_QUIETLY(int, stat64, (const char* path, struct stat64* result), (path, result), target(path), -1)
FAILING_QUIETLY(int, lstat64, (const char* path, struct stat64* result), (path, result), target(path), -1)
FAILING_QUIETLY(int, access, (const char* path, int mode), (path, mode), target(path), -1)
FAILING_QUIETLY(ssize_t, readlink, (const char* path, char* buffer, size_t size), (path, buffer, size),
                target(path), -1)
FAILING_QUIETLY(char*, realpath, (const char* path, char* result), (path, result), target(path), nullptr)
FAILING_QUIETLY(int, mkdir, (const char* path, mode_t mode), (path, mode), target(path), -1)
FAILING_QUIETLY(int, mkdirat, (int folder, const char* path, mode_t mode), (folder, path, mode),
                target(pathBelow(folder, path).c_str()), -1)
FAILING_QUIETLY(int, rmdir, (const char* path), (path), target(path), -1)
FAILING_QUIETLY(int, unlink, (const char* path), (path), target(path), -1)
FAILING_QUIETLY(int, rename, (const char* from, const char* to), (from, to), target(to), -1)
FAILING_QUIETLY(int, renameat2,
                (int fromFolder, const char* from, int toFolder, const char* to, unsigned flags),
                (fromFolder, from, toFolder, to, flags), target(to), -1)
FAILING_QUIETLY(int, link, (const char* from, const char* to), (from, to), target(to), -1)
FAILING_QUIETLY(int, linkat, (int fromFolder, const char* from, int toFolder, const char* to, int flags),
                (fromFolder, from, toFolder, to, flags), target(to), -1)
FAILING_QUIETLY(int, chmod, (const char* path, mode_t mode), (path, mode), target(path), -1)
FAILING_QUIETLY(int, inotify_add_watch, (int fd, const char* path, uint32_t mask), (fd, path, mask),
                target(path), -1)

// ---- descriptors ----

int close(int fd)
{
    static const auto real = next<int (*)(int)>("close");
    return closed(real, "close", fd, fd, -1);
}

int fclose(FILE* file)
{
    static const auto real = next<int (*)(FILE*)>("fclose");
    return closed(real, "fclose", file, fileno(file), EOF);
}

int closedir(DIR* folder)
{
    static const auto real = next<int (*)(DIR*)>("closedir");
    return closed(real, "closedir", folder, dirfd(folder), -1);
}

FAILING(ssize_t, read, (int fd, void* buffer, size_t count), (fd, buffer, count), target(fd), -1)
FAILING(ssize_t, write, (int fd, const void* buffer, size_t count), (fd, buffer, count), target(fd), -1)
FAILING(int, fsync, (int fd), (fd), target(fd), -1)
FAILING(int, fdatasync, (int fd), (fd), target(fd), -1)
FAILING(struct dirent64*, readdir64, (DIR * folder), (folder), target(dirfd(folder)), nullptr)
FAILING_QUIETLY(int, fstat, (int fd, struct stat* result), (fd, result), target(fd), -1)
FAILING_QUIETLY(int, fstat64, (int fd, struct stat64* result), (fd, result), target(fd), -1)
FAILING_QUIETLY(off_t, lseek, (int fd, off_t offset, int from), (fd, offset, from), target(fd), -1)
FAILING_QUIETLY(off64_t, lseek64, (int fd, off64_t offset, int from), (fd, offset, from), target(fd), -1)
FAILING_QUIETLY(int, fchmod, (int fd, mode_t mode), (fd, mode), target(fd), -1)
FAILING_QUIETLY(int, fchown, (int fd, uid_t owner, gid_t group), (fd, owner, group), target(fd), -1)
FAILING_QUIETLY(int, futimens, (int fd, const timespec times[2]), (fd, times), target(fd), -1)
#if __TIMESIZE == 32
// What stat(), fstat() and futimens() are where a source asks for file times beyond 2038.
FAILING_AS("stat", int, __stat64_time64, (const char* path, void* result), noexcept, (path, result),
           target(path), -1)
FAILING_AS("fstat", int, __fstat64_time64, (int fd, void* result), noexcept, (fd, result), target(fd), -1)
FAILING_AS("futimens", int, __futimens64, (int fd, const void* times), noexcept, (fd, times), target(fd), -1)
#endif
FAILING_QUIETLY(int, ftruncate, (int fd, off_t length), (fd, length), target(fd), -1)
FAILING_QUIETLY(int, ftruncate64, (int fd, off64_t length), (fd, length), target(fd), -1)
FAILING_QUIETLY(int, flock, (int fd, int operation), (fd, operation), target(fd), -1)
FAILING_QUIETLY(int, tcgetattr, (int fd, termios* settings), (fd, settings), target(fd), -1)
FAILING_QUIETLY(int, tcsetattr, (int fd, int when, const termios* settings), (fd, when, settings), target(fd),
                -1)
FAILING_QUIETLY(int, tcflush, (int fd, int queue), (fd, queue), target(fd), -1)

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    static const auto real = next<int (*)(int, unsigned long, ...)>("ioctl");
    const Call call(ioctlName(request), target(fd));
    return call.fails() ? -1 : real(fd, request, argument);
}

int fcntl(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    static const auto real = next<ControlFunction>("fcntl");
    return controlNamed(real, fd, command, argument);
}

int fcntl64(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    static const auto real = next<ControlFunction>("fcntl64");
    return controlNamed(real, fd, command, argument);
}

// The capture device's requests come this way, around ioctl(); a child process does as well.
long syscall(long number, ...) noexcept
{
    va_list list;
    va_start(list, number);
    long arguments[6];
    for (long& argument : arguments)
        argument = va_arg(list, long);
    va_end(list);
    static const auto real = next<long (*)(long, ...)>("syscall");
    const auto pass = [&] {
        return real(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4],
                    arguments[5]);
    };
    if (number == SYS_ioctl) {
        const Call call(ioctlName(static_cast<unsigned long>(arguments[1])), target(int(arguments[0])));
        return call.fails() ? -1 : pass();
    }
    if (number == SYS_clone) {
        {
            const Call call("clone", "process");
            if (call.fails())
                return -1;
        }
        return pass();
    }
    return pass();
}

// ---- descriptors without a name ----

int pipe2(int ends[2], int flags) noexcept
{
    static const auto real = next<int (*)(int*, int)>("pipe2");
    const Call call("pipe2", "pipe");
    if (call.fails() || real(ends, flags) != 0)
        return -1;
    named(ends[0], "pipe");
    named(ends[1], "pipe");
    return 0;
}

int inotify_init1(int flags) noexcept
{
    static const auto real = next<int (*)(int)>("inotify_init1");
    const Call call("inotify_init1", "watch of the disk links");
    return call.fails() ? -1 : named(real(flags), "watch of the disk links");
}

int dup2(int from, int to) noexcept
{
    static const auto real = next<int (*)(int, int)>("dup2");
    const std::string name = target(from);
    const Call call("dup2", name);
    return call.fails() ? -1 : named(real(from, to), name);
}

int eventfd(unsigned value, int flags) noexcept
{
    static const auto real = next<int (*)(unsigned, int)>("eventfd");
    const Call call("eventfd", "thread");
    return call.fails() ? -1 : real(value, flags);
}

// ---- memory ----

void* mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset) noexcept
{
    static const auto real = next<void* (*)(void*, size_t, int, int, int, off_t)>("mmap");
    const std::string name = target(fd);
    const Call call("mmap", name);
    if (call.fails())
        return MAP_FAILED;
    void* const mapped = real(address, length, protection, flags, fd, offset);
    if (name.empty() || mapped == MAP_FAILED)
        return mapped;
    for (Mapping& mapping : mappings) {
        void* none = nullptr;
        if (mapping.address.compare_exchange_strong(none, mapped)) {
            setName(mapping.name, name);
            break;
        }
    }
    return mapped;
}

FAILING_QUIETLY(void*, mmap64,
                (void* address, size_t length, int protection, int flags, int fd, off64_t offset),
                (address, length, protection, flags, fd, offset), target(fd), MAP_FAILED)

int munmap(void* address, size_t length) noexcept
{
    static const auto real = next<int (*)(void*, size_t)>("munmap");
    for (Mapping& mapping : mappings) {
        if (!address || mapping.address != address)
            continue;
        const Call call("munmap", mapping.name.data());
        if (call.fails())
            return -1;
        mapping.address = nullptr;
        return real(address, length);
    }
    return real(address, length);
}

// ---- processes and threads ----

pid_t fork() noexcept
{
    static const auto real = next<pid_t (*)()>("fork");
    {
        const Call call("fork", "process");
        if (call.fails())
            return -1;
    }
    return real();
}

FAILING_QUIETLY(int, execv, (const char* path, char* const arguments[]), (path, arguments), target(path), -1)
FAILING_QUIETLY(int, execve, (const char* path, char* const arguments[], char* const environment[]),
                (path, arguments, environment), target(path), -1)
FAILING(int, waitid, (idtype_t type, id_t id, siginfo_t* result, int options), (type, id, result, options),
        "process", -1)
FAILING_QUIETLY(pid_t, wait4, (pid_t id, int* status, int options, rusage* usage),
                (id, status, options, usage), "process", -1)
FAILING(pid_t, waitpid, (pid_t id, int* status, int options), (id, status, options), "process", -1)

// A child's end comes at any moment, mostly in the middle of a call that counts: what the library
// does about it would count on some days only.
int sigaction(int signal, const struct sigaction* action, struct sigaction* before) noexcept
{
    static const auto real = next<int (*)(int, const struct sigaction*, struct sigaction*)>("sigaction");
    static void (*handle)(int, siginfo_t*, void*) = nullptr;
    if (signal != SIGCHLD || action == nullptr || (action->sa_flags & SA_SIGINFO) == 0)
        return real(signal, action, before);
    handle = action->sa_sigaction;
    struct sigaction uncounted = *action;
    uncounted.sa_sigaction = [](int number, siginfo_t* information, void* context) {
        const Call::Uncounted library;
        handle(number, information, context);
    };
    return real(signal, &uncounted, before);
}

// A signal to the process -1 is one to every process of the machine. It is told, and held back.
int kill(pid_t process, int signal) noexcept
{
    static const auto real = next<int (*)(pid_t, int)>("kill");
    if (!plan() || process > 0)
        return real(process, signal);
    ++plan()->signalsToAll;
    errno = EPERM;
    return -1;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*work)(void*),
                   void* argument) noexcept
{
    static const auto real =
        next<int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>("pthread_create");
    const Call call("pthread_create", "thread");
    return call.fails() ? call.error() : real(thread, attributes, work, argument);
}

// ---- waiting ----

int select(int count, fd_set* readable, fd_set* writable, fd_set* special, timeval* timeout)
{
    static const auto real = next<int (*)(int, fd_set*, fd_set*, fd_set*, timeval*)>("select");
    std::string name;
    for (int fd = 0; readable && fd < count && name.empty(); ++fd)
        name = FD_ISSET(fd, readable) ? target(fd) : "";
    const Call call("select", name);
    // The stand-in for the capture device waits by the program's clock.
    return call.fails() ? -1 : real(count, readable, writable, special, timeout);
}

int poll(pollfd* list, nfds_t count, int timeout_ms)
{
    static const auto real = next<int (*)(pollfd*, nfds_t, int)>("poll");
    const Call call("poll", target(list, count));
    return call.fails() ? -1 : real(list, count, shortened_ms(timeout_ms));
}

int ppoll(pollfd* list, nfds_t count, const timespec* timeout, const sigset_t* signals)
{
    static const auto real = next<int (*)(pollfd*, nfds_t, const timespec*, const sigset_t*)>("ppoll");
    const Call call("ppoll", target(list, count));
    if (call.fails())
        return -1;
    const timespec wait = timeout ? fromNanoseconds(nanoseconds(*timeout) / speed()) : timespec{};
    return real(list, count, timeout ? &wait : nullptr, signals);
}

int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    static const auto real = next<int (*)(clockid_t, timespec*)>("clock_gettime");
    const int result = real(clock, time);
    if (result != 0 || speed() == 1 || (clock != CLOCK_MONOTONIC && clock != CLOCK_MONOTONIC_COARSE))
        return result;
    const long long start_ns = clockStart_ns();
    *time = fromNanoseconds(start_ns + (nanoseconds(*time) - start_ns) * speed());
    return 0;
}

int nanosleep(const timespec* duration, timespec* rest)
{
    static const auto real = next<int (*)(const timespec*, timespec*)>("nanosleep");
    const timespec pause = shortened(*duration);
    return real(&pause, rest);
}

int usleep(useconds_t duration_us)
{
    const timespec pause = fromNanoseconds(1000LL * duration_us);
    return nanosleep(&pause, nullptr);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* moment)
{
    static const auto real =
        next<int (*)(pthread_cond_t*, pthread_mutex_t*, const timespec*)>("pthread_cond_timedwait");
    const timespec until = realMoment(*moment);
    return real(condition, mutex, &until);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* moment)
{
    static const auto real = next<int (*)(pthread_cond_t*, pthread_mutex_t*, clockid_t, const timespec*)>(
        "pthread_cond_clockwait");
    const timespec until = realMoment(*moment);
    return real(condition, mutex, clock, &until);
}

} // extern "C"
