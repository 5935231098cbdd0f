#pragma once

#include <cstdint>

#include "simulator/optics/Optics.h"
#include "simulator/time/InstrumentTime.h"

/// Where the capture device gets its pictures from.
class FrameSource
{
public:
    virtual ~FrameSource() = default;

    /// Looks at the scene for the frame that ends at `time` and returns the picture's
    /// number, never 0, which changes exactly when the picture does. Called once a frame.
    virtual std::uint64_t look(InstrumentTime time, const PictureMode& mode) = 0;
    /// Draws the picture last looked at: mode.frameBytes() bytes of packed YUYV.
    virtual void draw(std::uint8_t* yuyv) = 0;
};
