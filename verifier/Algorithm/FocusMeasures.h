#pragma once

#include <opencv2/core.hpp>

/// The measure that alg_Autofocus::find_focus_value() computes.
enum FOCUS_VALUE_CRITERIA : int {
    FOCUS_VALUE_DARK_PIXELS = 0, ///< Every other value computes nothing.
};

/// The centred region in which dark pixels are counted.
enum FOCUS_WINDOW_SIZE : int {
    FOCUS_WINDOW_320x240 = 0,
    FOCUS_WINDOW_640x480 = 1,
};

/// Focus measures: values out of pictures. Pure; any thread.
namespace focus_measures {

/// Plane of an RGB24 frame that is scored, and in which dark pixels are counted.
constexpr int kGreenPlane = 1;

/// Brenner gradient of one plane: the sum over all rows and all columns but the last two of
/// (I(y, x + 2) - I(y, x))^2, modulo 2^32, turned into single precision and divided by
/// 1,000,000 in single precision.
///
/// plane: rows x columns, 8-bit, one channel, any row step (a region of a larger picture
/// may be given). 0.0 for a plane without rows, with two columns or fewer, or of another
/// type. Allocates nothing.
double brennerGradient(const cv::Mat& plane);

/// Square of the standard deviation of the picture's Laplacian (aperture 1, scale 1.0,
/// delta 0.0, border reflected without its edge pixel, 16-bit signed), first channel.
/// 0.0 for an empty picture.
double varianceOfLaplacian(const cv::Mat& image);

/// Counts the pixels from 5 to 35, both ends included, in the middle of a frame.
///
/// frame: rows x columns, 8-bit, 3 channels. channelMode 1 looks at plane 1 (green), 3 at
/// the grey value of the frame read in B, G, R order, as the conversion has always been
/// done here. A window that is larger than the frame is cut off at the frame's borders.
/// 0 for an empty frame and for any other channel mode or window.
int darkPixelCount(const cv::Mat& frame, int channelMode, FOCUS_WINDOW_SIZE window);

} // namespace focus_measures
