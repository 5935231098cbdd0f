#pragma once

#include <chrono>

/// Time of the simulated instrument, counted from its power-on. The models take it as an
/// argument and never read a clock; only the shells around them do.
using InstrumentTime = std::chrono::microseconds;

/// A span of instrument time in seconds.
inline double seconds(InstrumentTime time)
{
    return std::chrono::duration<double>(time).count();
}
