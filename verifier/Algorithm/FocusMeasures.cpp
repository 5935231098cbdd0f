#include "Algorithm/FocusMeasures.h"

#include <algorithm>
#include <cstdint>

#include <opencv2/imgproc.hpp>

namespace focus_measures {

namespace {

constexpr float kBrennerDivisor = 1'000'000.0F;

constexpr int kDarkest = 5;
constexpr int kBrightestDark = 35;

constexpr int kChannelModeGreen = 1;
constexpr int kChannelModeGrey = 3;

/// Columns whose squared differences of at most 255^2 still fit a signed 32-bit sum. The
/// signed sum of 16-bit products is what the compiler turns into multiply-and-add
/// instructions (x86-64, 64-bit ARM, and 32-bit ARM if built with ORLA_NEON; one by one
/// elsewhere); it is wrapped into the total block by block.
constexpr int kBlockColumns = 32'768;

std::uint32_t squaredDifferences(const std::uint8_t* pixels, int count)
{
    std::int32_t sum = 0;
    for (int x = 0; x < count; ++x) {
        const auto difference = static_cast<std::int16_t>(pixels[x + 2] - pixels[x]);
        sum += difference * difference;
    }
    return static_cast<std::uint32_t>(sum);
}

cv::Rect centred(const cv::Mat& plane, int width, int height)
{
    return {plane.cols / 2 - width / 2, plane.rows / 2 - height / 2, width, height};
}

cv::Rect windowOf(const cv::Mat& plane, FOCUS_WINDOW_SIZE window)
{
    const cv::Rect whole(0, 0, plane.cols, plane.rows);
    switch (window) {
    case FOCUS_WINDOW_320x240:
        return centred(plane, 320, 240) & whole;
    case FOCUS_WINDOW_640x480:
        return centred(plane, 640, 480) & whole;
    }
    return {};
}

cv::Mat singlePlane(const cv::Mat& frame, int channelMode)
{
    cv::Mat plane;
    if (channelMode == kChannelModeGreen)
        cv::extractChannel(frame, plane, kGreenPlane);
    else if (channelMode == kChannelModeGrey)
        cv::cvtColor(frame, plane, cv::COLOR_BGR2GRAY);
    return plane;
}

} // namespace

double brennerGradient(const cv::Mat& plane)
{
    if (plane.rows < 1 || plane.type() != CV_8UC1)
        return 0.0;
    std::uint32_t sum = 0;
    const int differences = plane.cols - 2;
    for (int y = 0; y < plane.rows; ++y) {
        const std::uint8_t* row = plane.ptr(y);
        for (int x = 0; x < differences; x += kBlockColumns)
            sum += squaredDifferences(row + x, std::min(kBlockColumns, differences - x));
    }
    return static_cast<double>(static_cast<float>(sum) / kBrennerDivisor);
}

double varianceOfLaplacian(const cv::Mat& image)
{
    if (image.empty())
        return 0.0;
    cv::Mat laplacian;
    cv::Laplacian(image, laplacian, CV_16S, 1, 1.0, 0.0, cv::BORDER_DEFAULT);
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(laplacian, mean, deviation);
    return deviation[0] * deviation[0];
}

int darkPixelCount(const cv::Mat& frame, int channelMode, FOCUS_WINDOW_SIZE window)
{
    if (frame.empty() || frame.type() != CV_8UC3)
        return 0;
    const cv::Mat plane = singlePlane(frame, channelMode);
    const cv::Rect region = windowOf(plane, window);
    if (region.empty())
        return 0;
    cv::Mat dark;
    cv::inRange(plane(region), kDarkest, kBrightestDark, dark);
    return cv::countNonZero(dark);
}

} // namespace focus_measures
