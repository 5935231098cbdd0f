#include "QC/TargetSearch.h"

#include <algorithm>

#include <opencv2/imgproc.hpp>

namespace {

constexpr int kHalfWindow_px = 20;
constexpr double kDarkLimit = 50;
constexpr double kDarkMark = 255;
constexpr int kMedianAperture = 3;
constexpr int kBilateralDiameter = 5;
constexpr double kBilateralSigma = 95;
constexpr int kGreen = 1;

struct Span
{
    int start;
    int length;
};

/// One axis of the search window, limited to the image.
Span searchSpan(int target, int image_px)
{
    const int start = std::max(target - kHalfWindow_px, 0);
    return {start, std::min(target + kHalfWindow_px, image_px) - start};
}

/// Image coordinate of a circle's centre in the window; only a window that does not begin
/// at the border is shifted.
int imageCoordinate(int target, float centre)
{
    if (target < kHalfWindow_px)
        return static_cast<int>(centre);
    return static_cast<int>(static_cast<float>(target - kHalfWindow_px) + centre);
}

} // namespace

QRect searchWindow(QPoint target, QSize imageSize_px)
{
    const Span x = searchSpan(target.x(), imageSize_px.width());
    const Span y = searchSpan(target.y(), imageSize_px.height());
    // Negative lengths would turn a rectangle over.
    return x.length > 0 && y.length > 0 ? QRect(x.start, y.start, x.length, y.length) : QRect();
}

TargetSearch::Result TargetSearch::find(const FrameView& frame, QPoint target)
{
    const QRect window = searchWindow(target, frame.size_px);
    if (window.isEmpty())
        return {Outcome::NoObject, {}};

    filter(frame);
    const cv::Mat part = m_plane(cv::Rect(window.x(), window.y(), window.width(), window.height()));
    cv::findContours(part, m_contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_SIMPLE);
    if (m_contours.empty())
        return {Outcome::NoObject, {}};
    if (m_contours.size() > 1)
        return {Outcome::ManyObjects, {}};

    cv::Point2f centre;
    float radius = 0;
    cv::minEnclosingCircle(m_contours.front(), centre, radius);
    return {Outcome::Found, {imageCoordinate(target.x(), centre.x), imageCoordinate(target.y(), centre.y)}};
}

/// Leaves in m_plane what is dark, as white objects with filtered edges. Every step runs
/// over the whole frame: what lies outside the window takes part in the filters at its
/// border. The median alternates between the two planes because the library would copy the
/// frame to work in place.
void TargetSearch::filter(const FrameView& frame)
{
    const int type = frame.bitsPerPixel == 8 ? CV_8UC1 : CV_8UC3;
    // The library takes no pointer to const data; nothing is written through it.
    const cv::Mat image(frame.size_px.height(), frame.size_px.width(), type,
                        const_cast<unsigned char*>(frame.data));
    if (type == CV_8UC1)
        cv::threshold(image, m_plane, kDarkLimit, kDarkMark, cv::THRESH_BINARY_INV);
    else {
        cv::extractChannel(image, m_plane, kGreen);
        cv::threshold(m_plane, m_plane, kDarkLimit, kDarkMark, cv::THRESH_BINARY_INV);
    }
    cv::medianBlur(m_plane, m_smooth, kMedianAperture);
    cv::bilateralFilter(m_smooth, m_plane, kBilateralDiameter, kBilateralSigma, kBilateralSigma,
                        cv::BORDER_DEFAULT);
}
