#include "simulator/session/SessionSteps.h"

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
// A busy machine paints fewer frames than the device delivers; below this part the view would
// look stuck.
constexpr double kLeastPartPainted = 0.2;

bool isNavigatorColour(const QImage& view, int x, int y)
{
    return QColor(view.pixel(x, y)) == QColor(255, 255, 0);
}

struct View
{
    QString button;
    QString name;
    /// Lower right corner of the navigator's position rectangle in the unscaled view: as
    /// large as the part of the frame that is on the screen.
    QPoint navigatorCorner;
};

double countFrames(SessionContext& session, double& delivered_hz)
{
    QElapsedTimer clock;
    clock.start();
    const int painted = session.user.paintedFrames();
    const auto delivered = session.instrument.camera().counters().framesDelivered;
    session.user.wait(kRateSpan_ms);
    const double span_s = static_cast<double>(clock.elapsed()) / kMsPerSecond;
    delivered_hz =
        static_cast<double>(session.instrument.camera().counters().framesDelivered - delivered) / span_s;
    return (session.user.paintedFrames() - painted) / span_s;
}

StepResult lookAt(SessionContext& session, const View& view)
{
    session.user.click(view.button);
    session.user.setChecked("CHECK_SCALED_TO_FIT", true);
    session.settle();
    double delivered_hz = 0.0;
    const double painted_hz = countFrames(session, delivered_hz);
    const PictureMeasures measures = measurePicture(session.user.liveView());
    session.user.takePicture(QStringLiteral("live-view-") + view.name);

    session.user.setChecked("CHECK_SCALED_TO_FIT", false);
    session.settle();
    const QImage unscaled = session.user.liveView();
    session.user.takePicture(QStringLiteral("unscaled-") + view.name);
    session.user.setChecked("CHECK_SCALED_TO_FIT", true);
    const bool rightSize = isNavigatorColour(unscaled, view.navigatorCorner.x(), view.navigatorCorner.y());
    const bool differs = session.findings.lastUnscaledView.isNull() ||
                         pictureDifference(session.findings.lastUnscaledView, unscaled) > kLeastDifference;
    session.findings.lastUnscaledView = unscaled;

    const bool isEmptySlide = session.instrument.slide().kind() == SlideKind::Empty;
    const bool sensible = measures.brightness > kDarkest && measures.brightness < kBrightest &&
                          (isEmptySlide || measures.contrast > kLeastContrast);
    const SensorSettings sensor = session.instrument.sensor();
    return {painted_hz > 0.0 && painted_hz >= kLeastPartPainted * delivered_hz && rightSize && differs &&
                sensible,
            QStringLiteral("%1 frames/s, brightness %2, contrast %3%4%5")
                .arg(number(painted_hz, 1), number(measures.brightness), number(measures.contrast, 1),
                     rightSize ? "" : ", navigator of another size",
                     differs ? "" : ", the same picture as before"),
            QStringLiteral("%1 frames/s, %2, exposure %3 lines, gain %4")
                .arg(number(delivered_hz, 1), lightText(session.instrument.light()),
                     number(sensor.exposure_lines), number(sensor.gain, 1))};
}

} // namespace

StepResult steps::viewVga(SessionContext& session)
{
    return lookAt(session, {"BUTTON_RESOLUTION_VGA", "vga", {80, 60}});
}

StepResult steps::view1280(SessionContext& session)
{
    return lookAt(session, {"BUTTON_RESOLUTION_1280", "1280", {40, 30}});
}

StepResult steps::view5M(SessionContext& session)
{
    return lookAt(session, {"BUTTON_RESOLUTION_5M", "5m", {20, 15}});
}
