#include "QC/TwoPointMeasurement.h"

#include <cfloat>
#include <cmath>

#include <QString>

static_assert(FLT_EVAL_METHOD == 0, "single precision has to be rounded after every operation");

namespace {

constexpr float kSensorPixel_um = 1.4F;
constexpr float kChamberDepth_mm = 0.1F;
constexpr float kMicrometresPerMillimetre = 1000.0F;
constexpr float kSquareMicrometresPerSquareMillimetre = 1e6F;
constexpr float kLengthStepsPerMillimetre = 10.0F;

/// What a distance on the image stands for on the sample, mm. The target is made so that
/// 1000 pixels are 1 mm at the nominal magnification of 1.4; multiplying and dividing by it
/// rounds twice, which decides over some values that lie between two steps.
float nominalLength_mm(float length_px)
{
    return length_px * 0.1F / 100.0F * kSensorPixel_um / kSensorPixel_um;
}

} // namespace

float pointDistance(QPoint point1, QPoint point2)
{
    const double dx = static_cast<double>(point1.x()) - point2.x();
    const double dy = static_cast<double>(point1.y()) - point2.y();
    return static_cast<float>(std::sqrt(dx * dx + dy * dy));
}

float roundToFraction(float value, float factor)
{
    constexpr double kIntLimit = 2147483647.0;
    const double scaled = static_cast<double>(value * factor) + (value < 0 ? -0.5 : 0.5);
    if (!(std::fabs(scaled) < kIntLimit))
        return value;
    return static_cast<float>(static_cast<int>(scaled)) / factor;
}

TwoPointMeasurement measureTwoPoints(QPoint point1, QPoint point2, QSize imageSize_px)
{
    TwoPointMeasurement result = {};
    MeasureInfo_t& info = result.info;
    info.length_pixel = pointDistance(point1, point2);
    info.length_mm = roundToFraction(nominalLength_mm(info.length_pixel), kLengthStepsPerMillimetre);
    info.pixel_size = info.length_mm * kMicrometresPerMillimetre / info.length_pixel;
    result.exactMagnification =
        info.length_pixel * kSensorPixel_um / (info.length_mm * kMicrometresPerMillimetre);
    // Through the digits that are shown and saved; halves go up.
    info.Magnification = QString::asprintf("%.3f", double(result.exactMagnification)).toFloat();

    const auto width = static_cast<float>(imageSize_px.width());
    const auto height = static_cast<float>(imageSize_px.height());
    info.area_mm =
        width * info.pixel_size * (info.pixel_size * height) / kSquareMicrometresPerSquareMillimetre;
    result.exactVolumeFactor = info.area_mm * kChamberDepth_mm;
    info.Volume_factor = QString::asprintf("%.5f", double(result.exactVolumeFactor)).toFloat();
    result.area_mm = (width * kSensorPixel_um / info.Magnification) *
                     (height * kSensorPixel_um / info.Magnification) / kSquareMicrometresPerSquareMillimetre;
    return result;
}
