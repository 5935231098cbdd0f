#pragma once

#include <cstdint>
#include <vector>

#include "simulator/optics/PictureMode.h"
#include "simulator/optics/SlidePicture.h"

/// A slide's picture as one format of the camera shows it, out of focus. The blurred picture is
/// kept: a change of light alone blurs nothing again. A strong blur is made at 1/2, 1/4 or 1/8
/// of the size and interpolated, like that of the drawn slides. One thread at a time.
class BlurredPicture
{
public:
    /// Takes a picture and a mode, which have to outlive their use here, with a blur (sigma of a
    /// Gaussian in full-frame pixels).
    void prepare(const SlidePicture& picture, const PictureMode& mode, double sigma_px);

    /// Row y: red, green and blue, 0..255, of each of the mode's pixels.
    const std::uint8_t* row(int y) const;

private:
    const SlidePicture* m_picture = nullptr;
    const PictureMode* m_mode = nullptr;
    double m_sigma_px = 0.0;
    /// The mode's part of the picture in the mode's size, sharp and blurred.
    std::vector<std::uint8_t> m_sharp;
    std::vector<std::uint8_t> m_blurred;
};
