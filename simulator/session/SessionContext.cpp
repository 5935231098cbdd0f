#include "simulator/session/SessionContext.h"

#include <cmath>
#include <cstdint>

#include "simulator/instrument/SimulatedInstrument.h"
#include "simulator/session/PictureMeasures.h"

QString number(double value, int decimals)
{
    return std::isfinite(value) ? QString::number(value, 'f', decimals) : QStringLiteral("none");
}

QString lightText(const BoardLight& light)
{
    return QStringLiteral("LED %1 at %2").arg(light.ledOn ? "on" : "off").arg(light.ledLevel);
}

bool SessionContext::settle()
{
    constexpr int kSecondLook_ms = 300;
    const int limit_ms = patience * (m_standsStill ? kSecondLook_ms : kFrames_ms);
    const auto frames = [this] { return instrument.camera().counters(); };
    // The window paints the newest frame again and again where the camera is slower.
    const std::uint64_t fresh = frames().framesDelivered + kFramesOfBefore;
    m_standsStill = !user.waitUntil([&] { return frames().framesReturned >= fresh; }, limit_ms,
                                    QStringLiteral("no frames arrive")) ||
                    !user.waitForFrames(kFramesUnderWay, limit_ms);
    return !m_standsStill;
}

bool SessionContext::waitUntilEnabled(const QString& otherwise)
{
    constexpr int kSecondLook_ms = 1000;
    m_locked = !user.waitUntil([this] { return user.windowIsEnabled(); },
                               patience * (m_locked ? kSecondLook_ms : kAnswer_ms), otherwise);
    return !m_locked;
}

void SessionContext::moveTo(int position_steps)
{
    user.type("EDIT_Z_ABS", QString::number(position_steps));
    if (user.click("BUTTON_Z_ABS"))
        waitUntilEnabled(QStringLiteral("the window stays disabled after an absolute move"));
}

double SessionContext::brightness()
{
    return settle() ? measurePicture(user.liveView()).brightness : kNotTaken;
}

double SessionContext::numberShown(const QString& name)
{
    bool ok = false;
    const double value = user.text(name).toDouble(&ok);
    return ok ? value : kNotTaken;
}

bool SessionContext::boxWas(const QString& title, const QString& text) const
{
    const SeenBox* box = user.boxSinceExpected();
    return box != nullptr && box->title == title && box->text == text;
}
