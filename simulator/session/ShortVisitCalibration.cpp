// The short visit's calibration: the target, its two points, the result, the intensity.

#include <algorithm>
#include <array>
#include <cmath>

#include "simulator/SimulatedInstrument.h"
#include "simulator/session/ShortVisit.h"

namespace {

constexpr int kAnswer_ms = 20000;
constexpr int kFrames_ms = 15000;
constexpr int kFramesUnderWay = 8;

constexpr QSize kView(640, 480);
constexpr int kStroke_px = 300;
// A point is cut off to whole pixels.
constexpr double kPointLimit_px = 1.0;
// A point off by a pixel at either end changes a thousand pixels by two at most.
constexpr double kMagnificationLimit = 0.003;
constexpr double kSensorPixel_um = 1.4;
constexpr double kPixelsPerTenth = 100.0;
constexpr double kIntensityLimit = 0.5;

QString coordinates(const SlidePoint& point)
{
    return QStringLiteral("%1, %2").arg(point.x_px, 0, 'f', 1).arg(point.y_px, 0, 'f', 1);
}

bool isNear(const QString& shown, const SlidePoint& truth)
{
    const QStringList numbers = shown.split(QStringLiteral(", "));
    return numbers.size() == 2 && std::abs(numbers[0].toInt() - truth.x_px) <= kPointLimit_px &&
           std::abs(numbers[1].toInt() - truth.y_px) <= kPointLimit_px;
}

// The target's distance is a whole number of tenths of a millimetre, a hundred pixels each.
double trueMagnification(double distance_px)
{
    return distance_px * kSensorPixel_um / (std::round(distance_px / kPixelsPerTenth) * kPixelsPerTenth);
}

int clampedOffset(int place, int view, int frame)
{
    return std::clamp(place - view / 2, 0, frame - view);
}

std::array<double, 3> meanColour(const QImage& picture)
{
    std::array<double, 3> sums{};
    for (int y = 0; y < picture.height(); ++y)
        for (int x = 0; x < picture.width(); ++x) {
            const QRgb pixel = picture.pixel(x, y);
            sums[0] += qRed(pixel);
            sums[1] += qGreen(pixel);
            sums[2] += qBlue(pixel);
        }
    for (double& sum : sums)
        sum /= double(picture.width()) * picture.height();
    return sums;
}

} // namespace

/// Drags the frozen frame from its offset until a place of it is near the view's middle.
void ShortVisit::panTo(const QPoint& place, QPoint& offset)
{
    const QPoint wanted(clampedOffset(place.x(), kView.width(), kFullWidth_px),
                        clampedOffset(place.y(), kView.height(), kFullHeight_px));
    while (offset != wanted && !m_hand.hasGivenUp()) {
        const QPoint rest = offset - wanted;
        const QPoint stroke(std::clamp(rest.x(), -kStroke_px, kStroke_px),
                            std::clamp(rest.y(), -kStroke_px, kStroke_px));
        const QPoint from = QPoint(kView.width(), kView.height()) / 2 - stroke / 2;
        if (!m_hand.drag("QC_MEASURE", from, from + stroke))
            return;
        offset -= stroke;
    }
}

bool ShortVisit::freezeTarget()
{
    m_instrument.putSlide(SlideKind::Target);
    moveTo(static_cast<int>(std::lround(m_instrument.bestFocus_steps())));
    m_hand.click("BUTTON_RESOLUTION_1280");
    m_hand.waitForFrames(kFramesUnderWay, kFrames_ms);
    m_hand.click("BUTTON_QC_CAPTURE");
    return m_hand.waitUntil([this] { return m_hand.windowIsEnabled() && m_hand.isShown("QC_MEASURE"); },
                            kAnswer_ms, QStringLiteral("no frame is frozen"));
}

StepResult ShortVisit::calibrate()
{
    const SlideKind slideBefore = m_instrument.slide().kind();
    if (!freezeTarget()) {
        m_instrument.putSlide(slideBefore);
        return {};
    }
    m_hand.takePicture("frozen");
    const std::vector<SlidePoint> dots = m_instrument.slide().targetDots();
    const double distance_px = m_instrument.slide().targetDistance_px();
    QPoint offset;
    bool holds = true;
    for (std::size_t i = 0; i < dots.size(); ++i) {
        const QString name = QString::number(i + 1);
        const QPoint place(static_cast<int>(std::lround(dots[i].x_px)),
                           static_cast<int>(std::lround(dots[i].y_px)));
        m_hand.setChecked("CHECK_TARGET", false);
        panTo(place, offset);
        m_hand.setChecked("CHECK_TARGET", true);
        m_hand.drag("QC_MEASURE", place - offset, place - offset);
        m_hand.click("BUTTON_POINT_" + name);
        m_hand.takePicture("point-" + name);
        holds = isNear(m_hand.text("EDIT_POINT_" + name), dots[i]) && holds;
    }
    m_hand.click("BUTTON_QC_MEASURE");
    m_hand.takePicture("measured");
    const double truth = trueMagnification(distance_px);
    const QString magnification = m_hand.text("EDIT_MAGNIFICATION");
    holds = holds && std::abs(magnification.toDouble() - truth) <= kMagnificationLimit;
    const QString seen = QStringLiteral("points %1 and %2, magnification %3, volume factor %4")
                             .arg(m_hand.text("EDIT_POINT_1"), m_hand.text("EDIT_POINT_2"), magnification,
                                  m_hand.text("EDIT_VOLUME_FACTOR"));

    m_hand.click("BUTTON_QC_CAPTURE");
    m_instrument.putSlide(slideBefore);
    const bool live = m_hand.waitForFrames(kFramesUnderWay, kFrames_ms) && !m_hand.isShown("QC_MEASURE");
    return {holds && live, seen,
            QStringLiteral("dots %1 and %2, magnification %3")
                .arg(coordinates(dots.front()), coordinates(dots.back()))
                .arg(truth, 0, 'f', 3)};
}

StepResult ShortVisit::intensity()
{
    // In this mode the view shows the frame pixel by pixel.
    m_hand.click("BUTTON_RESOLUTION_VGA");
    m_hand.setChecked("CHECK_SCALED_TO_FIT", true);
    m_hand.waitForFrames(kFramesUnderWay, kFrames_ms);
    m_hand.click("BUTTON_INTENSITY");
    const std::array<double, 3> truth = meanColour(m_hand.liveView());
    QStringList seen;
    QStringList expected;
    bool holds = true;
    for (std::size_t channel = 0; channel < truth.size(); ++channel) {
        const char* const names[] = {"EDIT_INTENSITY_RED", "EDIT_INTENSITY_GREEN", "EDIT_INTENSITY_BLUE"};
        seen.append(m_hand.text(names[channel]));
        expected.append(QString::number(truth[channel], 'f', 1));
        holds = holds && std::abs(seen.last().toDouble() - truth[channel]) <= kIntensityLimit;
    }
    m_hand.takePicture("intensity");
    return {holds, seen.join(", "), expected.join(", ")};
}
