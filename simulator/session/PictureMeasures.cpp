#include "simulator/session/PictureMeasures.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace {

constexpr int kLeastDepth_levels = 50;
constexpr int kLeastDistance_px = 25;

bool isFarFrom(const QVector<QPoint>& spots, int x, int y)
{
    return std::all_of(
        spots.begin(), spots.end(),
        [&](const QPoint& spot) { return std::hypot(spot.x() - x, spot.y() - y) >= kLeastDistance_px; });
}

} // namespace

PictureMeasures measurePicture(const QImage& picture)
{
    const QImage grey = picture.convertToFormat(QImage::Format_Grayscale8);
    const int width = grey.width();
    const int height = grey.height();
    if (width < 3 || height < 1)
        return {};
    double sum = 0.0;
    double squares = 0.0;
    double edges = 0.0;
    for (int y = 0; y < height; ++y) {
        const uchar* row = grey.constScanLine(y);
        long long rowSum = 0;
        long long rowSquares = 0;
        long long rowEdges = 0;
        for (int x = 0; x < width; ++x) {
            rowSum += row[x];
            rowSquares += static_cast<long long>(row[x]) * row[x];
        }
        for (int x = 0; x + 2 < width; ++x) {
            const long long step = row[x + 2] - row[x];
            rowEdges += step * step;
        }
        sum += static_cast<double>(rowSum);
        squares += static_cast<double>(rowSquares);
        edges += static_cast<double>(rowEdges);
    }
    const double count = static_cast<double>(width) * height;
    const double mean = sum / count;
    return {mean, std::sqrt(std::max(0.0, squares / count - mean * mean)),
            edges / (static_cast<double>(width - 2) * height)};
}

double pictureDifference(const QImage& first, const QImage& second)
{
    if (first.isNull() || first.size() != second.size())
        return -1.0;
    const QImage a = first.convertToFormat(QImage::Format_Grayscale8);
    const QImage b = second.convertToFormat(QImage::Format_Grayscale8);
    long long sum = 0;
    for (int y = 0; y < a.height(); ++y) {
        const uchar* rowA = a.constScanLine(y);
        const uchar* rowB = b.constScanLine(y);
        for (int x = 0; x < a.width(); ++x)
            sum += std::abs(rowA[x] - rowB[x]);
    }
    return static_cast<double>(sum) / (static_cast<double>(a.width()) * a.height());
}

std::array<double, 3> meanColour(const QImage& picture)
{
    const QImage rgb = picture.convertToFormat(QImage::Format_RGB32);
    std::array<double, 3> sums{};
    for (int y = 0; y < rgb.height(); ++y) {
        // The rows of such a picture begin at whole pixels, which their type does not tell.
        const auto* row = static_cast<const QRgb*>(static_cast<const void*>(rgb.constScanLine(y)));
        for (int x = 0; x < rgb.width(); ++x) {
            sums[0] += qRed(row[x]);
            sums[1] += qGreen(row[x]);
            sums[2] += qBlue(row[x]);
        }
    }
    const double pixels = static_cast<double>(rgb.width()) * rgb.height();
    for (double& sum : sums)
        sum = pixels > 0.0 ? sum / pixels : 0.0;
    return sums;
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
