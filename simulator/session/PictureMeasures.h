#pragma once

#include <array>

#include <QImage>
#include <QPoint>
#include <QVector>

/// What can be told of a picture without knowing what it shows. Grey levels 0..255.
struct PictureMeasures
{
    double brightness = 0.0; ///< mean grey level
    double contrast = 0.0;   ///< standard deviation of the grey level
    /// Mean square of the difference between a pixel and the second one to its right: grows
    /// as edges get sharper, and little with noise.
    double sharpness = 0.0;
};

/// Measures a picture of any format; all zero for one narrower than three pixels. Any thread.
PictureMeasures measurePicture(const QImage& picture);

/// Mean red, green and blue of a picture of any format; all zero without a picture. Any thread.
std::array<double, 3> meanColour(const QImage& picture);

/// The darkest places of a picture of any format, darkest first, at most so many: each at least
/// 50 grey levels darker than the mean, and 25 pixels away from the others. Any thread.
QVector<QPoint> darkSpots(const QImage& picture, int most);

/// Mean absolute difference in grey levels of two pictures of the same size; -1 where the
/// sizes differ or there is no picture. Any thread.
double pictureDifference(const QImage& first, const QImage& second);
