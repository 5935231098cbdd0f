#include "simulator/time/InstrumentTime.h"

#include <cmath>

double seconds(InstrumentTime time)
{
    return std::chrono::duration<double>(time).count();
}

InstrumentTime spanOf(double span_s)
{
    return InstrumentTime(static_cast<InstrumentTime::rep>(std::ceil(span_s * 1e6)));
}
