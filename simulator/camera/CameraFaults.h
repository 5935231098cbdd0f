#pragma once

#include <array>
#include <cerrno>
#include <mutex>
#include <optional>
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
const std::array<CameraFaultText, 12>& cameraFaultTexts();

/// One fault that is switched on.
struct CameraFaultRule
{
    CameraFault fault;
    /// Which call it strikes, counted from 1 since it was switched on; 0 strikes every call.
    int nthCall = 0;
    /// CallFails only: which call (callName()), and what it returns instead of having an effect:
    /// -1 and an errno, or a count that is too small.
    std::string call{};
    int error = EIO;
    int result = -1;
};

/// How a call ends: what it returns, and the errno, which counts only beside -1.
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
    /// "ioctl:VIDIOC_QBUF[:EIO[:N]]"; false where that names no fault, request or errno.
    bool enable(const std::string& text);
    /// Switches one fault, or all of them, off.
    void disable(CameraFault fault);
    void clear();

    /// Whether a lasting fault is on.
    bool isOn(CameraFault fault) const;
    /// Counts one call of a fault's kind and tells whether it is struck.
    bool strikes(CameraFault fault);
    /// Counts one call of that name and tells how it has to fail, if it has to.
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
};

/// A request's name in the kernel's headers, such as "VIDIOC_QBUF"; its number in
/// hexadecimal where it is none that the camera knows.
std::string requestName(unsigned long request);
