#include "simulator/camera/CallTrace.h"

#include <utility>

void CallTrace::add(TracedCall call)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.push_back(std::move(call));
    if (m_calls.size() > m_limit) {
        m_calls.pop_front();
    }
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
    for (const TracedCall& call : m_calls) {
        if (call.kind == kind) {
            chosen.push_back(call);
        }
    }
    return chosen;
}

void CallTrace::clear()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.clear();
}
