#include "simulator/camera/CameraDevices.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <linux/i2c-dev.h>
#include <sys/mman.h>

namespace {

// Far above what the system hands out, so that a simulated descriptor that strays into a
// system call is refused instead of reaching a real file.
constexpr int kFirstDescriptor = 100000;
constexpr unsigned long kSensorAddress = 0x3C;
constexpr unsigned long kLargestBusAddress = 0x7F;
constexpr std::size_t kRegisterAddressBytes = 2;
// How soon a wait notices that something other than a frame has changed.
constexpr InstrumentTime kWaitStep{20000};

struct DevicePath
{
    const char* path;
    bool isVideo;
    CameraFault missing;
};

constexpr DevicePath kDevicePaths[] = {
    {"/dev/video0", true, CameraFault::NoVideoDevice},
    {"/dev/i2c-1", false, CameraFault::NoBus},
};

InstrumentClock realTimeFromNow()
{
    const auto start = std::chrono::steady_clock::now();
    return [start] {
        return std::chrono::duration_cast<InstrumentTime>(std::chrono::steady_clock::now() - start);
    };
}

std::string hexadecimal(const std::uint8_t* bytes, std::size_t count)
{
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        std::array<char, 4> digits{};
        std::snprintf(digits.data(), digits.size(), i == 0 ? "%02X" : " %02X", bytes[i]);
        text += digits.data();
    }
    return text;
}

std::string openFlagsText(int flags)
{
    static constexpr const char* kAccess[] = {"read-only", "write-only", "read-write", "no access"};
    std::string text = kAccess[flags & O_ACCMODE];
    text += (flags & O_NONBLOCK) != 0 ? " non-blocking" : "";
    const int others = flags & ~(O_ACCMODE | O_NONBLOCK);
    return others == 0 ? text : text + " " + std::to_string(others);
}

std::string bufferText(const v4l2_buffer& buffer)
{
    return std::to_string(buffer.index) + " type " + std::to_string(buffer.type) + " memory " +
           std::to_string(buffer.memory);
}

std::string hexadecimal(unsigned long number)
{
    std::array<char, 20> digits{};
    std::snprintf(digits.data(), digits.size(), "%02lX", number);
    return digits.data();
}

// What a trace tells of a request's record as the program filled it in.
std::string requestDetails(unsigned long request, const void* argument)
{
    if (argument == nullptr)
        return "nothing";
    switch (request) {
    case VIDIOC_S_FMT: {
        const auto& format = *static_cast<const v4l2_format*>(argument);
        const auto& pix = format.fmt.pix;
        return std::to_string(pix.width) + "x" + std::to_string(pix.height) + " " +
               std::string(reinterpret_cast<const char*>(&pix.pixelformat), sizeof pix.pixelformat) +
               " type " + std::to_string(format.type);
    }
    case VIDIOC_REQBUFS: {
        const auto& buffers = *static_cast<const v4l2_requestbuffers*>(argument);
        return "count " + std::to_string(buffers.count) + " type " + std::to_string(buffers.type) +
               " memory " + std::to_string(buffers.memory);
    }
    case VIDIOC_QUERYBUF:
    case VIDIOC_QBUF:
        return bufferText(*static_cast<const v4l2_buffer*>(argument));
    case VIDIOC_STREAMON:
    case VIDIOC_STREAMOFF:
        return "type " + std::to_string(*static_cast<const int*>(argument));
    default:
        return {};
    }
}

// The end of a call that succeeds (0), or fails with an errno.
CallEnd endWith(int error)
{
    return {error == 0 ? 0 : -1, error};
}

} // namespace

CameraDevices::CameraDevices(const CameraDeviceParameters& parameters, FrameSource& source,
                             InstrumentClock clock)
    : m_instantPauses(parameters.instantPauses),
      m_longestWait(parameters.longestWait),
      m_clock(clock ? std::move(clock) : realTimeFromNow()),
      m_trace(parameters.traceLimit, parameters.traceWaits),
      m_nextDescriptor(kFirstDescriptor),
      m_sensor(parameters.sensor),
      m_capture(parameters.capture, source, m_faults)
{
}

