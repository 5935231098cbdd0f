#include "support/QcOperator.h"

#include <algorithm>

#include <QCheckBox>
#include <QMouseEvent>
#include <QTimer>
#include <QtTest>

#include "QC/QC_measure.h"

namespace {

constexpr QSize kFrame(2592, 1944);
constexpr QSize kView(640, 480);
constexpr QPoint kViewMiddle(320, 240);
constexpr int kStroke_px = 300;
constexpr int kMovesPerStroke = 3;
/// Enough for frames under way before the switch, and for the sensor's own delay.
constexpr int kSettlingFrames = 4;
constexpr int kFreezeTimeout_ms = 20000;

/// The test library moves the cursor instead of sending moves, which no window sees here.
void send(QWidget* widget, QEvent::Type type, QPoint position)
{
    QMouseEvent event(type, position, Qt::LeftButton, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(widget, &event);
}

QPoint clamped(QPoint offset)
{
    return {qBound(0, offset.x(), kFrame.width() - kView.width()),
            qBound(0, offset.y(), kFrame.height() - kView.height())};
}

} // namespace

QcOperator::QcOperator(WindowFixture& fixture)
    : m_fixture(fixture), m_widget(fixture.find<QC_measure>("QC_MEASURE"))
{
}

bool QcOperator::freeze(bool waitOutTheDelay)
{
    m_fixture.click("BUTTON_QC_CAPTURE");
    m_offset = QPoint(0, 0);
    for (QTimer* timer : m_fixture.window().findChildren<QTimer*>()) {
        if (!timer->isSingleShot() || !timer->isActive() || waitOutTheDelay)
            continue;
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
    if (m_fixture.find<QCheckBox>("CHECK_TARGET")->isChecked() != on)
        m_fixture.click("CHECK_TARGET");
}

void QcOperator::drag(QPoint by)
{
    const QPoint from = kViewMiddle - by / 2;
    send(m_widget, QEvent::MouseButtonPress, from);
    for (int part = 1; part <= kMovesPerStroke; ++part)
        send(m_widget, QEvent::MouseMove, from + by * part / kMovesPerStroke);
    send(m_widget, QEvent::MouseButtonRelease, from + by);
    m_offset = clamped(m_offset - by);
}

void QcOperator::panTo(QPoint place)
{
    setTargeting(false);
    const QPoint wanted = clamped(place - kViewMiddle);
    while (m_offset != wanted) {
        const QPoint rest = m_offset - wanted;
        drag({qBound(-kStroke_px, rest.x(), kStroke_px), qBound(-kStroke_px, rest.y(), kStroke_px)});
    }
}

void QcOperator::aimAt(QPoint place)
{
    panTo(place);
    setTargeting(true);
    QTest::mouseClick(m_widget, Qt::LeftButton, Qt::NoModifier, place - m_offset);
}

void QcOperator::findPoint(int index)
{
    m_fixture.click(index == 0 ? "BUTTON_POINT_1" : "BUTTON_POINT_2");
}
