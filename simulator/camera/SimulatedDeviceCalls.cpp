#include "simulator/camera/SimulatedDeviceCalls.h"

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

int failWith(int error)
{
    errno = error;
    return -1;
}

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

// What a trace tells of a request's record, as it stands after the request.
std::string requestDetails(unsigned long request, const void* argument)
{
    if (argument == nullptr) {
        return {};
    }
    switch (request) {
    case VIDIOC_G_FMT:
    case VIDIOC_TRY_FMT:
    case VIDIOC_S_FMT: {
        const auto& pix = static_cast<const v4l2_format*>(argument)->fmt.pix;
        return std::to_string(pix.width) + "x" + std::to_string(pix.height);
    }
    case VIDIOC_REQBUFS:
        return "count " + std::to_string(static_cast<const v4l2_requestbuffers*>(argument)->count);
    case VIDIOC_QUERYBUF:
    case VIDIOC_QBUF:
    case VIDIOC_DQBUF:
        return "index " + std::to_string(static_cast<const v4l2_buffer*>(argument)->index);
    default:
        return {};
    }
}

} // namespace

SimulatedDeviceCalls::SimulatedDeviceCalls(const SimulatedCameraParameters& parameters,
                                           LightPathSource lightPath, InstrumentClock clock)
    : m_instantPauses(parameters.instantPauses),
      m_clock(clock ? std::move(clock) : realTimeFromNow()),
      m_trace(parameters.traceLimit),
      m_nextDescriptor(kFirstDescriptor),
      m_sensor(parameters.sensor),
      m_optics(parameters.optics, Slide(parameters.slide)),
      m_pictures(parameters.picture, m_optics, std::move(lightPath), [this] { return sensorSettings(); }),
      m_capture(parameters.capture, m_pictures)
{
}

SimulatedDeviceCalls::~SimulatedDeviceCalls() = default;

int SimulatedDeviceCalls::open(const char* path, int flags)
{
    const auto* const device =
        std::find_if(std::begin(kDevicePaths), std::end(kDevicePaths),
                     [path](const DevicePath& entry) { return std::strcmp(entry.path, path) == 0; });
    if (device == std::end(kDevicePaths) || m_faults.isOn(device->missing)) {
        m_trace.add({CallKind::Open, path, {}, ENOENT});
        return failWith(ENOENT);
    }
    if (device->isVideo && m_faults.isOn(CameraFault::Unplugged)) {
        m_trace.add({CallKind::Open, path, {}, ENODEV});
        return failWith(ENODEV);
    }
    m_trace.add({CallKind::Open, path, {}, 0});
    Descriptor descriptor;
    descriptor.device = device->isVideo ? Device::Video : Device::Bus;
    descriptor.statusFlags = flags & ~O_CLOEXEC;
    descriptor.descriptorFlags = (flags & O_CLOEXEC) != 0 ? FD_CLOEXEC : 0;
    const std::lock_guard<std::mutex> lock(m_descriptorMutex);
    m_descriptors.emplace(m_nextDescriptor, descriptor);
    return m_nextDescriptor++;
}

int SimulatedDeviceCalls::close(int fd)
{
    bool lastVideo = false;
    {
        const std::lock_guard<std::mutex> lock(m_descriptorMutex);
        const auto found = m_descriptors.find(fd);
        if (found == m_descriptors.end()) {
            return failWith(EBADF);
        }
        const bool wasVideo = found->second.device == Device::Video;
        m_trace.add({CallKind::Close, pathOf(found->second.device), {}, 0});
        m_descriptors.erase(found);
        lastVideo =
            wasVideo && std::none_of(m_descriptors.begin(), m_descriptors.end(),
                                     [](const auto& entry) { return entry.second.device == Device::Video; });
    }
    if (lastVideo) {
        const std::lock_guard<std::mutex> lock(m_captureMutex);
        m_capture.release();
        m_captureChanged.notify_all();
    }
    return 0;
}

