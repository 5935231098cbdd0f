#include "simulator/session/SessionBench.h"

#include "simulator/SimulatedInstrument.h"
#include "simulator/session/PictureMeasures.h"

QString number(double value, int decimals)
{
    return QString::number(value, 'f', decimals);
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
    return hand.waitForFrames(kFramesUnderWay, kFrames_ms);
}

bool SessionBench::waitUntilEnabled(const QString& otherwise)
{
    return hand.waitUntil([this] { return hand.windowIsEnabled(); }, kAnswer_ms, otherwise);
}

void SessionBench::moveTo(int position_steps)
{
    hand.type("EDIT_Z_ABS", QString::number(position_steps));
    hand.click("BUTTON_Z_ABS");
    waitUntilEnabled(QStringLiteral("the window stays disabled after an absolute move"));
}

double SessionBench::brightness()
{
    settle();
    return measurePicture(hand.liveView()).brightness;
}

bool SessionBench::lastBoxWas(const QString& title, const QString& text) const
{
    return !hand.boxes().isEmpty() && hand.boxes().last().title == title && hand.boxes().last().text == text;
}
