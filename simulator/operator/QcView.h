#pragma once

#include <QPoint>

class Operator;

/// The part of the frozen calibration frame that the window shows, as an operator moves it
/// and presses on it. Places are pixels of the frame. GUI thread.
class QcView
{
public:
    /// operatorAtWindow outlives the view.
    explicit QcView(Operator& operatorAtWindow) : m_operator(operatorAtWindow) {}

    /// A frame was frozen: its upper left part is shown.
    void startOver() { m_offset = QPoint(0, 0); }
    /// Drags the frame, in as many strokes as it takes, until the place is as near to the
    /// middle of the view as the frame lets it be; without the target box. False if the frame
    /// takes no drag.
    bool panTo(const QPoint& place);
    /// Pans to the place, checks the target box and presses there. False if one of these fails.
    bool aimAt(const QPoint& place);
    /// Upper left pixel of the part that is shown, worked out from the drags.
    QPoint offset() const { return m_offset; }

private:
    Operator& m_operator;
    QPoint m_offset;
};
