#pragma once

#include <chrono>
#include <cmath>

/// Time of the simulated instrument, counted from its power-on. The models take it as an
/// argument and never read a clock; only the shells around them do.
using InstrumentTime = std::chrono::microseconds;

/// A span of instrument time in seconds.
inline double seconds(InstrumentTime time)
{
    return std::chrono::duration<double>(time).count();
}

/// The instrument time of a span in seconds, rounded up: when it has passed, so has the span.
inline InstrumentTime spanOf(double span_s)
{
    return InstrumentTime(static_cast<InstrumentTime::rep>(std::ceil(span_s * 1e6)));
}
