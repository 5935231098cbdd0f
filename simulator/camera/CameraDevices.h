#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/DeviceCalls.h"
#include "simulator/camera/CallTrace.h"
#include "simulator/camera/CameraFaults.h"
#include "simulator/camera/CaptureDevice.h"
#include "simulator/camera/SensorRegisters.h"

/// What the camera's devices are like, whatever they show.
struct CameraDeviceParameters
{
    SensorParameters sensor;
    CaptureParameters capture;
    /// Whether pause() returns at once instead of sleeping.
    bool instantPauses = false;
    /// How long a wait for a frame lasts at most, whatever the program asks for.
    std::optional<std::chrono::milliseconds> longestWait;
    /// Calls that the trace remembers, and whether waits and pauses are among them.
    std::size_t traceLimit = 20000;
    bool traceWaits = false;
};

/// The clock that frames are counted by; any thread, never decreasing, in real time.
using InstrumentClock = std::function<InstrumentTime()>;

/// The camera in place of the machine's devices, "/dev/video0" and "/dev/i2c-1", with the
/// pictures of whatever source it is given. Behaves as the kernel does: results, errno,
/// ownership of buffers. One difference: a capture device that was opened to block answers
/// EAGAIN as well. Bus calls do not wait for a picture that is being drawn. Any thread.
class CameraDevices : public DeviceCalls
{
public:
    /// What has happened since the construction.
    struct Counters
    {
        std::uint64_t framesDelivered = 0;
        std::uint64_t framesReturned = 0; ///< taken in by the program, and given back
        std::uint64_t copies = 0;
        std::uint64_t drawings = 0;
        std::uint64_t fileSystemSyncs = 0;
        std::uint64_t pauses = 0;
        std::uint64_t paused_us = 0;
    };

    /// The source is asked for pictures on the thread that uses the capture device, and outlives
    /// the devices. Without a clock, frames are counted from the construction on.
    CameraDevices(const CameraDeviceParameters& parameters, FrameSource& source, InstrumentClock clock = {});

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

    /// Waits, in real time, until the program has taken in that many frames beyond those already
    /// delivered; false when the time is up or nothing streams. Not on the program's capture
    /// thread, which it waits for.
    bool waitForFreshFrames(unsigned count, std::chrono::milliseconds timeout);
    /// The same until Counters::framesReturned has reached a total.
    bool waitForReturnedFrames(std::uint64_t total, std::chrono::milliseconds timeout);

    /// Wakes whoever waits for a frame: the clock was moved on, or the source has a new frame.
    void clockMoved();
    /// The descriptor that the next open() gives, and those after it from there on: the kernel
    /// begins with 0 where a program has no standard input.
    void setNextDescriptor(int descriptor);
    /// Changes how the driver answers from the next request on.
    void setCapture(const CaptureParameters& parameters);

    /// The faults in force, and the calls so far.
    CameraFaults& faults() { return m_faults; }
    CallTrace& trace() { return m_trace; }
    const CallTrace& trace() const { return m_trace; }
    Counters counters() const;
    /// Descriptors, of one device or of both, and mappings that the program holds at the moment.
    std::size_t openDescriptors() const;
    std::size_t openDescriptors(const std::string& path) const;
    std::size_t openMappings() const;
    bool isStreaming() const;
    /// The sensor's settings, and one of its registers, at this moment.
    SensorSettings sensorSettings() const;
    std::uint8_t sensorRegister(std::uint16_t address) const;

protected:
    /// While this lock is held, no picture is drawn.
    std::unique_lock<std::mutex> holdPictures() const { return std::unique_lock<std::mutex>(m_captureMutex); }

private:
    enum class Device { Video, Bus };

    struct Descriptor
    {
        Device device = Device::Video;
        int flags = 0;
        /// Bus only: the device address that transfers go to.
        unsigned long busAddress = 0;
        /// Video only: opened before the camera was unplugged, and dead since then.
        bool unplugged = false;
    };

    struct Mapping
    {
        std::shared_ptr<FrameMemory> memory;
        std::size_t length = 0;
        unsigned buffer = 0;
    };

    int perform(TracedCall call, const std::function<CallEnd(TracedCall&)>& answer);
    bool findDescriptor(int fd, Descriptor& found);
    static const char* pathOf(Device device);
    std::optional<std::size_t> beginTransfer(int fd, std::size_t count, int& error);
    int requestError(unsigned long request, void* argument);
    void waitForChange(std::unique_lock<std::mutex>& lock, InstrumentTime deadline);

    const bool m_instantPauses;
    const std::optional<std::chrono::milliseconds> m_longestWait;
    const InstrumentClock m_clock;
    CameraFaults m_faults;
    CallTrace m_trace;

    /// Guards the descriptors.
    mutable std::mutex m_descriptorMutex;
    std::map<int, Descriptor> m_descriptors;
    int m_nextDescriptor;

    /// Guards the sensor; held for the length of a register access only.
    mutable std::mutex m_sensorMutex;
    SensorRegisters m_sensor;

    /// Guards the capture device, all that draws for it, and the mappings; held while a
    /// frame is drawn. Taken before m_sensorMutex, never after it.
    mutable std::mutex m_captureMutex;
    std::condition_variable m_captureChanged;
    CaptureDevice m_capture;
    std::map<void*, Mapping> m_mappings;
    int m_waiting = 0;

    std::atomic<std::uint64_t> m_fileSystemSyncs{0};
    std::atomic<std::uint64_t> m_pauses{0};
    std::atomic<std::uint64_t> m_paused_us{0};
};
