#pragma once

#include <map>
#include <optional>
#include <string>

#include "simulator/time/InstrumentTime.h"

/// The board's sending end of the serial line: keeps lines until they are due and never
/// interleaves two of them. Pure: every call takes the time. One thread at a time.
class BoardTransmitter
{
public:
    /// Sends the line at time due, or once the line under way is through. With a pause, its
    /// bytes leave one by one, the pause between them.
    void send(std::string line, InstrumentTime due, InstrumentTime pause = InstrumentTime{0});
    /// The bytes that have left by the time now.
    std::string take(InstrumentTime now);
    /// When take() will have bytes again.
    std::optional<InstrumentTime> nextDue() const;
    /// Forgets everything that has not left yet.
    void clear();

private:
    struct Line
    {
        std::string bytes;
        InstrumentTime pause;
    };

    std::multimap<InstrumentTime, Line> m_waiting;
    Line m_current{{}, InstrumentTime{0}}; // the bytes still to leave
    InstrumentTime m_nextByte{0};
};
