#pragma once

#include <atomic>
#include <cstdint>

/// What the device stand-in and the test share: a file that both map. All zero is an
/// instrument in order that shows plain fields.
struct DeviceScene
{
    /// The capture request that fails with failingErrno, by its last byte (VIDIOC_S_FMT: 5); 0: none.
    std::atomic<std::int32_t> failingRequest;
    std::atomic<std::int32_t> failingErrno;
    std::atomic<std::int32_t> noCaptureDevice; // its open: ENODEV
    std::atomic<std::int32_t> noBus;           // its open: ENOENT
    std::atomic<std::int32_t> busNack;         // transfers: EREMOTEIO
    std::atomic<std::int32_t> noFrames;
    std::atomic<std::int32_t> formatIsFree; // of buffers that are only allocated
    /// Height of the squares' edge over the grey ground, 0..100: more is sharper.
    std::atomic<std::int32_t> contrast;
    std::atomic<std::int32_t> framesDelivered;
    /// The sensor's register file.
    std::atomic<std::uint8_t> registers[0x10000];
};
