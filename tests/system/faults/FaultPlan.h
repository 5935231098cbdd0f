#pragma once

#include <array>
#include <atomic>
#include <cstdint>

/// What the failing calls and whoever has them fail share: a file that both map. All zero is a
/// run that nothing happens to.
struct FaultPlan
{
    using Name = std::array<char, 120>;

    struct Count
    {
        Name call;
        std::atomic<std::int32_t> calls;
    };

    /// The call that fails, such as "open: sensor bus", at which of its turns, counted from 1,
    /// and with which errno.
    Name call;
    std::int32_t turn;
    std::int32_t error;
    /// How many times faster than on the clock time passes for the program; 0 as 1.
    std::int32_t speed;
    /// Whether the call has come, and failed.
    std::atomic<std::int32_t> struck;
    /// Signals to all processes of the machine that were held back.
    std::atomic<std::int32_t> signalsToAll;
    /// Every call so far on a device or file of the instrument, in the order of their first turns.
    std::atomic<std::int32_t> callCount;
    std::atomic<std::int32_t> locked;
    std::array<Count, 1000> counts;
};
