#pragma once

#include <array>

/// What the sensor's registers say about the picture, decoded.
struct SensorSettings
{
    /// Exposure time in lines; the registers count sixteenths of a line.
    double exposure_lines = 0.0;
    /// Analogue gain, 1..31.
    double gain = 1.0;
    /// White balance gains of red, green and blue, 0..just under 4; register value / 0x400.
    std::array<double, 3> colourGains{1.0, 1.0, 1.0};

    bool operator==(const SensorSettings& other) const
    {
        return exposure_lines == other.exposure_lines && gain == other.gain &&
               colourGains == other.colourGains;
    }
};
