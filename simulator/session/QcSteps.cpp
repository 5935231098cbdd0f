#include "simulator/session/SessionSteps.h"

#include <algorithm>
#include <cmath>

#include "simulator/instrument/SimulatedInstrument.h"
#include "simulator/session/PictureMeasures.h"

namespace {

constexpr QSize kFrame(kFullWidth_px, kFullHeight_px);
constexpr QSize kView(640, 480);
// A finger meets a dot, but not its middle.
constexpr QPoint kBesideTheDot(5, -4);
constexpr QPoint kWideOfTheDot(0, 120);
// One pixel for the cut to whole numbers, and half of one for noise in the search.
constexpr double kPointTolerance_px = 1.5;
constexpr double kLengthTolerance_px = 1.5;
constexpr double kIntensityTolerance = 3.0;
// A dot covers about four pixels of the live view.
constexpr double kSpotTolerance_px = 4.0;

constexpr double kPixelPitch_um = 1.4;
constexpr double kPixelsPerMm = 1000.0;
constexpr double kUmPerMm = 1000.0;
constexpr double kChamberDepth_mm = 0.1;

QPoint nearest(const SlidePoint& place)
{
    return {qRound(place.x_px), qRound(place.y_px)};
}

// Where the live view of the whole field, scaled to fit, shows a place.
QPointF inLiveView(const SlidePoint& place)
{
    const double scale = static_cast<double>(kView.width()) / kFrame.width();
    return {(place.x_px + 0.5) * scale - 0.5, (place.y_px + 0.5) * scale - 0.5};
}

QString placeText(const QPointF& place)
{
    return QStringLiteral("(%1, %2)").arg(number(place.x()), number(place.y()));
}

double magnification(double length_px, double length_mm)
{
    return length_px * kPixelPitch_um / (length_mm * kUmPerMm);
}

double volumeFactor(double length_px, double length_mm)
{
    const double pixel_mm = length_mm / length_px;
    return kFrame.width() * pixel_mm * kFrame.height() * pixel_mm * kChamberDepth_mm;
}

QPointF pointShown(SessionContext& session, const QString& edit)
{
    const QStringList parts = session.user.text(edit).split(", ");
    bool isNumber[2] = {};
    const QPointF point(parts.value(0).toInt(&isNumber[0]), parts.value(1).toInt(&isNumber[1]));
    return isNumber[0] && isNumber[1] ? point : QPointF(kNotTaken, kNotTaken);
}

// If a box comes up instead of a result, the old result is still shown.
bool pressWithoutBox(SessionContext& session, const QString& button)
{
    const int boxesBefore = session.user.boxes().size();
    return session.user.click(button) && session.user.boxes().size() == boxesBefore;
}

} // namespace

StepResult steps::slide(SessionContext& session)
{
    session.instrument.putSlide(SlideKind::Target);
    session.user.click("BUTTON_RESOLUTION_1280");
    session.user.setChecked("CHECK_SCALED_TO_FIT", true);
    const bool running = session.settle();
    session.user.takePicture("target");
    const QVector<QPoint> spots = running ? darkSpots(session.user.liveView(), 2) : QVector<QPoint>();
    bool found = spots.size() == 2;
    QStringList truth;
    for (const SlidePoint& dot : session.instrument.slide().targetDots()) {
        const QPointF place = inLiveView(dot);
        truth.append(placeText(place));
        found = found && std::any_of(spots.begin(), spots.end(), [&](const QPoint& spot) {
                    return std::hypot(spot.x() - place.x(), spot.y() - place.y()) <= kSpotTolerance_px;
                });
    }
    QStringList seen;
    for (const QPoint& spot : spots)
        seen.append(placeText(spot));
    return {found,
            !running         ? QStringLiteral("live view stands still")
            : seen.isEmpty() ? QStringLiteral("no dot in the live view")
                             : QStringLiteral("dots at %1 of the live view").arg(seen.join(" and ")),
            QStringLiteral("dots at %1, %2 pixels of the sensor apart")
                .arg(truth.join(" and "), number(session.instrument.slide().targetDistance_px(), 1))};
}

StepResult steps::freeze(SessionContext& session)
{
    if (session.user.click("BUTTON_QC_CAPTURE"))
        session.user.waitUntil(
            [&] { return session.user.windowIsEnabled() && session.user.isShown("QC_MEASURE"); },
            session.patience * kAnswer_ms, QStringLiteral("no picture is frozen"));
    session.frozenFrame.startOver();
    session.user.takePicture("frozen");
    const QString caption = session.user.text("BUTTON_QC_CAPTURE");
    const auto mappings = session.instrument.camera().openMappings();
    return {caption == "Live" && mappings == 0, QStringLiteral("the button says \"%1\"").arg(caption),
            QStringLiteral("%1 frame buffers mapped").arg(mappings)};
}

StepResult steps::miss(SessionContext& session)
{
    const std::vector<SlidePoint> dots = session.instrument.slide().targetDots();
    session.frozenFrame.aimAt(nearest(dots.at(0)) + kWideOfTheDot);
    const QString before = session.user.text("EDIT_POINT_1");
    session.user.expectBox("OK");
    session.user.click("BUTTON_POINT_1");
    const bool told = session.boxWas("Error", "Cell not detected !");
    session.waitUntilEnabled(QStringLiteral("the window stays disabled after a search"));
    return {told && session.user.text("EDIT_POINT_1") == before, told ? "told" : "not told",
            QStringLiteral("no dot within %1 pixels").arg(kWideOfTheDot.y())};
}

