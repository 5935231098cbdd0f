#include "simulator/session/PictureMeasures.h"

#include <algorithm>
#include <cmath>

#include <opencv2/core.hpp>

namespace {

constexpr int kLeastDepth_levels = 50;
constexpr int kLeastDistance_px = 25;

bool isFarFrom(const QVector<QPoint>& spots, int x, int y)
{
    return std::all_of(
        spots.begin(), spots.end(),
        [&](const QPoint& spot) { return std::hypot(spot.x() - x, spot.y() - y) >= kLeastDistance_px; });
}

/// A picture's pixels in a format, as the image library has them under this type.
cv::Mat pixelsOf(const QImage& picture, QImage::Format format, int type)
{
    QImage converted = picture.convertToFormat(format);
    return cv::Mat(converted.height(), converted.width(), type, converted.bits(),
                   static_cast<std::size_t>(converted.bytesPerLine()))
        .clone();
}

cv::Mat greyOf(const QImage& picture)
{
    return pixelsOf(picture, QImage::Format_Grayscale8, CV_8UC1);
}

} // namespace

PictureMeasures measurePicture(const QImage& picture)
{
    const cv::Mat grey = greyOf(picture);
    if (grey.cols < 3)
        return {};
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(grey, mean, deviation);
    const cv::Mat left = grey.colRange(0, grey.cols - 2);
    const cv::Mat right = grey.colRange(2, grey.cols);
    return {mean[0], deviation[0], cv::norm(left, right, cv::NORM_L2SQR) / static_cast<double>(left.total())};
}

double pictureDifference(const QImage& first, const QImage& second)
{
    if (first.isNull() || first.size() != second.size())
        return -1.0;
    const cv::Mat grey = greyOf(first);
    return cv::norm(grey, greyOf(second), cv::NORM_L1) / static_cast<double>(grey.total());
}

std::array<double, 3> meanColour(const QImage& picture)
{
    const cv::Scalar mean = cv::mean(pixelsOf(picture, QImage::Format_RGB888, CV_8UC3));
    return {mean[0], mean[1], mean[2]};
}

QVector<QPoint> darkSpots(const QImage& picture, int most)
{
    const QImage grey = picture.convertToFormat(QImage::Format_Grayscale8);
    const double limit = measurePicture(grey).brightness - kLeastDepth_levels;
    QVector<QPoint> spots;
    while (spots.size() < most) {
        int darkest = 256;
        QPoint place;
        for (int y = 0; y < grey.height(); ++y) {
            const uchar* row = grey.constScanLine(y);
            for (int x = 0; x < grey.width(); ++x)
                if (row[x] < darkest && row[x] <= limit && isFarFrom(spots, x, y)) {
                    darkest = row[x];
                    place = {x, y};
                }
        }
        if (darkest > 255)
            break;
        spots.append(place);
    }
    return spots;
}
