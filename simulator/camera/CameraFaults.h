#pragma once

#include <cerrno>
#include <cstdint>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <vector>

/// What can go wrong with the camera and its bus.
enum class CameraFault {
    NoVideoDevice,
    NoBus,
    CallFails,
    MappingFails,
    BusNack,
    BusShort,
    StalledStream,
    ShortFrames,
    OversizedFrames,
    MoreBuffers,
    FewerBuffers,
    LostFrames,
    Unplugged
};

/// A fault's name on the command line, what may follow it, and what it does.
struct CameraFaultText
{
    CameraFault fault;
    const char* name;
    const char* arguments;
    const char* text;
};

/// Every fault, in the order in which a listing shows them.
inline constexpr CameraFaultText kCameraFaults[] = {
    {CameraFault::NoVideoDevice, "no-camera", "", "/dev/video0 is missing"},
    {CameraFault::NoBus, "no-i2c", "", "/dev/i2c-1 is missing"},
    {CameraFault::CallFails, "ioctl", ":REQUEST[:ERRNO[:N]]",
     "an ioctl such as VIDIOC_QBUF fails, with EIO unless given, at its N-th call or at every call"},
    {CameraFault::MappingFails, "mmap", "[:N]", "mapping a buffer fails, at the N-th call or at every call"},
    {CameraFault::BusNack, "i2c-nack", "[:N]", "the sensor does not acknowledge the N-th transfer, or any"},
    {CameraFault::BusShort, "i2c-short", "[:N]", "the N-th transfer, or every one, is one byte short"},
    {CameraFault::StalledStream, "stall", "", "no frame arrives"},
    {CameraFault::ShortFrames, "short-frames", "", "frames hold half of their bytes"},
    {CameraFault::OversizedFrames, "oversized-frames", "", "frames claim more bytes than their buffer has"},
    {CameraFault::MoreBuffers, "more-buffers", "", "eight buffers are granted"},
    {CameraFault::FewerBuffers, "fewer-buffers", "", "two buffers are granted"},
    {CameraFault::LostFrames, "lost-frames", "[:N]", "the N-th frame, or every one, never arrives"},
    {CameraFault::Unplugged, "unplugged", "", "the camera goes away: every call on it answers ENODEV"},
};

/// One fault that is switched on.
struct CameraFaultRule
{
    CameraFault fault;
    /// Which call fails, counted from 1 since the fault was switched on; 0: every call.
    int nthCall = 0;
    /// CallFails only: which call (callName()), and what it returns instead of having an effect:
    /// -1 and an errno, or a count that is too small.
    std::string call{};
    int error = EIO;
    int result = -1;
    /// Strikes one of so many calls, at random; 0: as nthCall says.
    int oneIn = 0;
};

/// How a call ends: its result, and the errno, which matters only with the result -1.
struct CallEnd
{
    int result = 0;
    int error = 0;
};

/// The faults that are on. Any thread.
class CameraFaults
{
public:
    /// Switches a fault on, beside those that are on already.
    void enable(const CameraFaultRule& rule);
    /// Switches a fault on by its command line form, "name", "name:N" or, for ioctls,
    /// "ioctl:VIDIOC_QBUF[:EIO[:N]]"; false where that names no fault, request or errno. In
    /// place of N, "1/N" is one of N at random.
    bool enable(const std::string& text);
    /// Switches one fault, or all of them, off.
    void disable(CameraFault fault);
    void clear();
    /// Chooses when those strike that strike at random.
    void setSeed(std::uint32_t seed);

    /// Whether a lasting fault is on.
    bool isOn(CameraFault fault) const;
    /// Counts one call of a fault's kind. Whether it has to fail.
    bool strikes(CameraFault fault);
    /// Counts one call of that name. How it has to fail, if it has to.
    std::optional<CallEnd> strikesCall(const std::string& call);

private:
    struct Counted
    {
        CameraFaultRule rule;
        int calls = 0;
    };

    std::optional<CallEnd> struckBy(CameraFault fault, const std::string& call);

    mutable std::mutex m_mutex;
    std::vector<Counted> m_rules;
    std::mt19937 m_chance{1};
};

/// A request's name in the kernel's headers, such as "VIDIOC_QBUF"; its number in
/// hexadecimal where it is none that the camera knows. Any thread.
std::string requestName(unsigned long request);