StepResult steps::points(SessionContext& session)
{
    const std::vector<SlidePoint> dots = session.instrument.slide().targetDots();
    std::vector<Measurement> measurements;
    QPointF found[2];
    for (std::size_t index = 0; index < 2; ++index) {
        const QString digit = QString::number(index + 1);
        session.frozenFrame.aimAt(nearest(dots.at(index)) + kBesideTheDot);
        session.user.takePicture("aim-" + digit);
        const bool searched = pressWithoutBox(session, "BUTTON_POINT_" + digit);
        session.waitUntilEnabled(QStringLiteral("the window stays disabled after a search"));
        session.user.takePicture("point-" + digit);
        found[index] = searched ? pointShown(session, "EDIT_POINT_" + digit) : QPointF(kNotTaken, kNotTaken);
        measurements.push_back(
            {"point " + digit + " x", "px", found[index].x(), dots[index].x_px, kPointTolerance_px});
        measurements.push_back(
            {"point " + digit + " y", "px", found[index].y(), dots[index].y_px, kPointTolerance_px});
    }
    const QPointF way = found[1] - found[0];
    session.findings.foundLength_px = std::hypot(way.x(), way.y());
    const double truth = session.instrument.slide().targetDistance_px();
    measurements.push_back({"length", "px", session.findings.foundLength_px, truth, kLengthTolerance_px});
    return {true,
            QStringLiteral("(%1) and (%2), %3 pixels apart")
                .arg(session.user.text("EDIT_POINT_1"), session.user.text("EDIT_POINT_2"),
                     number(session.findings.foundLength_px, 2)),
            QStringLiteral("(%1, %2) and (%3, %4), %5 pixels apart")
                .arg(number(dots[0].x_px, 2), number(dots[0].y_px, 2), number(dots[1].x_px, 2),
                     number(dots[1].y_px, 2), number(truth, 2)),
            measurements};
}

StepResult steps::measure(SessionContext& session)
{
    const bool measured = pressWithoutBox(session, "BUTTON_QC_MEASURE");
    session.waitUntilEnabled(QStringLiteral("the window stays disabled after the measurement"));
    session.user.takePicture("measured");
    const double length_px = session.instrument.slide().targetDistance_px();
    // The program rounds the length in pixels to tenths of a millimetre. The found pixels are
    // rounded here too, as the true ones may lie on the other side of a rounding limit.
    const double length_mm = std::round(session.findings.foundLength_px / kPixelsPerMm * 10.0) / 10.0;
    const double magnificationTruth = magnification(length_px, length_mm);
    const double volumeTruth = volumeFactor(length_px, length_mm);
    const double part = kLengthTolerance_px / length_px;
    const QString magnificationText = session.user.text("EDIT_MAGNIFICATION");
    const QString volumeText = session.user.text("EDIT_VOLUME_FACTOR");
    const double magnificationFound = measured ? session.numberShown("EDIT_MAGNIFICATION") : kNotTaken;
    const double volumeFound = measured ? session.numberShown("EDIT_VOLUME_FACTOR") : kNotTaken;
    return {true,
            QStringLiteral("magnification %1, volume factor %2").arg(magnificationText, volumeText),
            QStringLiteral("magnification %1, volume factor %2")
                .arg(number(magnificationTruth, 4), number(volumeTruth, 5)),
            {{"magnification", "", magnificationFound, magnificationTruth, magnificationTruth * part},
             {"volume factor", "mm\u00B3", volumeFound, volumeTruth, volumeTruth * 2.0 * part}}};
}

StepResult steps::live(SessionContext& session)
{
    session.user.click("BUTTON_QC_CAPTURE");
    session.waitUntilEnabled(QStringLiteral("the window stays disabled after the way back"));
    const bool running = session.settle();
    const QString caption = session.user.text("BUTTON_QC_CAPTURE");
    return {running && caption == "Capture" && !session.user.isShown("QC_MEASURE"),
            QStringLiteral("the button says \"%1\", live view %2")
                .arg(caption, running ? "goes on" : "stands still"),
            {}};
}

StepResult steps::intensity(SessionContext& session)
{
    session.settle();
    const bool measured = pressWithoutBox(session, "BUTTON_INTENSITY");
    session.user.takePicture("intensity");
    const auto truth = session.instrument.fieldColour();
    const QString names[] = {"red", "green", "blue"};
    std::vector<Measurement> measurements;
    QStringList seen;
    QStringList known;
    for (std::size_t channel = 0; channel < 3; ++channel) {
        const QString edit = "EDIT_INTENSITY_" + names[channel].toUpper();
        measurements.push_back({"intensity " + names[channel], "",
                                measured ? session.numberShown(edit) : kNotTaken, truth[channel],
                                kIntensityTolerance});
        seen.append(session.user.text(edit));
        known.append(number(truth[channel], 1));
    }
    return {true, seen.join(", "), known.join(", "), measurements};
}
