#include "simulator/camera/CallTrace.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace {

/// By CallKind; a call of a kind without a name goes by its own.
constexpr const char* kNames[] = {"open", "close", "",       "",       "write", "read",
                                  "",     "mmap",  "munmap", "select", "pause"};
static_assert(std::size(kNames) == static_cast<std::size_t>(CallKind::Pause) + 1);

} // namespace

std::string callName(const TracedCall& call)
{
    const std::string name = kNames[static_cast<std::size_t>(call.kind)];
    return name.empty() ? call.name : name;
}

std::string callLine(const TracedCall& call)
{
    std::string line = callName(call);
    if (line != call.name && !call.name.empty())
        line += " " + call.name;
    return call.details.empty() ? line : line + " " + call.details;
}

void CallTrace::add(TracedCall call)
{
    if (!m_withWaits && (call.kind == CallKind::Wait || call.kind == CallKind::Pause))
        return;
    call.onOwnThread = std::this_thread::get_id() == m_ownThread;
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (m_listener)
        m_listener(call);
    m_calls.push_back(std::move(call));
    if (m_calls.size() > m_limit)
        m_calls.pop_front();
}

std::vector<TracedCall> CallTrace::calls() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return {m_calls.begin(), m_calls.end()};
}

std::vector<TracedCall> CallTrace::calls(CallKind kind) const
{
    std::vector<TracedCall> chosen;
    const std::lock_guard<std::mutex> lock(m_mutex);
    std::copy_if(m_calls.begin(), m_calls.end(), std::back_inserter(chosen),
                 [kind](const TracedCall& call) { return call.kind == kind; });
    return chosen;
}

void CallTrace::clear()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.clear();
}

void CallTrace::setListener(std::function<void(const TracedCall&)> listener)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_listener = std::move(listener);
}

void CallTrace::addMisuse(std::string misuse)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_misuses.push_back(std::move(misuse));
}

std::vector<std::string> CallTrace::misuses() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_misuses;
}
