#pragma once

#include <QMetaType>
#include <QPoint>
#include <QSize>

/// Optical calibration worked out from two points of the calibration target.
struct MeasureInfo_t
{
    float length_pixel;  ///< distance of the points, pixels
    float length_mm;     ///< the same on the sample, mm, rounded to 0.1 mm
    float pixel_size;    ///< one image pixel on the sample, um
    float Magnification; ///< of the optics onto the sensor's 1.4 um pixels, 3 decimals
    float area_mm;       ///< sample area of the whole frame, mm2
    float Volume_factor; ///< area times the chamber depth of 0.1 mm, uL, 5 decimals
};
Q_DECLARE_METATYPE(MeasureInfo_t)

/// A measurement with the values that only the log shows.
struct TwoPointMeasurement
{
    MeasureInfo_t info;
    float exactMagnification; ///< before it is rounded to 3 decimals
    float area_mm;            ///< worked out from the rounded magnification, mm2
    float exactVolumeFactor;  ///< before it is rounded to 5 decimals, uL
};

/// Measures two image points (pixels) on a frame of imageSize_px pixels.
///
/// Single precision throughout, every operation rounded on its own and in a fixed order:
/// the instrument's files have to hold the same digits on every machine. Points closer
/// than 50 pixels give a length of 0 mm and an infinite magnification, equal points
/// not-a-number; both are returned as they come. Any thread.
TwoPointMeasurement measureTwoPoints(QPoint point1, QPoint point2, QSize imageSize_px);

/// Euclidean distance, worked out in double precision. Any thread.
float pointDistance(QPoint point1, QPoint point2);

/// value rounded to a multiple of 1 / factor, halves away from zero. What does not fit into
/// an int (infinities, not-a-number, values without a fraction) is returned as it is.
/// Any thread.
float roundToFraction(float value, float factor);