int SimulatedDeviceCalls::fcntl(int fd, int command, int argument)
{
    const std::lock_guard<std::mutex> lock(m_descriptorMutex);
    const auto found = m_descriptors.find(fd);
    if (found == m_descriptors.end()) {
        return failWith(EBADF);
    }
    Descriptor& descriptor = found->second;
    switch (command) {
    case F_GETFD:
        return descriptor.descriptorFlags;
    case F_SETFD:
        descriptor.descriptorFlags = argument & FD_CLOEXEC;
        return 0;
    case F_GETFL:
        return descriptor.statusFlags;
    case F_SETFL:
        descriptor.statusFlags = (descriptor.statusFlags & O_ACCMODE) | (argument & ~O_ACCMODE);
        return 0;
    default:
        return failWith(EINVAL);
    }
}

// How many bytes of a transfer get through; nothing, and the errno, where none does.
std::optional<std::size_t> SimulatedDeviceCalls::beginTransfer(int fd, std::size_t count, int& error)
{
    Descriptor descriptor;
    error = 0;
    if (!findDescriptor(fd, descriptor)) {
        error = EBADF;
    } else if (descriptor.device == Device::Video) {
        error = EINVAL;
    } else if (m_faults.strikes(CameraFault::BusNack) || descriptor.busAddress != kSensorAddress) {
        error = EREMOTEIO;
    }
    if (error != 0) {
        return std::nullopt;
    }
    return count > 0 && m_faults.strikes(CameraFault::BusShort) ? count - 1 : count;
}

ssize_t SimulatedDeviceCalls::read(int fd, void* buffer, std::size_t count)
{
    int error = 0;
    const std::optional<std::size_t> transferred = beginTransfer(fd, count, error);
    if (!transferred) {
        m_trace.add({CallKind::BusRead, {}, {}, error});
        return failWith(error);
    }
    auto* const bytes = static_cast<std::uint8_t*>(buffer);
    {
        const std::lock_guard<std::mutex> lock(m_sensorMutex);
        for (std::size_t i = 0; i < *transferred; ++i) {
            bytes[i] = m_sensor.read();
        }
    }
    m_trace.add({CallKind::BusRead, {}, hexadecimal(bytes, *transferred), 0});
    return static_cast<ssize_t>(*transferred);
}

ssize_t SimulatedDeviceCalls::write(int fd, const void* buffer, std::size_t count)
{
    const auto* const bytes = static_cast<const std::uint8_t*>(buffer);
    int error = 0;
    const std::optional<std::size_t> transferred = beginTransfer(fd, count, error);
    m_trace.add({CallKind::BusWrite, {}, hexadecimal(bytes, count), error});
    if (!transferred) {
        return failWith(error);
    }
    // An address that has not arrived whole changes nothing.
    if (*transferred >= kRegisterAddressBytes) {
        const auto address = static_cast<std::uint16_t>(bytes[0] << 8U | bytes[1]);
        const std::lock_guard<std::mutex> lock(m_sensorMutex);
        m_sensor.setPointer(address);
        for (std::size_t i = kRegisterAddressBytes; i < *transferred; ++i) {
            m_sensor.write(static_cast<std::uint16_t>(address + i - kRegisterAddressBytes), bytes[i]);
        }
    }
    return static_cast<ssize_t>(*transferred);
}

int SimulatedDeviceCalls::ioctl(int fd, unsigned long request, unsigned long argument)
{
    Descriptor descriptor;
    if (!findDescriptor(fd, descriptor)) {
        return failWith(EBADF);
    }
    if (descriptor.device == Device::Video) {
        return captureIoctl(fd, request, reinterpret_cast<void*>(argument));
    }
    int error = 0;
    if (const std::optional<int> struck = m_faults.strikesRequest(request)) {
        error = *struck;
    } else if (request != I2C_SLAVE_FORCE && request != I2C_SLAVE) {
        error = ENOTTY;
    } else if (argument > kLargestBusAddress) {
        error = EINVAL;
    } else if (request == I2C_SLAVE && argument == kSensorAddress) {
        // The capture driver holds the sensor's address; only the forced request may share it.
        error = EBUSY;
    }
    m_trace.add({CallKind::BusAddress, requestName(request), std::to_string(argument), error});
    if (error != 0) {
        return failWith(error);
    }
    const std::lock_guard<std::mutex> lock(m_descriptorMutex);
    const auto found = m_descriptors.find(fd);
    if (found != m_descriptors.end()) {
        found->second.busAddress = argument;
    }
    return 0;
}

