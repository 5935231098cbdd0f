#pragma once

#include <vector>

#include <opencv2/core/mat.hpp>

#include <QPoint>
#include <QRect>
#include <QSize>

/// A stored frame, borrowed: rows without padding, 24 (RGB) or 8 (grey) bits per pixel.
struct FrameView
{
    const unsigned char* data;
    QSize size_px;
    int bitsPerPixel;
};

/// Part of the image that is searched around target, 40 x 40 pixels where it fits; empty
/// for a target far outside the image.
QRect searchWindow(QPoint target, QSize imageSize_px);

/// Finds the one dark object under a target marker.
///
/// Keeps its two working planes (one byte a pixel each) from search to search. One thread
/// at a time.
class TargetSearch
{
public:
    /// How many objects lie under the marker.
    enum class Outcome {
        Found,
        NoObject,
        ManyObjects,
    };

    /// The point is meaningful only where one object was found.
    struct Result
    {
        Outcome outcome;
        QPoint point; ///< centre of the object's enclosing circle, image pixels
    };

    /// Searches around target (image pixels). Dark is a green (or grey) value of 50 or less.
    /// May throw what the image library throws when its memory runs out.
    Result find(const FrameView& frame, QPoint target);

private:
    void filter(const FrameView& frame);

    cv::Mat m_plane;
    cv::Mat m_smooth;
    std::vector<std::vector<cv::Point>> m_contours;
};
