#pragma once

#include <array>
#include <atomic>
#include <cstdint>

/// What the device stand-in and the test share: a file that both map. All zero is an
/// instrument in order that shows plain fields.
struct DeviceScene
{
    /// The simulated camera's faults by their names, with blanks between; they are looked at
    /// anew whenever the number beside them changes.
    std::array<char, 200> faults;
    std::atomic<std::int32_t> faultsChanged;
    std::atomic<std::int32_t> formatIsFree; // of buffers that are only allocated
    /// Height of the squares' edge over the grey ground, 0..100: more is sharper.
    std::atomic<std::int32_t> contrast;
    /// Frames that the program has taken in.
    std::atomic<std::int32_t> framesTaken;
    /// The sensor's registers that the program has written, as they are.
    std::atomic<std::uint8_t> registers[0x10000];
};
