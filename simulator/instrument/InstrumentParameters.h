#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "simulator/board/Board.h"
#include "simulator/camera/SimulatedDeviceCalls.h"

/// Everything about the simulated instrument that can be chosen, with the values of an
/// instrument in good order.
struct InstrumentParameters
{
    BoardParameters board;
    SimulatedCameraParameters camera;
    /// How the main settings file starts: in Zig mode the exit leaves LED and stage alone.
    bool zigMode = false;
    /// Motion, pauses and diagnosis take no time.
    bool instant = false;
    /// Of the faults that strike at random.
    std::uint32_t faultSeed = 1;

    /// Chooses slide, focus, noise, and when faults strike that do so at random.
    void setSeed(std::uint32_t seed);
};

using TargetDots = std::array<SlidePoint, 2>;

/// One parameter as the command line and the help know it.
struct InstrumentParameter
{
    const char* name;
    const char* unit; ///< empty for a plain number or a text
    const char* text;
    double least; ///< smallest and largest number that makes sense
    double most;
    /// Where a struct of parameters keeps it.
    std::variant<int*, double*, bool*, std::string*, std::optional<double>*, std::optional<TargetDots>*>
        place;
};

/// All parameters of a struct, which outlives them, grouped as the help shows them.
std::vector<InstrumentParameter> instrumentParameters(InstrumentParameters& parameters);

/// The value that a parameter has, as the command line takes it; "from the seed" for one that is
/// not given.
std::string parameterValue(const InstrumentParameter& parameter);

/// Sets a parameter by "name=value". Returns what is wrong with it in a sentence, empty if
/// nothing is; then, and only then, the struct has changed.
std::string setParameter(InstrumentParameters& parameters, const std::string& assignment);
