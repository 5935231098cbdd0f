#include "LiveViewNotice.h"

#include <QPainter>

namespace {

constexpr int kSideMargin_px = 8;
constexpr int kLineMargin_px = 3;
constexpr int kFontSize_pt = 10;
constexpr int kTextFlags = Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap;

constexpr QColor kBandColour(255, 216, 74);
constexpr QColor kEdgeColour(138, 109, 0);
constexpr QColor kTextColour(0, 0, 0);

} // namespace

LiveViewNotice::LiveViewNotice(int width_px, QWidget* parent) : QLabel(parent)
{
    setObjectName("LABEL_NOTICE");
    setAttribute(Qt::WA_OpaquePaintEvent);
    setAttribute(Qt::WA_TransparentForMouseEvents);
    QFont larger = font();
    larger.setPointSize(kFontSize_pt);
    setFont(larger);
    setGeometry(0, 0, width_px, 0);
    hide();
}

void LiveViewNotice::showLines(const QStringList& lines)
{
    const QString wanted = lines.join('\n');
    if (wanted == text())
        return;
    setText(wanted);
    if (wanted.isEmpty()) {
        hide();
        return;
    }
    constexpr int kAnyHeight_px = 1000;
    const QRect room(0, 0, textRect().width(), kAnyHeight_px);
    resize(width(), fontMetrics().boundingRect(room, kTextFlags, wanted).height() + 2 * kLineMargin_px + 1);
    show();
}

QRect LiveViewNotice::textRect() const
{
    return rect().adjusted(kSideMargin_px, kLineMargin_px, -kSideMargin_px, -kLineMargin_px - 1);
}

void LiveViewNotice::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    painter.fillRect(rect(), kBandColour);
    painter.fillRect(0, height() - 1, width(), 1, kEdgeColour);
    painter.setPen(kTextColour);
    painter.drawText(textRect(), kTextFlags, text());
}
