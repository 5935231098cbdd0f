#include "QC/PointMarkers.h"

#include <QImage>
#include <QPainter>

#include <opencv2/imgproc.hpp>

namespace {

constexpr int kCrossArm_px = 15;
constexpr int kLabelOffset_px = 8;
constexpr double kLabelScale = 0.35;
/// The cross and the one-character label lie within this distance of their point.
constexpr int kReach_px = 24;

const cv::Scalar kCrossColor(255, 0, 0);
const cv::Scalar kLabelColor(0, 255, 255);

QRect widened(const QRect& area, int by_px)
{
    return area.adjusted(-by_px, -by_px, by_px, by_px);
}

} // namespace

QRect markedArea(QPoint position)
{
    return widened({position, QSize(1, 1)}, kReach_px);
}

void drawPointMarker(cv::Mat& image, const PointMarker& marker)
{
    const int x = marker.position.x();
    const int y = marker.position.y();
    cv::line(image, {x - kCrossArm_px, y}, {x + kCrossArm_px, y}, kCrossColor, 1, cv::LINE_8);
    cv::line(image, {x, y - kCrossArm_px}, {x, y + kCrossArm_px}, kCrossColor, 1, cv::LINE_8);
    cv::putText(image, marker.label, {x + kLabelOffset_px, y - kLabelOffset_px}, cv::FONT_HERSHEY_SIMPLEX,
                kLabelScale, kLabelColor, 1, cv::LINE_8, false);
}

void paintMarkedArea(QPainter& painter, const cv::Mat& frame, const QRect& area,
                     const std::vector<PointMarker>& markers)
{
    const QRect image(0, 0, frame.cols, frame.rows);
    const QRect visible = area & image;
    if (visible.isEmpty())
        return;
    // A label that is cut off is not drawn with quite the same pixels, so every marker that
    // reaches into the area has to lie in the copy as a whole.
    const QRect copied = widened(visible, 2 * kReach_px) & image;
    cv::Mat copy = frame(cv::Rect(copied.x(), copied.y(), copied.width(), copied.height())).clone();
    for (const PointMarker& marker : markers)
        drawPointMarker(copy, {marker.position - copied.topLeft(), marker.label});
    const QImage marked(copy.data, copy.cols, copy.rows, static_cast<int>(copy.step), QImage::Format_RGB888);
    painter.drawImage(visible.topLeft(), marked, visible.translated(-copied.topLeft()));
}
