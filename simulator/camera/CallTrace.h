#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

/// What a traced call asked for.
enum class CallKind { Open, Close, Fcntl, BusAddress, BusWrite, BusRead, Request, Map, Unmap };

/// One call that the program made of a simulated device.
struct TracedCall
{
    CallKind kind;
    /// The request's name for Request, the path for Open, empty otherwise.
    std::string name;
    /// BusWrite, BusRead: the bytes in hexadecimal, "35 01 30". Request: "640x480" of a
    /// format, "index 2" of a buffer, "count 4" of a request for buffers. Map: the offset.
    std::string details;
    /// 0, or the errno that the call failed with.
    int error = 0;
};

/// The newest calls, oldest first; the oldest are forgotten beyond the limit. Waits and
/// pauses are not calls in this sense. Any thread.
class CallTrace
{
public:
    explicit CallTrace(std::size_t limit) : m_limit(limit) {}

    /// Remembers a call.
    void add(TracedCall call);
    std::vector<TracedCall> calls() const;
    /// The calls of one kind only, oldest first.
    std::vector<TracedCall> calls(CallKind kind) const;
    void clear();

private:
    const std::size_t m_limit;
    mutable std::mutex m_mutex;
    std::deque<TracedCall> m_calls;
};