int SimulatedDeviceCalls::captureIoctl(int fd, unsigned long request, void* argument)
{
    // The kernel looks at 32 bits; a request that went through an int comes sign-extended.
    request &= 0xFFFFFFFFUL;
    Descriptor descriptor;
    int error = 0;
    if (!findDescriptor(fd, descriptor)) {
        error = EBADF;
    } else if (descriptor.device != Device::Video) {
        error = ENOTTY;
    } else if (descriptor.unplugged) {
        error = ENODEV;
    } else if (const std::optional<int> struck = m_faults.strikesRequest(request)) {
        error = *struck;
    } else {
        error = requestError(request, argument, (descriptor.statusFlags & O_NONBLOCK) != 0);
    }
    m_trace.add({CallKind::Request, requestName(request), requestDetails(request, argument), error});
    return error == 0 ? 0 : failWith(error);
}

// A blocking dequeue waits as long as the stream lasts.
int SimulatedDeviceCalls::requestError(unsigned long request, void* argument, bool nonBlocking)
{
    std::unique_lock<std::mutex> lock(m_captureMutex);
    applyFlaws();
    int error = m_capture.handle(request, argument, m_clock());
    while (error == EAGAIN && request == VIDIOC_DQBUF && !nonBlocking) {
        waitForChange(lock, m_clock() + kWaitStep);
        error = m_capture.handle(request, argument, m_clock());
    }
    m_captureChanged.notify_all();
    return error;
}

void SimulatedDeviceCalls::applyFlaws()
{
    CaptureFlaws flaws;
    flaws.stalled = m_faults.isOn(CameraFault::StalledStream);
    flaws.shortFrames = m_faults.isOn(CameraFault::ShortFrames);
    flaws.oversizedFrames = m_faults.isOn(CameraFault::OversizedFrames);
    flaws.moreBuffers = m_faults.isOn(CameraFault::MoreBuffers);
    flaws.fewerBuffers = m_faults.isOn(CameraFault::FewerBuffers);
    m_capture.setFlaws(flaws);
}

// Until the next frame, a change by another thread or the deadline, but never long: a fault
// that is switched does not wake anybody.
void SimulatedDeviceCalls::waitForChange(std::unique_lock<std::mutex>& lock, InstrumentTime deadline)
{
    const InstrumentTime now = m_clock();
    InstrumentTime wake = std::min(deadline, now + kWaitStep);
    if (const std::optional<InstrumentTime> frame = m_capture.nextFrameTime()) {
        wake = std::min(wake, *frame);
    }
    m_captureChanged.wait_for(lock, std::max(wake - now, InstrumentTime::zero()));
    applyFlaws();
}

bool SimulatedDeviceCalls::waitForFreshFrames(unsigned count, std::chrono::milliseconds timeout)
{
    std::unique_lock<std::mutex> lock(m_captureMutex);
    const std::uint64_t wanted = m_capture.framesDelivered() + count;
    const auto taken = [&] { return !m_capture.isStreaming() || m_capture.framesReturned() >= wanted; };
    return m_captureChanged.wait_for(lock, timeout, taken) && m_capture.isStreaming();
}

void SimulatedDeviceCalls::clockMoved()
{
    const std::lock_guard<std::mutex> lock(m_captureMutex);
    m_captureChanged.notify_all();
}

int SimulatedDeviceCalls::waitReadable(int fd, int timeout_ms)
{
    Descriptor descriptor;
    if (!findDescriptor(fd, descriptor)) {
        return failWith(EBADF);
    }
    // What cannot be waited for is readable: the request that follows tells why.
    if (descriptor.device != Device::Video || descriptor.unplugged) {
        return 1;
    }
    const InstrumentTime deadline = m_clock() + std::chrono::milliseconds(timeout_ms);
    std::unique_lock<std::mutex> lock(m_captureMutex);
    applyFlaws();
    while (!m_capture.readable(m_clock()) && !m_faults.isOn(CameraFault::Unplugged)) {
        if (m_clock() >= deadline) {
            return 0;
        }
        waitForChange(lock, deadline);
    }
    return 1;
}

