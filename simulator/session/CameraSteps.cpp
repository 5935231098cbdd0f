#include "simulator/session/SessionSteps.h"

#include <cmath>

#include "simulator/instrument/SimulatedInstrument.h"
#include "simulator/session/PictureMeasures.h"

namespace {

// The mean grey level that the trimmed picture is to have, and the difference that nobody sees.
constexpr double kStatedBrightness = 160.0;
constexpr double kBrightnessTolerance = 2.0;
constexpr double kDark = 12.0;
constexpr int kDimLevel = 100;
constexpr int kMostPresses = 60;
// Roughly the change of brightness by one press of a coarse exposure button.
constexpr double kBrightnessPerPress = 0.45;
constexpr int kMostPressesAtOnce = 20;
constexpr int kColourPresses = 6;
constexpr double kLeastColourChange = 3.0;
constexpr int kRegisterDigits = 4;
constexpr int kHexadecimal = 16;
constexpr int kByte = 256;

struct Control
{
    QString name; ///< as in EDIT_name and BUTTON_name_FINE_UP
    std::uint16_t highRegister;
};

int shownRegisters(SessionContext& session, const QString& edit)
{
    bool ok = false;
    const int value = session.user.text(edit).right(kRegisterDigits).toInt(&ok, kHexadecimal);
    return ok ? value : -1;
}

int trueRegisters(SessionContext& session, const Control& control)
{
    const SimulatedDeviceCalls& camera = session.instrument.camera();
    return camera.sensorRegister(control.highRegister) * kByte +
           camera.sensorRegister(static_cast<std::uint16_t>(control.highRegister + 1));
}

bool matches(SessionContext& session, const Control& control)
{
    return shownRegisters(session, "EDIT_" + control.name) == trueRegisters(session, control);
}

QString registersText(SessionContext& session, const Control& control)
{
    return QString::asprintf("%s 0x%04X", qPrintable(control.name.toLower()),
                             trueRegisters(session, control));
}

Measurement statedBrightness(double brightness)
{
    return {"brightness", "grey levels", brightness, kStatedBrightness, kBrightnessTolerance};
}

} // namespace

StepResult steps::led(SessionContext& session)
{
    session.user.click("BUTTON_RESOLUTION_1280");
    session.user.click("BUTTON_LED");
    const double off = session.brightness();
    const bool wentOut = !session.instrument.light().ledOn;
    session.user.takePicture("led-off");
    session.user.click("BUTTON_LED");
    session.user.type("EDIT_LED", QString::number(kDimLevel));
    const double dim = session.brightness();
    double brightness = dim;
    for (int press = 0; press < kMostPresses && std::abs(brightness - kStatedBrightness) > 1.0; ++press) {
        const double missing = kStatedBrightness - brightness;
        const QString size = std::abs(missing) > kBrightnessTolerance * 4 ? "COARSE" : "FINE";
        if (!session.user.click("BUTTON_LED_" + size + (missing > 0 ? "_UP" : "_DOWN")))
            break;
        brightness = session.brightness();
    }
    session.user.takePicture("led-trimmed");
    const BoardLight light = session.instrument.light();
    const QString level = session.user.text("EDIT_LED");
    return {off < kDark && wentOut && light.ledOn && level == QString::number(light.ledLevel),
            QStringLiteral("brightness %1 off, %2 at %3, %4 at %5")
                .arg(number(off), number(dim))
                .arg(kDimLevel)
                .arg(number(brightness, 1), level),
            lightText(light),
            {statedBrightness(brightness)}};
}

StepResult steps::gain(SessionContext& session)
{
    const Control gain{"GAIN", 0x350A};
    const double before = session.brightness();
    session.user.click("BUTTON_GAIN_FINE_UP");
    const double after = session.brightness();
    return {matches(session, gain) && after > before + kBrightnessTolerance,
            QStringLiteral("%1, brightness %2 to %3")
                .arg(session.user.text("EDIT_GAIN"), number(before), number(after)),
            registersText(session, gain)};
}

StepResult steps::exposure(SessionContext& session)
{
    const Control exposure{"EXPOSURE", 0x3501};
    const QString before = session.user.text("EDIT_EXPOSURE");
    double brightness = session.brightness();
    for (int round = 0; round < kMostPresses && std::abs(brightness - kStatedBrightness) > 1.0; ++round) {
        const double missing = kStatedBrightness - brightness;
        const int presses =
            qBound(1, static_cast<int>(std::abs(missing) / kBrightnessPerPress), kMostPressesAtOnce);
        for (int press = 0; press < presses; ++press)
            session.user.click(missing > 0 ? "BUTTON_EXPOSURE_COARSE_UP" : "BUTTON_EXPOSURE_COARSE_DOWN");
        brightness = session.brightness();
    }
    session.user.takePicture("exposure-trimmed");
    return {matches(session, exposure),
            QStringLiteral("%1 to %2, brightness %3")
                .arg(before, session.user.text("EDIT_EXPOSURE"), number(brightness, 1)),
            QStringLiteral("%1, %2 lines")
                .arg(registersText(session, exposure), number(session.instrument.sensor().exposure_lines, 1)),
            {statedBrightness(brightness)}};
}

StepResult steps::colours(SessionContext& session)
{
    const Control colours[] = {{"COLOR_RED", 0x3400}, {"COLOR_GREEN", 0x3402}, {"COLOR_BLUE", 0x3404}};
    bool holds = true;
    QStringList seen;
    QStringList truth;
    for (std::size_t channel = 0; channel < 3; ++channel) {
        const Control& colour = colours[channel];
        const int start = shownRegisters(session, "EDIT_" + colour.name);
        session.settle();
        const double before = meanColour(session.user.liveView())[channel];
        for (int press = 0; press < kColourPresses; ++press)
            session.user.click("BUTTON_" + colour.name + "_COARSE_UP");
        session.settle();
        const double after = meanColour(session.user.liveView())[channel];
        session.user.takePicture(colour.name.toLower().replace('_', '-'));
        seen.append(QStringLiteral("%1 %2 from %3 to %4")
                        .arg(colour.name.toLower().mid(6), session.user.text("EDIT_" + colour.name),
                             number(before), number(after)));
        truth.append(registersText(session, colour).mid(6));
        holds = holds && matches(session, colour) && after > before + kLeastColourChange;
        for (int press = 0; press < kColourPresses; ++press)
            session.user.click("BUTTON_" + colour.name + "_COARSE_DOWN");
        holds = holds && matches(session, colour) && shownRegisters(session, "EDIT_" + colour.name) == start;
    }
    return {holds, seen.join(", "), truth.join(", ")};
}

StepResult steps::staining(SessionContext& session)
{
    const Control exposure{"EXPOSURE", 0x3501};
    const QString saved = session.user.text("EDIT_EXPOSURE");
    session.user.click("BUTTON_STAINING_TB");
    session.settle();
    const QString stained = session.user.text("EDIT_EXPOSURE");
    const bool stainedMatches = matches(session, exposure);
    session.user.takePicture("staining-tb");
    session.user.click("BUTTON_STAINING_NTB");
    session.settle();
    const QString back = session.user.text("EDIT_EXPOSURE");
    return {stainedMatches && matches(session, exposure) && back == saved,
            QStringLiteral("exposure %1 in TB, %2 in NTB").arg(stained, back),
            QStringLiteral("%1, as saved %2").arg(registersText(session, exposure), saved)};
}
