#pragma once

#include <array>
#include <cstddef>

/// Size of a capture mode's frame and of its position rectangle in the 80 x 60 navigator.
struct FrameMode
{
    int width_px;
    int height_px;
    int navigatorWidth_px;
    int navigatorHeight_px;

    /// Bytes of an RGB24 frame without row padding.
    constexpr std::size_t rgbBytes() const
    {
        return static_cast<std::size_t>(width_px) * static_cast<std::size_t>(height_px) * 3;
    }
};

/// By resolution index (CameraMode). The position rectangles are 640/1280 and,
/// rounded, 640/2592 of the navigator.
constexpr std::array<FrameMode, 3> kFrameModes{{
    {640, 480, 80, 60},
    {1280, 960, 40, 30},
    {2592, 1944, 20, 15},
}};
