#pragma once

#include <cstdint>
#include <optional>

#include "simulator/optics/Optics.h"
#include "simulator/time/InstrumentTime.h"

/// What the driver reports of a frame, where that is not the truth.
struct FrameReport
{
    std::optional<unsigned> bytesUsed;
    std::optional<unsigned> bufferIndex;
};

/// Where the capture device gets its pictures from. One thread at a time, that of the device.
class FrameSource
{
public:
    virtual ~FrameSource() = default;

    /// Whether a frame ends at all; the stream stands still as long as none does.
    virtual bool hasFrame() { return true; }
    /// Looks at the scene for the frame that ends at `time` and returns the picture's
    /// number, never 0, which changes exactly when the picture does. Called once a frame.
    virtual std::uint64_t look(InstrumentTime time, const PictureMode& mode) = 0;
    /// Draws the picture last looked at: mode.frameBytes() bytes of packed YUYV.
    virtual void draw(std::uint8_t* yuyv) = 0;
    /// What the driver says of the frame last looked at.
    virtual FrameReport report() { return {}; }
};
