#pragma once

#include <functional>

/// How many conversions of a frame all threads have begun so far, each of which has a context of
/// its own. Counted in programs that orla_count_conversions() has linked. Any thread.
int conversionsSoFar();
/// Those of the calling thread alone.
int conversionsOfThisThread();
/// Has the next conversion of any thread call that first, on its own thread. Any thread.
void beforeNextConversion(std::function<void()> call);
