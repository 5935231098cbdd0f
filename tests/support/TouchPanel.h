#pragma once

#include <QPoint>
#include <QPointF>
#include <QVector>

#include "platform/FileDescriptor.h"

class QWidget;

/// A panel whose touches come to the program in the way of a real one's: they wait with the
/// window system until the event loop asks for them, and then follow each other. Driven by
/// Qt's own driver for panels on a network. GUI thread, but for plugIn().
class TouchPanel
{
public:
    /// To be called before the application is made.
    static void plugIn();

    TouchPanel();

    /// Presses and releases a widget of the active window at its middle; nothing comes of it
    /// before the event loop runs.
    void tap(const QWidget& widget);
    void press(const QWidget& widget);
    /// The same at a place of the widget, in its pixels.
    void press(const QWidget& widget, const QPoint& place);
    /// Moves the finger that is down to another place of the widget.
    void moveTo(const QWidget& widget, const QPoint& place);
    void release();
    bool isPressed() const { return !m_touches.isEmpty(); }

private:
    void touch(const QWidget& widget, const QPoint& place);
    void send();

    FileDescriptor m_line;
    QVector<QPointF> m_touches; ///< at most one, in parts of the window's size
    int m_touchNumber = 0;
    int m_frame = 0;
};
