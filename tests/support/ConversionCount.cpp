#include "support/ConversionCount.h"

#include <atomic>
#include <mutex>
#include <utility>

extern "C" {
#include <libswscale/swscale.h>
}

namespace {

std::atomic<int> g_conversions{0};
thread_local int t_conversions = 0;
std::mutex g_mutex;
std::function<void()> g_beforeNext; // guarded by g_mutex

} // namespace

int conversionsSoFar()
{
    return g_conversions;
}

int conversionsOfThisThread()
{
    return t_conversions;
}

void beforeNextConversion(std::function<void()> call)
{
    const std::lock_guard<std::mutex> lock(g_mutex);
    g_beforeNext = std::move(call);
}

// The linker sends every conversion through here (-Wl,--wrap), by names of its own making.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" SwsContext* __real_sws_getContext(int, int, AVPixelFormat, int, int, AVPixelFormat, int,
                                             SwsFilter*, SwsFilter*, const double*);
extern "C" SwsContext* __wrap_sws_getContext(int sourceWidth, int sourceHeight, AVPixelFormat sourceFormat,
                                             int width, int height, AVPixelFormat format, int flags,
                                             SwsFilter* sourceFilter, SwsFilter* filter,
                                             const double* parameters)
{
    ++g_conversions;
    ++t_conversions;
    std::unique_lock<std::mutex> lock(g_mutex);
    const std::function<void()> before = std::exchange(g_beforeNext, nullptr);
    lock.unlock();
    if (before)
        before();
    return __real_sws_getContext(sourceWidth, sourceHeight, sourceFormat, width, height, format, flags,
                                 sourceFilter, filter, parameters);
}
// NOLINTEND(bugprone-reserved-identifier)
