#pragma once

#include <vector>

#include <QPoint>
#include <QRect>

#include <opencv2/core/mat.hpp>

class QPainter;

/// A measurement point as it is marked in the picture.
struct PointMarker
{
    QPoint position; ///< image pixels
    const char* label;
};

/// Part of an image that the marker of a point at position can change, image pixels.
QRect markedArea(QPoint position);

/// Draws a red cross at the marker's position and its label beside it into an RGB24 image
/// (rows x columns x 3, 8 bits). What falls outside is left out. One thread
/// at a time for each image.
void drawPointMarker(cv::Mat& image, const PointMarker& marker);

/// Paints area (image pixels) of an RGB24 frame with all markers that reach into it, at its
/// place on a picture of the frame's size. What falls outside the frame is left out; the
/// frame stays as it is. GUI thread.
void paintMarkedArea(QPainter& painter, const cv::Mat& frame, const QRect& area,
                     const std::vector<PointMarker>& markers);
