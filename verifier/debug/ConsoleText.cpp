#include "debug/ConsoleText.h"

#include <algorithm>

#include <QCoreApplication>
#include <QPlainTextEdit>
#include <QScrollBar>
#include <QScrollEvent>
#include <QScrollPrepareEvent>
#include <QScroller>
#include <QSyntaxHighlighter>

namespace {

const QLatin1String kErrorMark("[Error]");
/// 8.7 : 1 against the console's ground.
const QColor kErrorColor(0xff, 0xb4, 0xa8);

/// Looks at a line when it changes, so that what the console holds costs nothing.
class ErrorLines : public QSyntaxHighlighter
{
public:
    using QSyntaxHighlighter::QSyntaxHighlighter;

protected:
    void highlightBlock(const QString& line) override
    {
        if (!line.contains(kErrorMark))
            return;
        QTextCharFormat format;
        format.setForeground(kErrorColor);
        format.setFontWeight(QFont::Bold);
        setFormat(0, line.size(), format);
    }
};

/// Answers the scroller in the place of the text area, whose scroll bar counts lines where a
/// finger counts pixels: without it a stroke of one line would run over a page.
class FingerScroll : public QObject
{
public:
    explicit FingerScroll(QPlainTextEdit* area) : QObject(area), m_area(area)
    {
        QWidget* viewport = area->viewport();
        viewport->installEventFilter(this);
        QScroller::grabGesture(viewport, QScroller::LeftMouseButtonGesture);
        QScrollerProperties properties;
        properties.setScrollMetric(QScrollerProperties::VerticalOvershootPolicy,
                                   QScrollerProperties::OvershootAlwaysOff);
        QScroller::scroller(viewport)->setScrollerProperties(properties);
    }

protected:
    bool eventFilter(QObject* viewport, QEvent* event) override
    {
        // Other events may come when the area is half gone.
        if (event->type() == QEvent::ScrollPrepare) {
            const QScrollBar* bar = m_area->verticalScrollBar();
            auto* prepare = static_cast<QScrollPrepareEvent*>(event);
            prepare->setViewportSize(m_area->viewport()->size());
            prepare->setContentPosRange({0, 0, 0, bar->maximum() * lineHeight_px()});
            prepare->setContentPos({0, bar->value() * lineHeight_px()});
            prepare->accept();
            return true;
        }
        if (event->type() == QEvent::Scroll) {
            const qreal position_px = static_cast<QScrollEvent*>(event)->contentPos().y();
            m_area->verticalScrollBar()->setValue(qRound(position_px / lineHeight_px()));
            return true;
        }
        return QObject::eventFilter(viewport, event);
    }

private:
    qreal lineHeight_px() const { return std::max(1, m_area->fontMetrics().lineSpacing()); }

    QPlainTextEdit* m_area;
};

} // namespace

void setUpConsoleText(QPlainTextEdit* area)
{
    new ErrorLines(area->document());
    new FingerScroll(area);
    // The text takes no stroke for itself; the window would pan the picture below with it.
    area->setAttribute(Qt::WA_NoMousePropagation);
}
