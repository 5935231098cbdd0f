#pragma once

#include <QEvent>
#include <QObject>
#include <QPaintEvent>
#include <QRegion>
#include <QWidget>

/// Counts the paints and the new layouts of a widget, and gathers what is painted of it.
class PaintWatch : public QObject
{
public:
    /// Of the paints, those that cover the whole area alone.
    explicit PaintWatch(QWidget& widget, const QRect& area = QRect()) : m_area(area)
    {
        widget.installEventFilter(this);
    }

    int paints() const { return m_paints; }
    int layouts() const { return m_layouts; }
    QRect painted() const { return m_painted.boundingRect(); }

protected:
    bool eventFilter(QObject*, QEvent* event) override
    {
        if (event->type() == QEvent::LayoutRequest || event->type() == QEvent::Resize)
            ++m_layouts;
        if (event->type() != QEvent::Paint)
            return false;
        const QRegion region = static_cast<QPaintEvent*>(event)->region();
        if ((QRegion(m_area) - region).isEmpty())
            ++m_paints;
        m_painted |= region;
        return false;
    }

private:
    QRect m_area;
    int m_paints = 0;
    int m_layouts = 0;
    QRegion m_painted;
};