// Answers a call, unless a fault is set on it, traces it and leaves its errno behind.
int CameraDevices::perform(TracedCall call, const std::function<CallEnd(TracedCall&)>& answer)
{
    const std::optional<CallEnd> struck = m_faults.strikesCall(callName(call));
    const CallEnd end = struck ? *struck : answer(call);
    call.error = end.result < 0 ? end.error : 0;
    m_trace.add(std::move(call));
    if (end.result < 0)
        errno = end.error;
    return end.result;
}

int CameraDevices::open(const char* path, int flags)
{
    return perform(
        {CallKind::Open, path, openFlagsText(flags)},
        [&](TracedCall&) -> CallEnd {
            const auto* const device = std::find_if(
                std::begin(kDevicePaths), std::end(kDevicePaths),
                [path](const DevicePath& entry) { return std::strcmp(entry.path, path) == 0; });
            if (device == std::end(kDevicePaths) || m_faults.isOn(device->missing))
                return endWith(ENOENT);
            if (device->isVideo && m_faults.isOn(CameraFault::Unplugged))
                return endWith(ENODEV);
            Descriptor descriptor;
            descriptor.device = device->isVideo ? Device::Video : Device::Bus;
            descriptor.flags = (flags & O_CLOEXEC) != 0 ? FD_CLOEXEC : 0;
            const std::lock_guard<std::mutex> lock(m_descriptorMutex);
            m_descriptors.emplace(m_nextDescriptor, descriptor);
            return {m_nextDescriptor++, 0};
        });
}

int CameraDevices::close(int fd)
{
    Descriptor descriptor;
    const bool known = findDescriptor(fd, descriptor);
    return perform({CallKind::Close, known ? pathOf(descriptor.device) : "?", {}}, [&](TracedCall&) {
        if (!known) {
            m_trace.addMisuse("close of no descriptor");
            return endWith(EBADF);
        }
        bool lastVideo = false;
        {
            const std::lock_guard<std::mutex> lock(m_descriptorMutex);
            m_descriptors.erase(fd);
            lastVideo = descriptor.device == Device::Video &&
                        std::none_of(m_descriptors.begin(), m_descriptors.end(),
                                     [](const auto& entry) { return entry.second.device == Device::Video; });
        }
        if (lastVideo) {
            const std::lock_guard<std::mutex> lock(m_captureMutex);
            m_capture.release();
            m_captureChanged.notify_all();
        }
        return endWith(0);
    });
}

int CameraDevices::fcntl(int fd, int command, int argument)
{
    const bool sets = command == F_SETFD;
    return perform({CallKind::Fcntl, sets ? "F_SETFD" : std::to_string(command),
                    sets && argument == FD_CLOEXEC ? "FD_CLOEXEC" : std::to_string(argument)},
                   [&](TracedCall&) -> CallEnd {
                       const std::lock_guard<std::mutex> lock(m_descriptorMutex);
                       const auto found = m_descriptors.find(fd);
                       if (found == m_descriptors.end() || (!sets && command != F_GETFD))
                           return endWith(found == m_descriptors.end() ? EBADF : EINVAL);
                       found->second.flags = sets ? argument & FD_CLOEXEC : found->second.flags;
                       return {sets ? 0 : found->second.flags, 0};
                   });
}

// How many bytes of a transfer get through; nothing, and the errno, if the transfer fails.
std::optional<std::size_t> CameraDevices::beginTransfer(int fd, std::size_t count, int& error)
{
    Descriptor descriptor;
    error = 0;
    if (!findDescriptor(fd, descriptor))
        error = EBADF;
    else if (descriptor.device == Device::Video)
        error = EINVAL;
    else if (m_faults.strikes(CameraFault::BusNack) || descriptor.busAddress != kSensorAddress)
        error = EREMOTEIO;
    if (error != 0)
        return std::nullopt;
    return count > 0 && m_faults.strikes(CameraFault::BusShort) ? count - 1 : count;
}

