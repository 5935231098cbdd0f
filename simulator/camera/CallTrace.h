#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/// What a traced call asked for.
enum class CallKind { Open, Close, Fcntl, BusAddress, BusWrite, BusRead, Request, Map, Unmap, Wait, Pause };

/// One call that the program made of a simulated device.
struct TracedCall
{
    CallKind kind;
    /// The request's name for BusAddress and Request, the command's for Fcntl, the path for
    /// Open and Close, the count for BusRead, empty otherwise.
    std::string name;
    /// What the call was made with: bytes as "35 01 30" (BusRead: those that came), a format as
    /// "640x480 YUYV type 1", a buffer as "2 type 1 memory 1".
    std::string details;
    /// 0, or the errno that the call failed with.
    int error = 0;
    /// Whether the thread that made the trace made the call.
    bool onOwnThread = true;
};

/// The name of a call: "open", "write", "VIDIOC_QBUF", "select", ... Any thread.
std::string callName(const TracedCall& call);

/// A call in one line: its name and its arguments. Any thread.
std::string callLine(const TracedCall& call);

/// The newest calls, oldest first; the oldest are forgotten beyond the limit. Any thread.
class CallTrace
{
public:
    /// limit: the calls that are kept. withWaits: whether waits and pauses, of which there are
    /// many, are kept as well.
    CallTrace(std::size_t limit, bool withWaits) : m_limit(limit), m_withWaits(withWaits) {}

    /// Adds a call.
    void add(TracedCall call);
    std::vector<TracedCall> calls() const;
    /// The calls of one kind only, oldest first.
    std::vector<TracedCall> calls(CallKind kind) const;
    void clear();
    /// Calls a listener for every later call, on the thread that makes the call.
    void setListener(std::function<void(const TracedCall&)> listener);

    /// Adds a misuse: something that a program must not do, whether or not a driver allows it.
    void addMisuse(std::string misuse);
    std::vector<std::string> misuses() const;

private:
    const std::size_t m_limit;
    const bool m_withWaits;
    const std::thread::id m_ownThread = std::this_thread::get_id();
    mutable std::mutex m_mutex;
    std::deque<TracedCall> m_calls;
    std::vector<std::string> m_misuses;
    std::function<void(const TracedCall&)> m_listener;
};
