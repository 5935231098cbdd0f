#pragma once

#include <utility>
#include <vector>

#include <QMouseEvent>
#include <QPainter>
#include <QSignalSpy>
#include <QtTest>

#include <opencv2/imgproc.hpp>

#include "CalibrationFrame.h"
#include "QC/QC_measure.h"
#include "support/LogRecorder.h"

constexpr QSize kFrame(2592, 1944);
constexpr QSize kView(640, 480);
inline const QColor kNavigatorColor(255, 255, 0);

inline void send(QWidget& widget, QEvent::Type type, QPointF position)
{
    QMouseEvent event(type, position, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&widget, &event);
}

inline void press(QWidget& widget, QPointF position)
{
    send(widget, QEvent::MouseButtonPress, position);
}

inline void move(QWidget& widget, QPointF position)
{
    send(widget, QEvent::MouseMove, position);
}

inline void release(QWidget& widget, QPointF position)
{
    send(widget, QEvent::MouseButtonRelease, position);
}

inline void drag(QWidget& widget, QPointF from, QPointF to)
{
    press(widget, from);
    move(widget, to);
    release(widget, to);
}

/// A marked point as the picture has to show it.
struct Marked
{
    QPoint position;
    const char* label;
};

/// Where the navigator shows the unzoomed view that begins at a frame pixel.
inline QRect positionOf(QPoint offset)
{
    return {offset.x() * 80 / kFrame.width(), offset.y() * 60 / kFrame.height(), 20, 15};
}

/// The widget's pixels, drawn step by step on a copy of the whole frame.
inline QImage expectedView(const CalibrationFrame& frame, QPoint offset, const QRect& position,
                           const std::vector<Marked>& points = {}, QPoint target = QPoint(-1000, -1000))
{
    std::vector<unsigned char> bytes = frame.bytes();
    cv::Mat image(kFrame.height(), kFrame.width(), CV_8UC3, bytes.data());
    for (const Marked& point : points) {
        const int x = point.position.x();
        const int y = point.position.y();
        cv::line(image, {x - 15, y}, {x + 15, y}, cv::Scalar(255, 0, 0), 1, 8);
        cv::line(image, {x, y - 15}, {x, y + 15}, cv::Scalar(255, 0, 0), 1, 8);
        cv::putText(image, point.label, {x + 8, y - 8}, 0, 0.35, cv::Scalar(0, 255, 255), 1, 8, false);
    }
    const QImage whole(bytes.data(), kFrame.width(), kFrame.height(), kFrame.width() * 3,
                       QImage::Format_RGB888);
    QImage view = whole.copy(QRect(offset, kView)).convertToFormat(QImage::Format_RGB32);
    QPainter painter(&view);
    painter.setPen(kNavigatorColor);
    painter.drawRect(QRect(QPoint(0, 0), QPoint(79, 59)));
    painter.drawRect(position);
    painter.setPen(Qt::green);
    const QPoint corner = target - offset - QPoint(20, 20);
    painter.drawRect(QRect(corner, corner + QPoint(39, 39)));
    return view;
}

/// The same of the unzoomed view.
inline QImage expectedView(const CalibrationFrame& frame, QPoint offset,
                           const std::vector<Marked>& points = {}, QPoint target = QPoint(-1000, -1000))
{
    return expectedView(frame, offset, positionOf(offset), points, target);
}

inline QImage shown(QWidget& widget)
{
    return widget.grab().toImage().convertToFormat(QImage::Format_RGB32);
}

/// A frame whose every neighbourhood looks different, so that a shift shows.
inline CalibrationFrame patternedFrame()
{
    static const CalibrationFrame pattern = [] {
        CalibrationFrame frame(kFrame);
        unsigned char* pixel = frame.data();
        for (int y = 0; y < kFrame.height(); ++y)
            for (int x = 0; x < kFrame.width(); ++x, pixel += 3) {
                pixel[0] = static_cast<unsigned char>(x % 251);
                pixel[1] = static_cast<unsigned char>(100 + (x / 16 + y / 16) % 100);
                pixel[2] = static_cast<unsigned char>(y % 241);
            }
        return frame;
    }();
    return pattern;
}

/// Pans so that frame pixel place is inside the view, then presses there in targeting mode.
inline QPoint aimAt(QC_measure& widget, QPoint place)
{
    widget.setTargetingMode(false);
    for (int i = 0; i < 5; ++i) // back to the top left corner
        drag(widget, {0, 0}, {639, 479});
    const QPoint offset(qBound(0, place.x() - 320, 1952), qBound(0, place.y() - 240, 1464));
    press(widget, {0, 0});
    move(widget, -offset);
    release(widget, -offset);
    widget.setTargetingMode(true);
    const QPoint position = place - offset;
    press(widget, position);
    release(widget, position);
    return offset;
}

/// A round dark thing on a frame.
struct Dot
{
    QPoint place;
    int radius;
};

/// The widget as the panel shows it, with a frame in it, and what it tells.
class FrozenWidget : public QC_measure
{
public:
    explicit FrozenWidget(CalibrationFrame background = patternedFrame(), const std::vector<Dot>& dots = {})
        : frame(std::move(background))
    {
        for (const Dot& dot : dots)
            frame.dot(dot.place, dot.radius);
        resize(kView);
        setImageData(frame.data());
    }

    /// Marks a point at a place of the frame, aiming at it. Returns the view's offset.
    QPoint mark(int index, QPoint place)
    {
        const QPoint offset = aimAt(*this, place);
        setPoint(index);
        return offset;
    }

    /// The place of a point that was told, oldest first.
    QPoint toldPoint(int index) const
    {
        return {points.at(index).at(1).toInt(), points.at(index).at(2).toInt()};
    }

    CalibrationFrame frame;
    QSignalSpy points{this, &QC_measure::sig_measure_point};
    QSignalSpy errors{this, &QC_measure::sig_measure_error};
};

/// A point that was told as lost, and nothing found.
inline bool noCellWasTold(const QSignalSpy& errors)
{
    return errors.count() == 1 && errors.at(0).at(0).value<TargetingError_e>() == TARGETING_NO_CELL;
}

/// What the widget measures between its points, and tells once.
inline MeasureInfo_t measured(QC_measure& widget)
{
    const LogRecorder silence;
    QSignalSpy results(&widget, &QC_measure::sig_measure_result);
    widget.measure2Point();
    if (results.count() != 1)
        qFatal("%d results of one measurement", results.count());
    return results.first().first().value<MeasureInfo_t>();
}
