#pragma once

#include <array>
#include <cstddef>

/// The camera's capture modes: the only place that knows how many there are, how large their
/// frames are and what a pixel takes.

/// Index of a mode in kCaptureModes, of the camera's calibration sets and of the settings
/// record's register tables.
enum CameraMode : int {
    kModeVga = 0,
    kMode1280 = 1,
    kMode5M = 2,
};
constexpr int kCameraModeCount = 3;

constexpr int kYuyvBytesPerPixel = 2; ///< as the camera delivers them, 4:2:2
constexpr int kRgbBytesPerPixel = 3;  ///< as everything else works on them, 8 bits each

/// The navigator, which stands for the whole frame.
constexpr int kNavigatorWidth_px = 80;
constexpr int kNavigatorHeight_px = 60;

/// A mode's name, the size of its frames, and the size of the rectangle that marks the visible
/// part of a frame in the navigator.
struct CaptureMode
{
    const char* name; ///< as in the calibration files and in the log
    int width_px;
    int height_px;
    int navigatorWidth_px;
    int navigatorHeight_px;

    /// Bytes of an RGB24 frame without row padding.
    constexpr std::size_t rgbBytes() const
    {
        return static_cast<std::size_t>(width_px) * static_cast<std::size_t>(height_px) * kRgbBytesPerPixel;
    }
};

/// By CameraMode. The rectangles are 640/1280 and, rounded, 640/2592 of the navigator.
constexpr std::array<CaptureMode, kCameraModeCount> kCaptureModes{{
    {"VGA", 640, 480, kNavigatorWidth_px, kNavigatorHeight_px},
    {"1280", 1280, 960, 40, 30},
    {"5M", 2592, 1944, 20, 15},
}};