void* SimulatedDeviceCalls::mmap(std::size_t length, int protection, int flags, int fd, off_t offset)
{
    std::shared_ptr<FrameMemory> memory;
    Descriptor descriptor;
    int error = 0;
    const std::lock_guard<std::mutex> lock(m_captureMutex);
    if (!findDescriptor(fd, descriptor)) {
        error = EBADF;
    } else if (descriptor.device != Device::Video || descriptor.unplugged) {
        error = ENODEV;
    } else if (m_faults.strikes(CameraFault::MappingFails)) {
        error = ENOMEM;
    } else if ((protection & PROT_READ) == 0 || (flags & MAP_SHARED) == 0) {
        error = EINVAL;
    } else {
        memory = m_capture.memoryAt(offset, length);
        error = memory == nullptr ? EINVAL : 0;
    }
    m_trace.add({CallKind::Map, {}, std::to_string(offset), error});
    if (error != 0) {
        errno = error;
        return MAP_FAILED;
    }
    void* const address = memory->data();
    m_mappings.emplace(address, Mapping{std::move(memory), length});
    return address;
}

int SimulatedDeviceCalls::munmap(void* address, std::size_t length)
{
    const std::lock_guard<std::mutex> lock(m_captureMutex);
    const auto found = m_mappings.find(address);
    const bool matches = found != m_mappings.end() && found->second.length == length;
    m_trace.add({CallKind::Unmap, {}, std::to_string(length), matches ? 0 : EINVAL});
    if (!matches) {
        return failWith(EINVAL);
    }
    m_mappings.erase(found);
    return 0;
}

void SimulatedDeviceCalls::pause(unsigned int duration_us)
{
    ++m_pauses;
    m_paused_us += duration_us;
    if (!m_instantPauses) {
        std::this_thread::sleep_for(std::chrono::microseconds(duration_us));
    }
}

void SimulatedDeviceCalls::syncFileSystems()
{
    ++m_fileSystemSyncs;
}

void SimulatedDeviceCalls::changeSlide(const SlideParameters& parameters)
{
    const std::lock_guard<std::mutex> lock(m_captureMutex);
    m_optics.setSlide(Slide(parameters));
    m_pictures.sceneChanged();
}

SimulatedDeviceCalls::Counters SimulatedDeviceCalls::counters() const
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

std::size_t SimulatedDeviceCalls::openDescriptors() const
{
    const std::lock_guard<std::mutex> lock(m_descriptorMutex);
    return m_descriptors.size();
}

std::size_t SimulatedDeviceCalls::openMappings() const
{
    const std::lock_guard<std::mutex> lock(m_captureMutex);
    return m_mappings.size();
}

SensorSettings SimulatedDeviceCalls::sensorSettings() const
{
    const std::lock_guard<std::mutex> lock(m_sensorMutex);
    return m_sensor.settings();
}

std::uint8_t SimulatedDeviceCalls::sensorRegister(std::uint16_t address) const
{
    const std::lock_guard<std::mutex> lock(m_sensorMutex);
    return m_sensor.value(address);
}

bool SimulatedDeviceCalls::findDescriptor(int fd, Descriptor& found)
{
    const std::lock_guard<std::mutex> lock(m_descriptorMutex);
    const auto entry = m_descriptors.find(fd);
    if (entry == m_descriptors.end()) {
        return false;
    }
    if (entry->second.device == Device::Video && m_faults.isOn(CameraFault::Unplugged)) {
        entry->second.unplugged = true;
    }
    found = entry->second;
    return true;
}

const char* SimulatedDeviceCalls::pathOf(Device device)
{
    return kDevicePaths[device == Device::Video ? 0 : 1].path;
}
