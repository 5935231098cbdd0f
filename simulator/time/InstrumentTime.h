#pragma once

#include <chrono>

/// Time of the simulated instrument, counted from its power-on. The models take it as an
/// argument and never read a clock; only the shells around them do.
using InstrumentTime = std::chrono::microseconds;

/// A span of instrument time in seconds. Any thread.
double seconds(InstrumentTime time);

/// The instrument time of a span in seconds, rounded up: when it has passed, so has the span.
/// Any thread.
InstrumentTime spanOf(double span_s);