ssize_t CameraDevices::read(int fd, void* buffer, std::size_t count)
{
    return perform(
        {CallKind::BusRead, std::to_string(count), {}},
        [&](TracedCall& call) -> CallEnd {
            int error = 0;
            const std::optional<std::size_t> transferred = beginTransfer(fd, count, error);
            if (!transferred)
                return endWith(error);
            auto* const bytes = static_cast<std::uint8_t*>(buffer);
            {
                const std::lock_guard<std::mutex> lock(m_sensorMutex);
                std::fill_n(bytes, *transferred, m_sensor.read());
            }
            call.details = hexadecimal(bytes, *transferred);
            return {static_cast<int>(*transferred), 0};
        });
}

ssize_t CameraDevices::write(int fd, const void* buffer, std::size_t count)
{
    const auto* const bytes = static_cast<const std::uint8_t*>(buffer);
    return perform({CallKind::BusWrite, {}, hexadecimal(bytes, count)}, [&](TracedCall&) -> CallEnd {
        int error = 0;
        const std::optional<std::size_t> transferred = beginTransfer(fd, count, error);
        if (!transferred)
            return endWith(error);
        // An incomplete address changes nothing.
        if (*transferred >= kRegisterAddressBytes) {
            const auto address = static_cast<std::uint16_t>(bytes[0] << 8U | bytes[1]);
            const std::lock_guard<std::mutex> lock(m_sensorMutex);
            m_sensor.setPointer(address);
            for (std::size_t i = kRegisterAddressBytes; i < *transferred; ++i)
                m_sensor.write(static_cast<std::uint16_t>(address + i - kRegisterAddressBytes), bytes[i]);
        }
        return {static_cast<int>(*transferred), 0};
    });
}

int CameraDevices::ioctl(int fd, unsigned long request, unsigned long argument)
{
    Descriptor descriptor;
    const bool known = findDescriptor(fd, descriptor);
    if (known && descriptor.device == Device::Video)
        return captureIoctl(fd, request, reinterpret_cast<void*>(argument));
    return perform({CallKind::BusAddress, requestName(request), hexadecimal(argument)}, [&](TracedCall&) {
        if (!known)
            return endWith(EBADF);
        if (request != I2C_SLAVE_FORCE)
            return endWith(ENOTTY);
        if (argument > kLargestBusAddress)
            return endWith(EINVAL);
        const std::lock_guard<std::mutex> lock(m_descriptorMutex);
        const auto found = m_descriptors.find(fd);
        if (found != m_descriptors.end())
            found->second.busAddress = argument;
        return endWith(0);
    });
}

int CameraDevices::captureIoctl(int fd, unsigned long request, void* argument)
{
    // The kernel looks at 32 bits; a request that went through an int comes sign-extended.
    request &= 0xFFFFFFFFUL;
    return perform({CallKind::Request, requestName(request), requestDetails(request, argument)},
                   [&](TracedCall&) {
                       Descriptor descriptor;
                       if (!findDescriptor(fd, descriptor))
                           return endWith(EBADF);
                       if (descriptor.device != Device::Video)
                           return endWith(ENOTTY);
                       return endWith(descriptor.unplugged ? ENODEV : requestError(request, argument));
                   });
}

int CameraDevices::requestError(unsigned long request, void* argument)
{
    const std::lock_guard<std::mutex> lock(m_captureMutex);
    if (request == VIDIOC_STREAMOFF && m_waiting > 0)
        m_trace.addMisuse("stream stopped while a thread waits for its frames");
    const int error = m_capture.handle(request, argument, m_clock());
    if (error == ENOTTY)
        m_trace.addMisuse("unknown request");
    if (error == 0 && request == VIDIOC_DQBUF &&
        (static_cast<const v4l2_buffer*>(argument)->flags & V4L2_BUF_FLAG_MAPPED) == 0)
        m_trace.addMisuse("streaming into a buffer that is not mapped");
    m_captureChanged.notify_all();
    return error;
}

