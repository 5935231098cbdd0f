#include "simulator/session/SessionBench.h"

#include <cmath>
#include <cstdint>

#include "simulator/instrument/SimulatedInstrument.h"
#include "simulator/session/PictureMeasures.h"

QString number(double value, int decimals)
{
    return std::isfinite(value) ? QString::number(value, 'f', decimals) : QStringLiteral("none");
}

QString onOff(bool on)
{
    return on ? QStringLiteral("on") : QStringLiteral("off");
}

QString lightText(const BoardLight& light)
{
    return QStringLiteral("LED %1 at %2").arg(onOff(light.ledOn)).arg(light.ledLevel);
}

bool SessionBench::settle()
{
    constexpr int kSecondLook_ms = 300;
    const int patience_ms = m_standsStill ? kSecondLook_ms : kFrames_ms;
    const auto frames = [this] { return instrument.camera().counters(); };
    // The window paints the newest frame again and again where the camera is slower.
    const std::uint64_t fresh = frames().framesDelivered + kFramesOfBefore;
    m_standsStill = !hand.waitUntil([&] { return frames().framesReturned >= fresh; }, patience_ms,
                                    QStringLiteral("no frames arrive")) ||
                    !hand.waitForFrames(kFramesUnderWay, patience_ms);
    return !m_standsStill;
}

bool SessionBench::waitUntilEnabled(const QString& otherwise)
{
    constexpr int kSecondLook_ms = 1000;
    m_locked = !hand.waitUntil([this] { return hand.windowIsEnabled(); },
                               m_locked ? kSecondLook_ms : kAnswer_ms, otherwise);
    return !m_locked;
}

void SessionBench::moveTo(int position_steps)
{
    hand.type("EDIT_Z_ABS", QString::number(position_steps));
    if (hand.click("BUTTON_Z_ABS"))
        waitUntilEnabled(QStringLiteral("the window stays disabled after an absolute move"));
}

double SessionBench::brightness()
{
    return settle() ? measurePicture(hand.liveView()).brightness : kNotTaken;
}

double SessionBench::numberShown(const QString& name)
{
    bool ok = false;
    const double value = hand.text(name).toDouble(&ok);
    return ok ? value : kNotTaken;
}

bool SessionBench::boxWas(const QString& title, const QString& text) const
{
    const SeenBox* box = hand.boxSinceExpected();
    return box != nullptr && box->title == title && box->text == text;
}
