#pragma once

#include <functional>

#include "simulator/time/InstrumentTime.h"

/// What the camera sees of the rest of the instrument at one moment.
struct LightPath
{
    /// Where the stage stands, in steps; between two steps while it moves.
    double stagePosition_steps = 0.0;
    bool ledOn = false;
    /// Brightness that the board holds for the LED, 0..1000.
    int ledLevel = 0;

    bool operator==(const LightPath& other) const
    {
        return stagePosition_steps == other.stagePosition_steps && ledOn == other.ledOn &&
               ledLevel == other.ledLevel;
    }
};

/// Gives the light path at an instrument time. Any thread: it is asked on the one that waits
/// for frames, while another moves the stage. The times never decrease, and lie at most a few
/// frames in the past.
using LightPathSource = std::function<LightPath(InstrumentTime)>;
