#pragma once

#include <memory>
#include <vector>

#include <QFrame>
#include <QMetaType>
#include <QPixmap>

#include "QC/Navigation.h"
#include "QC/TwoPointMeasurement.h"

class TargetSearch;
namespace cv {
template <typename Value>
class Point_;
} // namespace cv

/// Why no measurement point was found under the target.
enum TargetingError_e {
    TARGETING_NO_CELL = 0,        ///< no object in the search window
    TARGETING_TOO_MANY_CELLS = 1, ///< more than one object in it
};
Q_DECLARE_METATYPE(TargetingError_e)

/// Still 5-megapixel image of the calibration target: pan it, put a target marker on a dot,
/// have the dot's exact centre found, measure between two such points. GUI thread.
///
/// Image pixels count from the frame's top left corner. Memory for the frame is taken with
/// the first frame, the search's with the first search; both are kept until the end.
class QC_measure : public QFrame
{
    Q_OBJECT

public:
    explicit QC_measure(QWidget* parent = nullptr);
    ~QC_measure() override;

    /// Stores a copy of a frame of 2592 x 1944 pixels, RGB24, rows without padding
    /// (15,116,544 bytes), and shows its top left corner. The measurement points stay.
    /// A null pointer takes the frame away: the window's colour is shown, and no cell is found.
    void setImageData(unsigned char* rgb);
    /// Sets the image size in pixels, here and in the navigator.
    void setImageSize(unsigned int width, unsigned int height);
    /// On: the mouse places the target marker, and an older marker is gone. Off: it pans.
    void setTargetingMode(bool on);
    /// Finds point 1 (index 0) or 2 (index 1) under the target and marks it in the picture,
    /// or reports by sig_measure_error why not. Another index searches and stores nothing.
    /// Takes as long as the filters take over the whole frame.
    void setPoint(int index);
    /// Zooms the view by 1.0 or more; a smaller factor leaves the zoom as it is.
    void setScale(double scale);
    /// Measures between the two points; one that was not found counts as (0, 0), so that
    /// the result may hold infinities. Emits sig_measure_result.
    void measure2Point();

    /// Distance of two points in pixels.
    float diameter(cv::Point_<int> point1, cv::Point_<int> point2) const;
    /// value rounded to a multiple of 1 / factor, halves away from zero.
    float round2(float value, float factor) const;
    /// Means of the channels, 0 to 255, of an RGB24 frame of width x height pixels, rows
    /// without padding. Throws cv::Exception for a null pointer or an empty frame.
    void getIntensityMean(unsigned char* rgb, int width, int height, float& red, float& green,
                          float& blue) const;

signals:
    /// Point index (0 or 1) was found at (x, y), image pixels.
    void sig_measure_point(int index, int x, int y);
    void sig_measure_result(MeasureInfo_t info);
    void sig_measure_error(TargetingError_e error);

protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

private:
    struct MeasurePoint
    {
        bool set = false;
        QPoint position;
    };

    QPoint clampedOffset(QPoint offset) const;
    void showOffset(QPoint offset);
    void dropFrame();
    bool holdsWholeFrame() const;
    void makePicture();
    void markPoints();

    QSize m_imageSize;
    int m_bitsPerPixel = 0;
    std::unique_ptr<unsigned char[]> m_image;
    double m_scale = 1.0;
    QPixmap m_picture;
    bool m_mousePressed = false;
    Navigation m_navigation;
    QPoint m_viewOffset;
    QPoint m_lastMouse;
    bool m_targetingMode = false;
    bool m_targetSet = false;
    QPoint m_target;
    MeasurePoint m_points[2];
    MeasureInfo_t m_MeasureInfo = {};
    std::unique_ptr<TargetSearch> m_search;
    std::vector<QRect> m_markedAreas; ///< parts of the picture that differ from the frame
};
