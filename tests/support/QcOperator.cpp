#include "support/QcOperator.h"

#include <QTimer>

#include "QC/QC_measure.h"
#include "support/Patience.h"

namespace {

/// Enough for frames under way before the switch, and for the sensor's own delay.
constexpr int kSettlingFrames = 4;
constexpr int kFreezeTimeout_ms = 20000;

} // namespace

QcOperator::QcOperator(WindowFixture& fixture)
    : m_fixture(fixture), m_widget(fixture.find<QC_measure>("QC_MEASURE")), m_view(fixture.user())
{
}

bool QcOperator::freeze(bool waitOutTheDelay)
{
    m_fixture.click("BUTTON_QC_CAPTURE");
    m_view.startOver();
    for (QTimer* timer : m_fixture.window().findChildren<QTimer*>()) {
        if (!timer->isSingleShot() || !timer->isActive() || waitOutTheDelay)
            continue;
        // Not before the frames are there, however slow the machine is.
        timer->start(patient_ms(kFreezeTimeout_ms));
        if (!m_fixture.waitForFrames(kSettlingFrames))
            return false;
        timer->start(0);
    }
    return m_fixture.waitUntil([this] { return m_widget->isVisible() && m_fixture.window().isEnabled(); },
                               kFreezeTimeout_ms);
}

void QcOperator::goLive()
{
    m_fixture.click("BUTTON_QC_CAPTURE");
}

void QcOperator::setTargeting(bool on)
{
    m_fixture.user().setChecked("CHECK_TARGET", on);
}

void QcOperator::panTo(QPoint place)
{
    if (!m_view.panTo(place))
        qFatal("the frame is not dragged: %s", qPrintable(m_fixture.user().takeProblems()));
}

void QcOperator::aimAt(QPoint place)
{
    if (!m_view.aimAt(place))
        qFatal("no target is placed: %s", qPrintable(m_fixture.user().takeProblems()));
}

void QcOperator::findPoint(int index)
{
    m_fixture.click(index == 0 ? "BUTTON_POINT_1" : "BUTTON_POINT_2");
}