// Waits until the next frame, a change by another thread or the deadline, but never long: a
// fault that is switched on or off wakes nobody.
void CameraDevices::waitForChange(std::unique_lock<std::mutex>& lock, InstrumentTime deadline)
{
    const InstrumentTime now = m_clock();
    InstrumentTime wake = std::min(deadline, now + kWaitStep);
    if (const std::optional<InstrumentTime> frame = m_capture.nextFrameTime())
        wake = std::min(wake, *frame);
    m_captureChanged.wait_for(lock, std::max(wake - now, InstrumentTime::zero()));
}

void CameraDevices::setNextDescriptor(int descriptor)
{
    const std::lock_guard<std::mutex> lock(m_descriptorMutex);
    m_nextDescriptor = descriptor;
}

void CameraDevices::setCapture(const CaptureParameters& parameters)
{
    const std::lock_guard<std::mutex> lock(m_captureMutex);
    m_capture.setParameters(parameters);
}

bool CameraDevices::waitForFreshFrames(unsigned count, std::chrono::milliseconds timeout)
{
    return waitForReturnedFrames(counters().framesDelivered + count, timeout);
}

bool CameraDevices::waitForReturnedFrames(std::uint64_t total, std::chrono::milliseconds timeout)
{
    std::unique_lock<std::mutex> lock(m_captureMutex);
    const auto taken = [&] { return !m_capture.isStreaming() || m_capture.framesReturned() >= total; };
    return m_captureChanged.wait_for(lock, timeout, taken) && m_capture.isStreaming();
}

void CameraDevices::clockMoved()
{
    const std::lock_guard<std::mutex> lock(m_captureMutex);
    m_captureChanged.notify_all();
}

int CameraDevices::waitReadable(int fd, int timeout_ms)
{
    return perform(
        {CallKind::Wait, {}, std::to_string(timeout_ms)},
        [&](TracedCall&) -> CallEnd {
            Descriptor descriptor;
            if (!findDescriptor(fd, descriptor))
                return endWith(EBADF);
            // Without anything to wait for it is readable: the next request fails and says why.
            if (descriptor.device != Device::Video || descriptor.unplugged)
                return {1, 0};
            const std::chrono::milliseconds timeout(timeout_ms);
            const InstrumentTime deadline = m_clock() + std::min(timeout, m_longestWait.value_or(timeout));
            std::unique_lock<std::mutex> lock(m_captureMutex);
            ++m_waiting;
            bool inTime = true;
            while (!m_capture.readable(m_clock()) && !m_faults.isOn(CameraFault::Unplugged) && inTime) {
                inTime = m_clock() < deadline;
                if (inTime)
                    waitForChange(lock, deadline);
            }
            --m_waiting;
            return {inTime ? 1 : 0, 0};
        });
}

void* CameraDevices::mmap(std::size_t length, int protection, int flags, int fd, off_t offset)
{
    void* address = MAP_FAILED;
    const std::lock_guard<std::mutex> lock(m_captureMutex);
    const std::optional<unsigned> buffer = m_capture.bufferAt(offset);
    std::string details =
        (buffer ? std::to_string(*buffer) : "?") + " of " + std::to_string(length) + " bytes";
    if (protection != (PROT_READ | PROT_WRITE) || flags != MAP_SHARED)
        details += " protection " + std::to_string(protection) + " flags " + std::to_string(flags);
    perform({CallKind::Map, {}, details}, [&](TracedCall&) {
        Descriptor descriptor;
        if (!findDescriptor(fd, descriptor))
            return endWith(EBADF);
        if (descriptor.device != Device::Video || descriptor.unplugged)
            return endWith(ENODEV);
        if (m_faults.strikes(CameraFault::MappingFails))
            return endWith(ENOMEM);
        std::shared_ptr<FrameMemory> memory = m_capture.memoryAt(offset, length);
        if (memory == nullptr || (protection & PROT_READ) == 0 || (flags & MAP_SHARED) == 0)
            return endWith(EINVAL);
        void* const place = memory->map(length);
        if (place == nullptr)
            return endWith(ENOMEM);
        address = place;
        m_mappings.emplace(address, Mapping{std::move(memory), length, *buffer});
        return endWith(0);
    });
    return address;
}

