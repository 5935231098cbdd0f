#pragma once

#include <array>

/// One picture format of the camera and the part of the full frame that it shows.
struct PictureMode
{
    static constexpr int kBytesPerPixel = 2; ///< YUYV

    int width_px;
    int height_px;
    int framesPerSecond;
    /// Full-frame pixels per picture pixel, and the full-frame place of the picture's
    /// left and upper edge (edge of the first pixel, not its centre).
    double scale;
    double left_px;
    double top_px;

    int frameBytes() const { return width_px * height_px * kBytesPerPixel; }
};

/// The camera's three formats: the whole field in 1280 x 960 and in 2592 x 1944, and in
/// 640 x 480 the unscaled centre of the 1280 x 960 picture. The instrument's own truth: the
/// program's table of capture modes is held against it, not taken from it.
inline constexpr std::array<PictureMode, 3> kPictureModes{{
    {640, 480, 30, 2.025, 648.0, 486.0},
    {1280, 960, 30, 2.025, 0.0, 0.0},
    {2592, 1944, 15, 1.0, 0.0, 0.0},
}};
