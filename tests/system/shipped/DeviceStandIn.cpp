// Preloaded into the shipped program: leads its calls on the capture device and the sensor's
// bus to the simulator's, and writes a line for each of the program's main thread into
// $STAND_IN_LOG. $STAND_IN_FRAME_RATE, if there is one, is the frames a second of every mode. Every other
// call, and every other descriptor, goes on to the C library.

// The C library's checked calls would be defined in its headers, under the names defined here.
#undef _FORTIFY_SOURCE

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sstream>
#include <string>

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "DeviceScene.h"
#include "simulator/camera/CameraDevices.h"

namespace {

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

/// Null in a process that is not to be stood in for.
DeviceScene* scene()
{
    static DeviceScene* const mapped = [] {
        const char* const path = std::getenv("STAND_IN_SCENE");
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

/// Writes a line with the time into $STAND_IN_LOG.
__attribute__((format(printf, 1, 2))) void record(const char* format, ...)
{
    char text[480];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the check overlooks the va_start above
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    static const int log = [] {
        const char* const path = std::getenv("STAND_IN_LOG");
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

constexpr const char* kVideo = "/dev/video0";
constexpr const char* kBus = "/dev/i2c-1";

/// Four fields in red, green, blue and grey, in each a grid of bright squares whose height
/// over the ground is the contrast; two dark discs of 5M size where the target is looked for.
class ScenePictures : public FrameSource
{
public:
    std::uint64_t look(InstrumentTime /*time*/, const PictureMode& mode) override
    {
        m_width = mode.width_px;
        m_height = mode.height_px;
        m_contrast = scene()->contrast;
        return static_cast<std::uint64_t>(m_contrast) + 1;
    }
    void draw(std::uint8_t* yuyv) override
    {
        // Rows that are alike are copied: a large picture takes no longer than its bytes.
        const std::size_t rowBytes = std::size_t(m_width) * 2;
        std::array<const std::uint8_t*, 4> drawn{};
        for (int y = 0; y < m_height; ++y, yuyv += rowBytes) {
            if (m_width == kTargetWidth_px && std::abs(y - kTargetRow_px) <= kGreyRadius_px) {
                drawRow(y, yuyv);
                continue;
            }
            const std::size_t kind = (y < m_height / 2 ? 0 : 2) + std::size_t((y * 48 / m_height) % 2);
            if (drawn[kind])
                std::memcpy(yuyv, drawn[kind], rowBytes);
            else
                drawRow(y, yuyv);
            drawn[kind] = yuyv;
        }
    }

private:
    static constexpr int kTargetWidth_px = 2592;
    static constexpr int kTargetRow_px = 972;
    static constexpr int kGreyRadius_px = 100;
    static constexpr int kDiscRadius_px = 12;

    void drawRow(int y, std::uint8_t* yuyv) const
    {
        constexpr int fields[4][2] = {{90, 240}, {54, 34}, {240, 110}, {128, 128}}; // U, V
        for (int x = 0; x < m_width; ++x) {
            const int field = (x < m_width / 2 ? 0 : 1) + (y < m_height / 2 ? 0 : 2);
            const bool square = (x * 64 / m_width) % 2 && (y * 48 / m_height) % 2;
            int luma = 110 + (square ? m_contrast : 0);
            int tint = fields[field][x % 2];
            for (const int left : {796, 1796}) {
                const int distance2 = (x - left) * (x - left) + (y - kTargetRow_px) * (y - kTargetRow_px);
                if (m_width == kTargetWidth_px && distance2 <= kGreyRadius_px * kGreyRadius_px)
                    tint = 128; // grey around the disc, so that it alone is dark
                if (m_width == kTargetWidth_px && distance2 <= kDiscRadius_px * kDiscRadius_px)
                    luma = 16;
            }
            *yuyv++ = static_cast<std::uint8_t>(luma);
            *yuyv++ = static_cast<std::uint8_t>(tint);
        }
    }

    int m_width = 0;
    int m_height = 0;
    int m_contrast = 0;
};

void recordCall(const TracedCall& call)
{
    const bool ofBus = call.name == kBus || call.kind == CallKind::BusAddress ||
                       call.kind == CallKind::BusWrite || call.kind == CallKind::BusRead;
    if (call.onOwnThread)
        record("%s %s", ofBus ? "i2c" : "video", callLine(call).c_str());
}

CameraDevices& devices()
{
    static ScenePictures pictures;
    static CameraDevices simulated = [] {
        CameraDeviceParameters parameters;
        parameters.capture.formatHeldByBuffers = !scene()->formatIsFree;
        if (const char* const rate = std::getenv("STAND_IN_FRAME_RATE"))
            parameters.capture.framesPerSecond = std::atoi(rate);
        return CameraDevices(parameters, pictures);
    }();
    [[maybe_unused]] static const bool listening = [] {
        simulated.trace().setListener(recordCall);
        return true;
    }();
    static std::atomic<std::int32_t> faultsSeen{0};
    const std::int32_t changed = scene()->faultsChanged;
    if (faultsSeen.exchange(changed) != changed) {
        simulated.faults().clear();
        std::istringstream names(scene()->faults.data());
        for (std::string name; names >> name;)
            if (!simulated.faults().enable(name))
                record("no such fault: %s", name.c_str());
    }
    return simulated;
}

// The simulated descriptor behind each of the program's own, 0 where there is none.
std::array<std::atomic<int>, 1024> descriptors;
std::array<std::atomic<void*>, 64> mappings;

int simulated(int fd)
{
    return fd >= 0 && std::size_t(fd) < descriptors.size() ? descriptors[std::size_t(fd)].load() : 0;
}

int captureControl(int descriptor, unsigned long request, void* argument)
{
    const int result = devices().captureIoctl(descriptor, request, argument);
    if (std::uint32_t(request) == VIDIOC_QBUF)
        scene()->framesTaken = std::int32_t(devices().counters().framesReturned);
    return result;
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

/// A descriptor for one of the devices; -2 for any other path.
int openNode(const char* path, int flags)
{
    if ((std::strcmp(path, kVideo) != 0 && std::strcmp(path, kBus) != 0) || !scene()) {
        recordFile(path, flags);
        return -2;
    }
    const int descriptor = devices().open(path, flags);
    if (descriptor < 0)
        return -1;
    const int fd = realOpen("/dev/null", flags);
    if (fd >= 0 && std::size_t(fd) < descriptors.size())
        descriptors[std::size_t(fd)] = descriptor;
    return fd;
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
    if (const int descriptor = simulated(fd)) {
        descriptors[std::size_t(fd)] = 0;
        devices().close(descriptor);
    }
    return realClose(fd);
}

ssize_t read(int fd, void* buffer, size_t count)
{
    const int descriptor = simulated(fd);
    return descriptor ? devices().read(descriptor, buffer, count) : realRead(fd, buffer, count);
}

ssize_t write(int fd, const void* buffer, size_t count)
{
    const int descriptor = simulated(fd);
    if (!descriptor)
        return realWrite(fd, buffer, count);
    const ssize_t written = devices().write(descriptor, buffer, count);
    if (written > 2) {
        const auto* bytes = static_cast<const std::uint8_t*>(buffer);
        const auto address = static_cast<std::uint16_t>(bytes[0] << 8U | bytes[1]);
        scene()->registers[address] = devices().sensorRegister(address);
    }
    return written;
}

int ioctl(int fd, unsigned long request, ...)
{
    va_list arguments;
    va_start(arguments, request);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    const int descriptor = simulated(fd);
    return descriptor ? devices().ioctl(descriptor, request, static_cast<unsigned long>(argument))
                      : realIoctl(fd, request, argument);
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
    if (const int descriptor = number == SYS_ioctl ? simulated(int(arguments[0])) : 0)
        return captureControl(descriptor, static_cast<unsigned long>(arguments[1]),
                              reinterpret_cast<void*>(arguments[2]));
    return realSyscall(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4],
                       arguments[5]);
}

int fcntl(int fd, int command, ...)
{
    va_list arguments;
    va_start(arguments, command);
    const long argument = va_arg(arguments, long);
    va_end(arguments);
    if (const int descriptor = command == F_SETFD ? simulated(fd) : 0)
        devices().fcntl(descriptor, command, int(argument));
    return realFcntl(fd, command, argument);
}

void* mmap(void* address, size_t length, int protection, int flags, int fd, off_t offset)
{
    const int descriptor = simulated(fd);
    if (!descriptor)
        return realMmap(address, length, protection, flags, fd, offset);
    void* const mapped = devices().mmap(length, protection, flags, descriptor, offset);
    const auto place =
        std::find_if(mappings.begin(), mappings.end(), [](const auto& entry) { return !entry.load(); });
    if (mapped != MAP_FAILED && place != mappings.end())
        *place = mapped;
    return mapped;
}

// The simulated devices unmap their memory in this way themselves, when it is theirs no more.
int munmap(void* address, size_t length)
{
    for (std::atomic<void*>& mapping : mappings) {
        void* mapped = address;
        if (address && mapping.compare_exchange_strong(mapped, nullptr))
            return devices().munmap(address, length);
    }
    return realMunmap(address, length);
}

void sync()
{
    record("sync"); // and no more: the machine's own disks have no part in it
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* special, timeval* timeout)
{
    for (int fd = 0; readable && fd < count; ++fd) {
        const int descriptor = FD_ISSET(fd, readable) ? simulated(fd) : 0;
        if (!descriptor)
            continue;
        const int ready =
            devices().waitReadable(descriptor, int(timeout->tv_sec * 1000 + timeout->tv_usec / 1000));
        if (ready <= 0)
            FD_ZERO(readable);
        return ready;
    }
    return realSelect(count, readable, writable, special, timeout);
}

} // extern "C"
