#include "simulator/operator/QcView.h"

#include <QSize>

#include "simulator/operator/Operator.h"

namespace {

constexpr QSize kFrame(2592, 1944);
constexpr QSize kView(640, 480);
constexpr QPoint kViewMiddle(320, 240);
constexpr int kStroke_px = 300;
const QString kWidget = QStringLiteral("QC_MEASURE");
const QString kTargetBox = QStringLiteral("CHECK_TARGET");

QPoint clamped(const QPoint& offset)
{
    return {qBound(0, offset.x(), kFrame.width() - kView.width()),
            qBound(0, offset.y(), kFrame.height() - kView.height())};
}

} // namespace

bool QcView::panTo(const QPoint& place)
{
    if (!m_operator.setChecked(kTargetBox, false))
        return false;
    const QPoint wanted = clamped(place - kViewMiddle);
    while (m_offset != wanted && !m_operator.hasGivenUp()) {
        const QPoint rest = m_offset - wanted;
        const QPoint by(qBound(-kStroke_px, rest.x(), kStroke_px), qBound(-kStroke_px, rest.y(), kStroke_px));
        if (!m_operator.dragOn(kWidget, kViewMiddle - by / 2, by))
            return false;
        m_offset = clamped(m_offset - by);
    }
    return true;
}

bool QcView::aimAt(const QPoint& place)
{
    return panTo(place) && m_operator.setChecked(kTargetBox, true) &&
           m_operator.dragOn(kWidget, place - m_offset);
}
