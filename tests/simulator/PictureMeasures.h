#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

#include "simulator/optics/Optics.h"

/// A drawn picture, looked at in red, green and blue (BT.601, limited range, each pixel with
/// its pair's chroma), independently of how it was drawn.
class MeasuredPicture
{
public:
    MeasuredPicture(const PictureMode& mode, std::vector<std::uint8_t> yuyv)
        : m_mode(mode), m_yuyv(std::move(yuyv))
    {
    }

    /// Red, green and blue of a pixel, 0..255.
    std::array<double, 3> rgb(int x, int y) const
    {
        const std::uint8_t* pair = pairAt(x, y);
        const double luma = 1.164 * (pair[x % 2 == 0 ? 0 : 2] - 16);
        const double blue = pair[1] - 128;
        const double red = pair[3] - 128;
        return {std::clamp(luma + 1.596 * red, 0.0, 255.0),
                std::clamp(luma - 0.391 * blue - 0.813 * red, 0.0, 255.0),
                std::clamp(luma + 2.018 * blue, 0.0, 255.0)};
    }

    /// Green alone, in whole levels and integer arithmetic.
    int green(int x, int y) const { return greenOf(pairAt(x, y), x % 2); }

    /// Mean red, green and blue of the whole picture.
    std::array<double, 3> mean() const
    {
        std::array<double, 3> sum{};
        for (int y = 0; y < m_mode.height_px; ++y) {
            for (int x = 0; x < m_mode.width_px; ++x) {
                const std::array<double, 3> pixel = rgb(x, y);
                for (std::size_t c = 0; c < sum.size(); ++c)
                    sum[c] += pixel[c];
            }
        }
        for (double& value : sum)
            value /= static_cast<double>(m_mode.width_px) * m_mode.height_px;
        return sum;
    }

    /// Squared differences of green over two columns, summed in 64 bits.
    std::uint64_t squaredDifferences() const
    {
        const int width = m_mode.width_px;
        std::uint64_t sum = 0;
        std::vector<int> row(static_cast<std::size_t>(width));
        for (int y = 0; y < m_mode.height_px; ++y) {
            for (int x = 0; x < width; ++x)
                row[x] = green(x, y);
            // A row's own sum fits: 2590 times 255 squared.
            std::uint32_t rowSum = 0;
            for (int x = 0; x + 2 < width; ++x)
                rowSum += static_cast<std::uint32_t>((row[x + 2] - row[x]) * (row[x + 2] - row[x]));
            sum += rowSum;
        }
        return sum;
    }

    /// The sum above in millions: the focus value that an autofocus run sees.
    double focusValue() const { return static_cast<double>(squaredDifferences()) / 1e6; }

private:
    /// The pair of pixels that a pixel belongs to: Y0 U Y1 V.
    const std::uint8_t* pairAt(int x, int y) const
    {
        const auto pixel = static_cast<std::size_t>(y) * m_mode.width_px + x;
        return m_yuyv.data() + pixel / 2 * 4;
    }
    static int greenOf(const std::uint8_t* pair, int pixel)
    {
        const int chroma = 100 * (pair[1] - 128) + 208 * (pair[3] - 128);
        const int level = (298 * (pair[pixel == 0 ? 0 : 2] - 16) - chroma + 128) / 256;
        return std::min(std::max(level, 0), 255);
    }

    const PictureMode& m_mode;
    std::vector<std::uint8_t> m_yuyv;
};

/// Nominal light on a stage that stands so far from the best focus.
inline PictureInputs nominalInputs(const Optics& optics, double fromFocus_steps = 0.0, int ledLevel = 225)
{
    PictureInputs inputs;
    inputs.light = {optics.bestFocus_steps() + fromFocus_steps, true, ledLevel};
    inputs.sensor.exposure_lines = 768.0;
    return inputs;
}

/// What the optics draw, as bytes of YUYV.
inline std::vector<std::uint8_t> drawnBytes(Optics& optics, const PictureMode& mode,
                                            const PictureInputs& inputs, std::uint64_t noiseNumber = 1)
{
    std::vector<std::uint8_t> yuyv(static_cast<std::size_t>(mode.frameBytes()));
    optics.draw(mode, inputs, noiseNumber, yuyv.data());
    return yuyv;
}

/// The same, to be measured.
inline MeasuredPicture drawn(Optics& optics, const PictureMode& mode, const PictureInputs& inputs,
                             std::uint64_t noiseNumber = 1)
{
    return {mode, drawnBytes(optics, mode, inputs, noiseNumber)};
}
