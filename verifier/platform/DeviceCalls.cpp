#include "platform/DeviceCalls.h"

#include <atomic>

#include "platform/SystemDeviceCalls.h"

namespace {

// Written by the GUI thread before any device is opened, read by every thread that
// uses a device; the start of the thread orders the two.
std::atomic<DeviceCalls*> g_installedCalls{nullptr};

} // namespace

DeviceCalls& deviceCalls()
{
    static SystemDeviceCalls systemCalls;
    DeviceCalls* installed = g_installedCalls.load(std::memory_order_acquire);
    return installed != nullptr ? *installed : systemCalls;
}

DeviceCalls* installDeviceCalls(DeviceCalls* calls)
{
    return g_installedCalls.exchange(calls, std::memory_order_acq_rel);
}