int CameraDevices::munmap(void* address, std::size_t length)
{
    const std::lock_guard<std::mutex> lock(m_captureMutex);
    const auto found = m_mappings.find(address);
    const bool known = found != m_mappings.end();
    const std::string details =
        (known ? std::to_string(found->second.buffer) : "?") + " of " + std::to_string(length) + " bytes";
    return perform({CallKind::Unmap, {}, details}, [&](TracedCall&) {
        if (!known || found->second.length != length) {
            m_trace.addMisuse("munmap of no mapping");
            return endWith(EINVAL);
        }
        FrameMemory::unmap(address, length);
        m_mappings.erase(found);
        return endWith(0);
    });
}

void CameraDevices::pause(unsigned int duration_us)
{
    ++m_pauses;
    m_paused_us += duration_us;
    m_trace.add({CallKind::Pause, {}, std::to_string(duration_us)});
    if (m_instantPauses)
        std::this_thread::yield();
    else
        std::this_thread::sleep_for(std::chrono::microseconds(duration_us));
}

void CameraDevices::syncFileSystems()
{
    ++m_fileSystemSyncs;
}

CameraDevices::Counters CameraDevices::counters() const
{
    Counters counters;
    {
        const std::lock_guard<std::mutex> lock(m_captureMutex);
        counters.framesDelivered = m_capture.framesDelivered();
        counters.framesReturned = m_capture.framesReturned();
        counters.copies = m_capture.copies();
        counters.drawings = m_capture.drawings();
    }
    counters.fileSystemSyncs = m_fileSystemSyncs;
    counters.pauses = m_pauses;
    counters.paused_us = m_paused_us;
    return counters;
}

std::size_t CameraDevices::openDescriptors() const
{
    const std::lock_guard<std::mutex> lock(m_descriptorMutex);
    return m_descriptors.size();
}

std::size_t CameraDevices::openDescriptors(const std::string& path) const
{
    const std::lock_guard<std::mutex> lock(m_descriptorMutex);
    return static_cast<std::size_t>(
        std::count_if(m_descriptors.begin(), m_descriptors.end(),
                      [&path](const auto& entry) { return path == pathOf(entry.second.device); }));
}

bool CameraDevices::isStreaming() const
{
    const std::lock_guard<std::mutex> lock(m_captureMutex);
    return m_capture.isStreaming();
}

std::size_t CameraDevices::openMappings() const
{
    const std::lock_guard<std::mutex> lock(m_captureMutex);
    return m_mappings.size();
}

SensorSettings CameraDevices::sensorSettings() const
{
    const std::lock_guard<std::mutex> lock(m_sensorMutex);
    return m_sensor.settings();
}

std::uint8_t CameraDevices::sensorRegister(std::uint16_t address) const
{
    const std::lock_guard<std::mutex> lock(m_sensorMutex);
    return m_sensor.value(address);
}

bool CameraDevices::findDescriptor(int fd, Descriptor& found)
{
    const std::lock_guard<std::mutex> lock(m_descriptorMutex);
    const auto entry = m_descriptors.find(fd);
    if (entry == m_descriptors.end())
        return false;
    if (entry->second.device == Device::Video && m_faults.isOn(CameraFault::Unplugged))
        entry->second.unplugged = true;
    found = entry->second;
    return true;
}

const char* CameraDevices::pathOf(Device device)
{
    return kDevicePaths[device == Device::Video ? 0 : 1].path;
}
