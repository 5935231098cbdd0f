#include "simulator/board/BoardTransmitter.h"

#include <algorithm>

void BoardTransmitter::send(std::string line, InstrumentTime due, InstrumentTime pause)
{
    m_waiting.insert({due, {std::move(line), pause}});
}

std::optional<InstrumentTime> BoardTransmitter::nextDue() const
{
    if (!m_current.bytes.empty())
        return m_nextByte;
    if (m_waiting.empty())
        return std::nullopt;
    return std::max(m_waiting.begin()->first, m_nextByte);
}

std::string BoardTransmitter::take(InstrumentTime now)
{
    std::string left;
    for (auto due = nextDue(); due && *due <= now; due = nextDue()) {
        if (m_current.bytes.empty()) {
            m_current = m_waiting.begin()->second;
            m_waiting.erase(m_waiting.begin());
        }
        const std::size_t count = m_current.pause > InstrumentTime{0} ? 1 : m_current.bytes.size();
        left.append(m_current.bytes, 0, count);
        m_current.bytes.erase(0, count);
        m_nextByte = *due + m_current.pause;
    }
    return left;
}

void BoardTransmitter::clear()
{
    m_waiting.clear();
    m_current.bytes.clear();
}
