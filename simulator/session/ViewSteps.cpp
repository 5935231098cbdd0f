#include "simulator/session/ViewSteps.h"

#include <QColor>
#include <QElapsedTimer>

#include "simulator/instrument/SimulatedInstrument.h"
#include "simulator/session/PictureMeasures.h"

namespace {

constexpr int kRateSpan_ms = 2000;
constexpr double kMsPerSecond = 1000.0;
constexpr double kDarkest = 30.0;
constexpr double kBrightest = 250.0;
constexpr double kLeastContrast = 2.0;
constexpr double kLeastDifference = 0.5;
// A busy machine paints fewer frames than the device delivers; so few would look stuck.
constexpr double kLeastPartPainted = 0.2;

bool isNavigatorColour(const QImage& view, int x, int y)
{
    return QColor(view.pixel(x, y)) == QColor(255, 255, 0);
}

} // namespace

struct ViewSteps::View
{
    QString button;
    QString name;
    /// Lower right corner of the navigator's position rectangle in the unscaled view: as
    /// large as the part of the frame that is on the screen.
    QPoint navigatorCorner;
};

StepResult ViewSteps::viewVga()
{
    return lookAt({"BUTTON_RESOLUTION_VGA", "vga", {80, 60}});
}

StepResult ViewSteps::view1280()
{
    return lookAt({"BUTTON_RESOLUTION_1280", "1280", {40, 30}});
}

StepResult ViewSteps::view5M()
{
    return lookAt({"BUTTON_RESOLUTION_5M", "5m", {20, 15}});
}

double ViewSteps::countFrames(double& delivered_hz)
{
    QElapsedTimer clock;
    clock.start();
    const int painted = m_operator.paintedFrames();
    const auto delivered = m_instrument.camera().counters().framesDelivered;
    m_operator.wait(kRateSpan_ms);
    const double span_s = static_cast<double>(clock.elapsed()) / kMsPerSecond;
    delivered_hz = static_cast<double>(m_instrument.camera().counters().framesDelivered - delivered) / span_s;
    return (m_operator.paintedFrames() - painted) / span_s;
}

StepResult ViewSteps::lookAt(const View& view)
{
    m_operator.click(view.button);
    m_operator.setChecked("CHECK_SCALED_TO_FIT", true);
    m_context.settle();
    double delivered_hz = 0.0;
    const double painted_hz = countFrames(delivered_hz);
    const PictureMeasures measures = measurePicture(m_operator.liveView());
    m_operator.takePicture(QStringLiteral("live-view-") + view.name);

    m_operator.setChecked("CHECK_SCALED_TO_FIT", false);
    m_context.settle();
    const QImage unscaled = m_operator.liveView();
    m_operator.takePicture(QStringLiteral("unscaled-") + view.name);
    m_operator.setChecked("CHECK_SCALED_TO_FIT", true);
    const bool rightSize = isNavigatorColour(unscaled, view.navigatorCorner.x(), view.navigatorCorner.y());
    const bool differs =
        m_lastUnscaledView.isNull() || pictureDifference(m_lastUnscaledView, unscaled) > kLeastDifference;
    m_lastUnscaledView = unscaled;

    const bool isEmptySlide = m_instrument.slide().kind() == SlideKind::Empty;
    const bool sensible = measures.brightness > kDarkest && measures.brightness < kBrightest &&
                          (isEmptySlide || measures.contrast > kLeastContrast);
    const SensorSettings sensor = m_instrument.sensor();
    return {painted_hz > 0.0 && painted_hz >= kLeastPartPainted * delivered_hz && rightSize && differs &&
                sensible,
            QStringLiteral("%1 frames/s, brightness %2, contrast %3%4%5")
                .arg(number(painted_hz, 1), number(measures.brightness), number(measures.contrast, 1),
                     rightSize ? "" : ", navigator of another size",
                     differs ? "" : ", the same picture as before"),
            QStringLiteral("%1 frames/s, %2, exposure %3 lines, gain %4")
                .arg(number(delivered_hz, 1), lightText(m_instrument.light()), number(sensor.exposure_lines),
                     number(sensor.gain, 1))};
}
