#include "simulator/session/CameraSteps.h"

#include <cmath>

#include "simulator/instrument/SimulatedInstrument.h"
#include "simulator/session/PictureMeasures.h"

namespace {

// The mean grey level that the trimmed picture is to have, and what an eye lets pass.
constexpr double kStatedBrightness = 160.0;
constexpr double kBrightnessTolerance = 2.0;
constexpr double kDark = 12.0;
constexpr int kDimLevel = 100;
constexpr int kMostPresses = 60;
// What one press of a coarse exposure button changes of the stated brightness, roughly.
constexpr double kBrightnessPerPress = 0.45;
constexpr int kMostPressesAtOnce = 20;
constexpr int kColourPresses = 6;
constexpr double kLeastColourChange = 3.0;
constexpr int kRegisterDigits = 4;
constexpr int kHexadecimal = 16;
constexpr int kByte = 256;

} // namespace

struct CameraSteps::Control
{
    QString name; ///< as in EDIT_name and BUTTON_name_FINE_UP
    std::uint16_t highRegister;
};

int CameraSteps::shownRegisters(const QString& edit)
{
    bool ok = false;
    const int value = m_operator.text(edit).right(kRegisterDigits).toInt(&ok, kHexadecimal);
    return ok ? value : -1;
}

int CameraSteps::trueRegisters(const Control& control)
{
    const SimulatedDeviceCalls& camera = m_instrument.camera();
    return camera.sensorRegister(control.highRegister) * kByte +
           camera.sensorRegister(static_cast<std::uint16_t>(control.highRegister + 1));
}

bool CameraSteps::matches(const Control& control)
{
    return shownRegisters("EDIT_" + control.name) == trueRegisters(control);
}

QString CameraSteps::registersText(const Control& control)
{
    return QString::asprintf("%s 0x%04X", qPrintable(control.name.toLower()), trueRegisters(control));
}

Figure CameraSteps::brightnessFigure(double brightness)
{
    return {"brightness", "grey levels", brightness, kStatedBrightness, kBrightnessTolerance};
}

StepResult CameraSteps::led()
{
    m_operator.click("BUTTON_RESOLUTION_1280");
    m_operator.click("BUTTON_LED");
    const double off = m_context.brightness();
    const bool wentOut = !m_instrument.light().ledOn;
    m_operator.takePicture("led-off");
    m_operator.click("BUTTON_LED");
    m_operator.type("EDIT_LED", QString::number(kDimLevel));
    const double dim = m_context.brightness();
    double brightness = dim;
    for (int press = 0; press < kMostPresses && std::abs(brightness - kStatedBrightness) > 1.0; ++press) {
        const double missing = kStatedBrightness - brightness;
        const QString size = std::abs(missing) > kBrightnessTolerance * 4 ? "COARSE" : "FINE";
        if (!m_operator.click("BUTTON_LED_" + size + (missing > 0 ? "_UP" : "_DOWN")))
            break;
        brightness = m_context.brightness();
    }
    m_operator.takePicture("led-trimmed");
    const BoardLight light = m_instrument.light();
    const QString level = m_operator.text("EDIT_LED");
    return {off < kDark && wentOut && light.ledOn && level == QString::number(light.ledLevel),
            QStringLiteral("brightness %1 off, %2 at %3, %4 at %5")
                .arg(number(off), number(dim))
                .arg(kDimLevel)
                .arg(number(brightness, 1), level),
            lightText(light),
            {brightnessFigure(brightness)}};
}

StepResult CameraSteps::gain()
{
    const Control gain{"GAIN", 0x350A};
    const double before = m_context.brightness();
    m_operator.click("BUTTON_GAIN_FINE_UP");
    const double after = m_context.brightness();
    return {matches(gain) && after > before + kBrightnessTolerance,
            QStringLiteral("%1, brightness %2 to %3")
                .arg(m_operator.text("EDIT_GAIN"), number(before), number(after)),
            registersText(gain)};
}

StepResult CameraSteps::exposure()
{
    const Control exposure{"EXPOSURE", 0x3501};
    const QString before = m_operator.text("EDIT_EXPOSURE");
    double brightness = m_context.brightness();
    for (int round = 0; round < kMostPresses && std::abs(brightness - kStatedBrightness) > 1.0; ++round) {
        const double missing = kStatedBrightness - brightness;
        const int presses =
            qBound(1, static_cast<int>(std::abs(missing) / kBrightnessPerPress), kMostPressesAtOnce);
        for (int press = 0; press < presses; ++press)
            m_operator.click(missing > 0 ? "BUTTON_EXPOSURE_COARSE_UP" : "BUTTON_EXPOSURE_COARSE_DOWN");
        brightness = m_context.brightness();
    }
    m_operator.takePicture("exposure-trimmed");
    return {matches(exposure),
            QStringLiteral("%1 to %2, brightness %3")
                .arg(before, m_operator.text("EDIT_EXPOSURE"), number(brightness, 1)),
            QStringLiteral("%1, %2 lines")
                .arg(registersText(exposure), number(m_instrument.sensor().exposure_lines, 1)),
            {brightnessFigure(brightness)}};
}

StepResult CameraSteps::colours()
{
    const Control colours[] = {{"COLOR_RED", 0x3400}, {"COLOR_GREEN", 0x3402}, {"COLOR_BLUE", 0x3404}};
    bool holds = true;
    QStringList seen;
    QStringList truth;
    for (std::size_t channel = 0; channel < 3; ++channel) {
        const Control& colour = colours[channel];
        const int start = shownRegisters("EDIT_" + colour.name);
        m_context.settle();
        const double before = meanColour(m_operator.liveView())[channel];
        for (int press = 0; press < kColourPresses; ++press)
            m_operator.click("BUTTON_" + colour.name + "_COARSE_UP");
        m_context.settle();
        const double after = meanColour(m_operator.liveView())[channel];
        m_operator.takePicture(colour.name.toLower().replace('_', '-'));
        seen.append(QStringLiteral("%1 %2 from %3 to %4")
                        .arg(colour.name.toLower().mid(6), m_operator.text("EDIT_" + colour.name),
                             number(before), number(after)));
        truth.append(registersText(colour).mid(6));
        holds = holds && matches(colour) && after > before + kLeastColourChange;
        for (int press = 0; press < kColourPresses; ++press)
            m_operator.click("BUTTON_" + colour.name + "_COARSE_DOWN");
        holds = holds && matches(colour) && shownRegisters("EDIT_" + colour.name) == start;
    }
    return {holds, seen.join(", "), truth.join(", ")};
}

StepResult CameraSteps::staining()
{
    const Control exposure{"EXPOSURE", 0x3501};
    const QString saved = m_operator.text("EDIT_EXPOSURE");
    m_operator.click("BUTTON_STAINING_TB");
    m_context.settle();
    const QString stained = m_operator.text("EDIT_EXPOSURE");
    const bool stainedMatches = matches(exposure);
    m_operator.takePicture("staining-tb");
    m_operator.click("BUTTON_STAINING_NTB");
    m_context.settle();
    const QString back = m_operator.text("EDIT_EXPOSURE");
    return {stainedMatches && matches(exposure) && back == saved,
            QStringLiteral("exposure %1 in TB, %2 in NTB").arg(stained, back),
            QStringLiteral("%1, as saved %2").arg(registersText(exposure), saved)};
}
