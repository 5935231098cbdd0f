#pragma once

#include <QPoint>

#include "simulator/operator/QcView.h"
#include "support/WindowFixture.h"

class QC_measure;

/// Works the QC tab the way a person at the panel does: with presses and drags.
class QcOperator
{
public:
    explicit QcOperator(WindowFixture& fixture);

    QC_measure& widget() { return *m_widget; }
    /// Presses the capture button in live view and waits for the frozen frame; the sensor's
    /// time for a change to 5M is cut short unless it is to be waited for. False if no
    /// frame is frozen in time.
    bool freeze(bool waitOutTheDelay = false);
    /// Presses the capture button over a frozen frame.
    void goLive();
    /// Checks or unchecks the target box with a click, if it is not so already.
    void setTargeting(bool on);
    /// Drags the frozen frame, in as many strokes as it takes, until the place (image
    /// pixels) is as near to the middle of the view as the frame lets it be. This and aimAt()
    /// end the test program if the frame cannot be reached.
    void panTo(QPoint place);
    /// Top left image pixel of the view after panTo(), worked out from the drags.
    QPoint offset() const { return m_view.offset(); }
    /// Pans to the place, checks the target box and presses there.
    void aimAt(QPoint place);
    /// Presses the button of point 1 (index 0) or 2 (index 1); boxes are answered.
    void findPoint(int index);

private:
    WindowFixture& m_fixture;
    QC_measure* m_widget;
    QcView m_view;
};
